#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "Base/Timestamp.h"
#include "CareDomain/CleanupCandidate.h"
#include "Platform/Mounts/Volumes.h"
#include "StorageEngine/AITools/AIToolHome.h"
#include "StorageEngine/AITools/Cleanup/AIToolLastLook.h"
#include "StorageEngine/AITools/ToolActivityProbe.h"
#include "StorageEngine/Cleanup/Planning/CleanupAuthorizationVerifier.h"
#include "StorageEngine/Cleanup/Revalidation/PlanRevalidator.h"
#include "StorageEngine/Rules/CleanupAgeFloor.h"
#include "StorageEngine/Safety/SafetyPolicyContext.h"

namespace tidyro {

/// Asks the disk and the processes, right before an item of a tool's home is touched, whether it
/// still may go by its rule. Whoever carries out plans with such items is given it twice: for
/// their authorization, and for their revalidation.
///
///     AIToolCleanupChecks checks({.homes = homes, .activityProvider = activity,
///                                 .volumes = volumes, .freshContext = fresh});
///     CleanupSession session({.home = home, .aiToolRules = &checks, .aiTools = &checks});
///
/// Both begin alike: the home is one of the known ones and still passes every condition of a home,
/// the item is reached from it without a link, and the classifier says of it as it is now that it
/// is eligible by the very rule and root of its authorization. Revalidation looks at the contents
/// of disposable items again in addition, and compares the verdict with the one on the card.
///
/// What is in use, the context and the versions are asked anew when they are older than
/// `maxAge`. Used by one thread.
class AIToolCleanupChecks final : public AIToolRuleVerifier, public AIToolEntryRevalidator {
  public:
    static constexpr double maxAge = CachedToolActivityProvider::maxAge; ///< seconds

    struct Options {
        std::vector<AIToolHome> homes; ///< as they were audited
        CleanupAgeFloor ageFloor = CleanupAgeFloor::recommended;
        /// No cached one: what it says is kept here. It and what follows outlive the checks.
        ToolActivityProviding& activityProvider;
        const platform::Volumes& volumes;
        /// Null for none; then nothing may go.
        std::function<std::shared_ptr<const SafetyPolicyContext>()> freshContext;
        bool honorsStatusChange = true;
        AIToolLastLook::Veto veto = AIToolVeto::reason;
        std::function<Timestamp()> clock = Timestamp::now;
        std::function<double()> steadySeconds = nullptr; ///< for tests
    };
    explicit AIToolCleanupChecks(Options options);
    ~AIToolCleanupChecks() override;
    AIToolCleanupChecks(const AIToolCleanupChecks&) = delete;
    AIToolCleanupChecks& operator=(const AIToolCleanupChecks&) = delete;

    /// Instead of those that are known, when homes were audited anew.
    void setHomes(std::vector<AIToolHome> homes);

    [[nodiscard]] bool covers(const authorization::AIToolRule& rule,
                              const FileURL& item) const override;
    [[nodiscard]] std::optional<RevalidationIssue> issue(const CleanupPlanEntry& entry,
                                                         const FileObservation& observed,
                                                         const SafetyPolicyContext& context,
                                                         Timestamp at) override;

    /// What stands against a candidate that was audited before, as it is now. For one that an audit
    /// finds no more it says why; none when it seems to be as it was.
    [[nodiscard]] std::optional<RevalidationIssue> issueOf(const CleanupCandidate& candidate,
                                                           Timestamp at);
    /// What is in use now.
    [[nodiscard]] const ToolActivitySnapshot* activity();

  private:
    struct Body;
    std::unique_ptr<Body> body_;
};

} // namespace tidyro

#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "Base/Cancellation.h"
#include "Base/FileURL.h"
#include "Base/Timestamp.h"
#include "CareDomain/CleanupPlan.h"
#include "CareDomain/FileObservation.h"
#include "Platform/Mounts/Volumes.h"
#include "Platform/Processes/RunningApplications.h"
#include "StorageEngine/Cleanup/Revalidation/PlanRevalidation.h"
#include "StorageEngine/Rules/CleanupRule.h"
#include "StorageEngine/Safety/SafetyPolicyContext.h"

namespace tidyro {

/// Asks again, right before a plan is carried out, whether each of its items may still go.
class PlanRevalidator {
  public:
    enum class Expiry : std::uint8_t {
        judged,
        /// It was judged when the run began. A run that was begun in time may end later.
        judgedBefore,
    };
    struct Scope {
        std::size_t firstEntry = 0; ///< those before it are left out of the report as well
        Expiry expiry = Expiry::judged;
        CancelToken cancel = {};
    };

    virtual ~PlanRevalidator() = default;
    /// `at` is the present moment. Whatever is wrong with an entry, or with the machine, becomes an
    /// issue in the report.
    [[nodiscard]] virtual std::expected<PlanRevalidationReport, CancellationError>
    revalidate(const CleanupPlan& plan, Timestamp at, const Scope& scope) = 0;
    [[nodiscard]] std::expected<PlanRevalidationReport, CancellationError>
    revalidate(const CleanupPlan& plan, Timestamp at) {
        return revalidate(plan, at, Scope{});
    }
};

/// Asks of an entry that the rule of an AI tool authorizes.
class AIToolEntryRevalidator {
  public:
    virtual ~AIToolEntryRevalidator() = default;
    /// What stands against the entry; none when the rule is still known, its root is still a home
    /// of the tool, and the item is still one that may go by it and of the tier on its card. The
    /// item was just observed: it is there, unchanged and not in use.
    [[nodiscard]] virtual std::optional<RevalidationIssue> issue(const CleanupPlanEntry& entry,
                                                                 const FileObservation& observed,
                                                                 const SafetyPolicyContext& context,
                                                                 Timestamp at) = 0;
};

/// Looks at every item again and rates it with what holds on the machine now.
///
///     DefaultPlanRevalidator revalidator(
///         {.home = home,
///          .rules = BuiltInCleanupRules::currentUser(home, ageFloor),
///          .sessionRoots = opened,
///          .freshContext = [&] { return contexts.freshContext(); },
///          .volumes = volumes,
///          .applications = applications});
///     const auto report = revalidator.revalidate(plan, Timestamp::now());
///     for (const EntryRevalidation& entry : report->entries) {
///         if (entry.issue) refuse(entry.candidateID, explanation(*entry.issue));
///     }
///
/// An entry gets the first issue that applies: the plan expired, the item is missing, could not be
/// observed, changed, is in use, belongs to a running application, is protected, is rated otherwise
/// than its card says. Files are asked by the safety policy. Picked items, project folders and
/// applications are asked by their own policies, which look through all that goes with them.
///
/// What a run finds out about the machine holds for that run: there is one context and one list of
/// volumes, and folders are remembered. It says nothing of the moment in which an item is touched,
/// so whoever does that compares the item once more. Used by one thread.
class DefaultPlanRevalidator final : public PlanRevalidator {
  public:
    struct Options {
        FileURL home;
        std::vector<CleanupRule> rules;         ///< made anew, with the person's age floor
        std::vector<FileURL> sessionRoots = {}; ///< opened by the person in this run
        /// Asked once a run. Null for none; then no entry can be observed.
        std::function<std::shared_ptr<const SafetyPolicyContext>()> freshContext;
        const platform::Volumes& volumes; ///< it and what follows outlive the revalidator
        const platform::RunningApplications& applications;
        /// Without one all entries by rules of AI tools are protected.
        AIToolEntryRevalidator* aiTools = nullptr;
    };
    explicit DefaultPlanRevalidator(Options options);

    using PlanRevalidator::revalidate;
    [[nodiscard]] std::expected<PlanRevalidationReport, CancellationError>
    revalidate(const CleanupPlan& plan, Timestamp at, const Scope& scope) override;

  private:
    class Run;

    Options options_;
};

} // namespace tidyro

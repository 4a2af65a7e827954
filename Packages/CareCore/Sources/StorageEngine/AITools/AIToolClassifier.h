#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Base/FileURL.h"
#include "Base/Timestamp.h"
#include "CareDomain/CleanupCandidate.h"
#include "CareDomain/FileObservation.h"
#include "CareDomain/RiskAssessment.h"
#include "StorageEngine/AITools/AIToolDecision.h"
#include "StorageEngine/AITools/AIToolHome.h"
#include "StorageEngine/AITools/AIToolVersionState.h"
#include "StorageEngine/AITools/ToolActivityProbe.h"
#include "StorageEngine/Rules/CleanupAgeFloor.h"
#include "StorageEngine/Safety/DeterministicSafetyPolicy.h"
#include "StorageEngine/Safety/SafetyPolicyContext.h"

namespace tidyro {

/// What became of one entry of a home.
struct AIToolClassification {
    AIToolArtifactGroup group;
    AIToolDecision decision;
    /// Present from the moment that a rule recognised the entry, also when it is held.
    std::optional<std::string> recognizerID = std::nullopt;
    std::optional<FileURL> candidateRootURL = std::nullopt;
    std::optional<CleanupCandidate> candidate = std::nullopt; ///< of an eligible entry only

    bool operator==(const AIToolClassification&) const = default;
};

/// Names that tell of databases and of the files beside them, in any case.
struct AIToolDatabaseNames {
    [[nodiscard]] static bool isDatabaseOrSidecar(std::string_view name);
};

struct AIToolAgePolicy {
    /// Whatever a person chooses, what changed later than this many seconds ago is too recent.
    static constexpr double minAge = 86'400;
    /// The person's setting in seconds.
    [[nodiscard]] static double effectiveMinimumAge(CleanupAgeFloor floor);
};

/// Decides for each entry of a tool's home whether it may ever be cleaned. Only what a named rule
/// of the tool recognises may, and only when nothing speaks against it; all else stays.
///
///     AIToolClassifier classifier(
///         {.minimumAge = AIToolAgePolicy::effectiveMinimumAge(ageFloor),
///          .context = AIToolClassifier::context(home, *machine),
///          .activity = activity,
///          .now = Timestamp::now(),
///          .isToolAppRunning = activity.isRunning(home.layout().runningAppMarkers)});
///     const auto rated = classifier.classify(observation, location, {});
///     if (rated.decision == AIToolDecision::eligibleDisposable) suggest(*rated.candidate);
///
/// It looks at nothing on the disk, follows no link and fails nowhere: every doubt is a decision
/// that protects. Immutable, so any thread may ask.
class AIToolClassifier {
  public:
    struct Options {
        double minimumAge; ///< seconds
        SafetyPolicyContext context;
        ToolActivitySnapshot activity;
        Timestamp now;
        /// Whether the last change of what the system keeps about an item counts as well. A file
        /// that was unpacked a moment ago may bear an old date.
        bool honorsStatusChange = true;
        bool isToolAppRunning = false;
        /// In the order of `AIToolID`; they outlive the classifier.
        std::span<const AIToolLayout> layouts = AIToolLayouts::all();
    };
    explicit AIToolClassifier(Options options) : options_(std::move(options)) {}

    struct Entry {
        bool isSymbolicLink = false;
        /// Of the root or store that the entry lies in. Without one each version counts as current.
        const AIToolVersionState* versionState = nullptr;
        std::optional<Timestamp> statusChangeDate = std::nullopt;
    };
    [[nodiscard]] AIToolClassification classify(const FileObservation& observation,
                                                const AIToolLocation& at, const Entry& entry) const;

    /// Which check decides of an entry and what would have to change, in a sentence for people,
    /// with the decision's own explanation where a name decides. Needs no audit: it asks again.
    [[nodiscard]] std::string why(const FileObservation& observation, const AIToolLocation& at,
                                  const Entry& entry) const;

    /// What the names on the way to an entry alone lead to.
    struct ByNames {
        /// None where a rule has to recognise the entry.
        std::optional<AIToolDecision> decision;
        const AIToolRecognizer* recognizer; ///< null for none
        /// Of the components those below the root or store; empty outside.
        std::span<const std::string> below;
    };
    /// The components, which lead from the home or store to the entry, and the layout outlive it.
    [[nodiscard]] static ByNames byNames(const AIToolLayout& layout,
                                         const AIToolLocation::Place& place,
                                         std::span<const std::string> components,
                                         const AIToolVersionState* versions);

    /// What the disk says of the item itself; none when it cannot be asked.
    [[nodiscard]] static std::optional<Timestamp> statusChangeDate(const FileURL& of);
    /// What the machine says, as it holds for a home. That the tool's own application runs is a
    /// matter of the home's roots and does not hold all of it.
    [[nodiscard]] static SafetyPolicyContext context(const AIToolHome& forHome,
                                                     const SafetyPolicyContext& machine);
    /// Many items share one.
    [[nodiscard]] static RiskAssessment assessment(AIToolArtifactGroup group,
                                                   std::string_view layoutVersion,
                                                   std::string_view toolName);

  private:
    [[nodiscard]] std::optional<AIToolDecision> hold(const FileObservation& observation,
                                                     const AIToolCandidateRoot* root,
                                                     const Entry& entry) const;

    Options options_;
};

} // namespace tidyro

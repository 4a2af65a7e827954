#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

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

    /// What the entries of one folder have in common, for whoever asks of them one after another.
    /// It refers to the layouts, and to the state of versions that was last handed in. Used by one
    /// thread.
    class LastFolder;

    struct Entry {
        bool isSymbolicLink = false;
        bool isInaccessible = false; ///< a folder that could not be opened
        bool isInDatabase = false;   ///< it lies in a database that is made of files
        /// Of the root or store that the entry lies in. Without one each version counts as current.
        const AIToolVersionState* versionState = nullptr;
        std::optional<Timestamp> statusChangeDate = std::nullopt;
        LastFolder* lastFolder = nullptr; ///< null: nothing is remembered
    };
    [[nodiscard]] AIToolClassification classify(const FileObservation& observation,
                                                const AIToolLocation& at, const Entry& entry) const;

    /// What `classify` found out, before it is written down.
    struct Verdict {
        AIToolArtifactGroup group;
        AIToolDecision decision;
        const AIToolRecognizer* rule = nullptr;    ///< of the layout; null when none recognised it
        const AIToolCandidateRoot* root = nullptr; ///< the rule's; null for one of a store
    };
    /// The same for whoever asks of very many entries and needs few candidates. The identifiers of
    /// the observation are not asked for and may be empty.
    [[nodiscard]] Verdict rate(const FileObservation& observation, const AIToolLocation& at,
                               const Entry& entry) const;
    /// The candidate of an eligible entry.
    struct Eligible {
        AIToolID tool;
        const FileURL& userHome;
        std::string_view layoutVersion;
        std::string_view ruleID;
        AIToolArtifactGroup group; ///< of the rule, as is the category
        CleanupCategory category;
        const FileURL& candidateRootURL;
    };
    [[nodiscard]] static CleanupCandidate candidate(FileObservation observation,
                                                    const Eligible& by);

    /// Which check decides of an entry and what would have to change, in a sentence for people,
    /// with the decision's own explanation where a name decides. Needs no audit: it asks again.
    [[nodiscard]] std::string why(const FileObservation& observation, const AIToolLocation& at,
                                  const Entry& entry) const;

    /// What the names on the way to an entry alone lead to.
    struct ByNames {
        /// None where a rule has to recognise the entry.
        std::optional<AIToolDecision> decision = std::nullopt;
        const AIToolRecognizer* recognizer = nullptr; ///< null for none
        /// Of the components those below the root or store; empty outside.
        std::span<const std::string> below = {};
        const AIToolCandidateRoot* root = nullptr; ///< null outside and in a store
    };
    /// The components, which lead from the home or store to the entry, and the layout outlive it.
    [[nodiscard]] static ByNames byNames(const AIToolLayout& layout,
                                         const AIToolLocation::Place& place,
                                         std::span<const std::string> components,
                                         const AIToolVersionState* versions);

    /// What the name of an entry at the top of a home says, unless it is a candidate root.
    [[nodiscard]] static AIToolDecision decisionOfTopLevel(const AIToolLayout& layout,
                                                           std::string_view name);
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
    /// What the names of a folder say of the entries in it.
    struct Names {
        bool isInTerritory = false;                ///< of a candidate root or a store
        const AIToolCandidateRoot* root = nullptr; ///< null in a store
        std::span<const AIToolRecognizer> recognizers;
        std::span<const std::string> protectedChildPatterns;
        AIToolDecision protectedDecision = AIToolDecision::lockOrStaging;
        bool hasVersions = false;
        std::size_t depth = 0; ///< components of the root or store, and of what leads to it
        bool mayHoldRoots = false;
        bool hasDatabase = false;
        bool hasLock = false;
        /// Of all entries; none for the children of a home, a root or a store.
        std::optional<AIToolDecision> decision = std::nullopt;
    };
    [[nodiscard]] static Names namesOf(const AIToolLayout& layout,
                                       const AIToolLocation::Place& place,
                                       std::span<const std::string> components,
                                       const AIToolVersionState* versions);
    [[nodiscard]] static std::optional<AIToolDecision>
    decisionOfChild(const Names& names, const std::string& child,
                    const AIToolVersionState* versions);
    [[nodiscard]] static std::optional<AIToolDecision>
    decisionOfNames(const AIToolLayout& layout, std::span<const std::string> components,
                    const Names& above, const AIToolVersionState* versions);

    [[nodiscard]] static ByNames byNames(const AIToolLayout& layout,
                                         const AIToolLocation::Place& place,
                                         std::span<const std::string> components,
                                         const AIToolVersionState* versions, LastFolder* last);

    [[nodiscard]] std::optional<AIToolDecision> hold(const FileObservation& observation,
                                                     const AIToolLocation& at,
                                                     const AIToolCandidateRoot* root,
                                                     const Entry& entry) const;

    Options options_;
};

class AIToolClassifier::LastFolder {
    friend class AIToolClassifier;

    [[nodiscard]] const Names& namesOf(const AIToolLayout& layout,
                                       const AIToolLocation::Place& place,
                                       std::span<const std::string> components,
                                       const AIToolVersionState* versions);

    const AIToolLayout* layout_ = nullptr;
    const AIToolVersionState* versions_ = nullptr;
    AIToolLocation::Place place_;
    std::vector<std::string> components_;
    Names names_;
};

} // namespace tidyro

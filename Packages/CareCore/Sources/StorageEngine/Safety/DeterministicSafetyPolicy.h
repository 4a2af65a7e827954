#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Base/FileURL.h"
#include "Base/LoweredPath.h"
#include "Base/Timestamp.h"
#include "CareDomain/CleanupCandidate.h"
#include "CareDomain/CleanupCategory.h"
#include "CareDomain/FileObservation.h"
#include "CareDomain/RiskAssessment.h"
#include "Platform/Files/FileLease.h"
#include "StorageEngine/Observation/FileObserver.h"
#include "StorageEngine/Places/BaseFolders.h"
#include "StorageEngine/Places/KeptPlaces.h"
#include "StorageEngine/Rules/CleanupRule.h"
#include "StorageEngine/Safety/SafetyPolicyContext.h"

namespace tidyro {

/// The single place that decides whether an item may be cleaned without asking, must be reviewed,
/// or is protected.
///
///     const DeterministicSafetyPolicy policy(home);
///     const auto rules = BuiltInCleanupRules::allLocations(home);
///     const auto rated = policy.classify(
///         observation, {.rules = rules, .context = *context, .now = now});
///     if (rated.assessment.tier == RiskTier::safeToReclaim) suggest(rated);
///
/// The same observation, rules, context and time always give the same verdict; no heuristic, model
/// or network takes part. Every doubt ends in `protected`: an unknown owner or volume, a missing
/// date, no rule, a rule that is not ours. Nothing here fails, and a protected verdict allocates
/// nothing, but for what a tool keeps of a person's work. Immutable: any thread may ask.
class DeterministicSafetyPolicy {
  public:
    explicit DeterministicSafetyPolicy(FileURL home);

    /// What the age of an item is counted from; the younger of two counts.
    enum class AgeCount : std::uint8_t { sinceModification, sinceModificationAndCreation };

    /// What the files of one folder have in common, for whoever rates them one after another. It
    /// refers to the policy and the rules of the last question, which must outlive it. Used by one
    /// thread.
    class LastFolder {
        friend class DeterministicSafetyPolicy;
        const DeterministicSafetyPolicy* policy_ = nullptr;
        std::span<const CleanupRule> rules_;
        std::string path_;
        std::string loweredPath_;
        const CleanupRule* rule_ = nullptr; ///< of every file in the folder
        bool hasRootInIt_ = true;           ///< some files may have other rules
        bool isKeptByNamesOnly_ = false;
        const ToolStateFence* toolState_ = nullptr;
        bool isNearToolState_ = false;
    };

    struct Question {
        std::optional<CleanupCategory> categoryHint = std::nullopt;
        std::span<const CleanupRule> rules;
        const SafetyPolicyContext& context;
        Timestamp now;
        /// Remembers folders whose links were resolved, for a scan that rates many files. Without
        /// one the item's own path is resolved on the disk, which is a must right before the item
        /// is touched.
        FolderResolver* folders = nullptr;
        /// Remembers by their texts which rule and which kept places are about the folder of the
        /// last file. What depends on a file's own name is asked for each.
        LastFolder* lastFolder = nullptr;
        /// What the item belongs to, as its observer tells. A part of anything is protected, but
        /// a tool's own checkout is left to a person's review where a rule covers it.
        PartOf partOf = PartOf::nothing;
        /// A file that was unpacked a moment ago may bear a modification date of years ago. So
        /// whoever looks for files to suggest counts their age from their creation as well.
        AgeCount ageCount = AgeCount::sinceModification;
        /// What the file itself tells of who has it open. A file in use is protected. Where
        /// processes may be hidden, one that is not known to be free needs review.
        platform::FileUse use = platform::FileUse::unknown;
        /// Whether the file changed between two looks at it. It is protected then.
        bool isGrowing = false;
    };
    /// The candidate with its verdict. It carries the observation unchanged, and no authorization.
    [[nodiscard]] CleanupCandidate classify(FileObservation observation,
                                            const Question& question) const;

    /// What whoever asks for the protective checks has found out in a better way. A recogniser of
    /// an AI tool knows which folders of its application are caches, and which repositories the
    /// tool made as scratch; by their places alone they count as an application's own data and as
    /// a person's project.
    struct Settled {
        bool isNoApplicationData = false;
        bool isNoProject = false;
    };
    /// Runs the protective checks alone. The first one that fires decides; none when none fires.
    [[nodiscard]] std::optional<RiskAssessment>
    protectedAssessment(const FileObservation& observation, const SafetyPolicyContext& context,
                        Settled settled) const;
    [[nodiscard]] std::optional<RiskAssessment>
    protectedAssessment(const FileObservation& observation,
                        const SafetyPolicyContext& context) const {
        return protectedAssessment(observation, context, Settled{});
    }

    /// The category that an observation has by itself.
    [[nodiscard]] static CleanupCategory category(const FileObservation& observation);

    /// The matching rule with the deepest root, the earlier among equals; none when none matches.
    [[nodiscard]] static const CleanupRule*
    mostSpecificMatchingRule(const FileURL& url, std::span<const CleanupRule> rules) {
        return mostSpecificMatchingRule(url.path(), rules);
    }
    [[nodiscard]] static const CleanupRule*
    mostSpecificMatchingRule(std::string_view path, std::span<const CleanupRule> rules);

    // These ask for standardised URLs and look at nothing on the disk.

    /// In a place of the operating system, or in one that all users share.
    [[nodiscard]] static bool isSystemProtected(const FileURL& url);
    /// Whether any folder of the path has the name of one in which people keep their own files.
    [[nodiscard]] static bool isPersonalProtected(const FileURL& url);
    /// An application's own data rather than one of its caches.
    [[nodiscard]] static bool isApplicationSupport(const FileURL& url);
    /// In a part of Xcode's derived data that is not built again file by file.
    [[nodiscard]] static bool isNonRegeneratingBuildStore(const FileURL& url);

  private:
    struct Verdict {
        CleanupCategory category;
        RiskAssessment assessment;
    };
    [[nodiscard]] Verdict verdict(const FileObservation& observation,
                                  const Question& question) const;
    /// Brings the memory to the folder of this file.
    void remember(LastFolder& last, std::string_view path, const LoweredPath& lowered,
                  const Question& question) const;
    [[nodiscard]] Verdict byRule(const FileObservation& observation, const LoweredPath& lowered,
                                 const CleanupRule* rule, const Question& question,
                                 CleanupCategory category) const;
    [[nodiscard]] static std::optional<RiskAssessment>
    protectedBy(const FileObservation& observation, const LoweredPath& lowered,
                const Question& question, Settled settled);
    [[nodiscard]] bool touchesReviewRoot(std::string_view path, const LoweredPath& lowered) const;

    FileURL home_;
    std::string homePrefix_; ///< lower-cased, "/" at its end
    KeptPlaces kept_;
    BaseFolders bases_; ///< as far as they move what needs review
    RiskAssessment safe_;
    RiskAssessment reviewRequired_;
    RiskAssessment fetchedByTool_;
    RiskAssessment mayBeInUse_;
};

} // namespace tidyro

#pragma once

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
#include "StorageEngine/Rules/CleanupRule.h"
#include "StorageEngine/Safety/SafetyPolicyContext.h"

namespace tidyro {

/// The single place that decides whether an item may be cleaned without asking, must be reviewed,
/// or is protected.
///
/// Deterministic: the same observation, rules, context and clock give the same verdict; no
/// heuristic, model or network takes part. Every doubt ends in `protected`: an unknown owner or
/// volume, a missing date, no rule, a rule that is not ours. Nothing here fails, and a protected
/// verdict allocates nothing.
class DeterministicSafetyPolicy {
  public:
    explicit DeterministicSafetyPolicy(FileURL home);

    struct Question {
        std::optional<CleanupCategory> categoryHint = std::nullopt;
        std::span<const CleanupRule> rules;
        const SafetyPolicyContext& context;
        Timestamp now;
        /// Remembers folders whose links were resolved, for a scan that rates many files; absent,
        /// the item itself is resolved on the disk, as it must be right before it is touched.
        FolderResolver* folders = nullptr;
    };
    /// The verdict. The candidate carries the observation unchanged and no authorization.
    [[nodiscard]] CleanupCandidate classify(FileObservation observation,
                                            const Question& question) const;

    /// The protective checks alone: the first that fires; none when none does.
    [[nodiscard]] std::optional<RiskAssessment>
    protectedAssessment(const FileObservation& observation,
                        const SafetyPolicyContext& context) const;

    /// The category that an observation has by itself.
    [[nodiscard]] static CleanupCategory category(const FileObservation& observation);

    /// The matching rule with the deepest root, the earlier among equals; none when none matches.
    [[nodiscard]] static const CleanupRule*
    mostSpecificMatchingRule(const FileURL& url, std::span<const CleanupRule> rules);

    // Predicates on places, on standardised URLs.

    /// In a place of the operating system, or in one that all users share.
    [[nodiscard]] static bool isSystemProtected(const FileURL& url);
    /// Below a folder named as those in which people keep their own files, anywhere in the path.
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
    [[nodiscard]] Verdict byRule(const FileObservation& observation, const Question& question,
                                 CleanupCategory category) const;
    [[nodiscard]] std::optional<RiskAssessment>
    protectedBy(const FileObservation& observation, const LoweredPath& lowered,
                const SafetyPolicyContext& context) const;

    FileURL home_;
    std::string homePrefix_; ///< lower-cased, "/" at its end
    RiskAssessment safe_;
    RiskAssessment reviewRequired_;
};

} // namespace tidyro

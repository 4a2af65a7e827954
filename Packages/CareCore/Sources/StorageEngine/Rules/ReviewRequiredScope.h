#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Base/FileURL.h"
#include "Base/LoweredPath.h"
#include "CareDomain/CleanupCategory.h"
#include "CareDomain/RiskAssessment.h"
#include "StorageEngine/Sorting/DiskGroup.h"

namespace tidyro {

/// Places and categories that a rule may well recognise as a cache but that always need a person's
/// review: local AI models, disks of containers and virtual machines, sessions of AI tools, and
/// what people or their tools made rather than fetched.
struct ReviewRequiredScope {
    /// Whether a path is, lies in or holds a review root. The path is absolute and standardised;
    /// `homePrefix` comes from `loweredHomePrefix`. The home itself and the folders above it hold
    /// every review root.
    [[nodiscard]] static bool touchesReviewRoot(std::string_view path, std::string_view homePrefix);
    [[nodiscard]] static bool touchesReviewRoot(const LoweredPath& path,
                                                std::string_view homePrefix);

    /// Whether an item needs review whatever else is known: by its place, its category
    /// (`archivedConversation`, `generatedWork`, `applicationData`) or its disk group
    /// (`oldDownloads`, `largeFiles`: a person's own files).
    [[nodiscard]] static bool needsReview(const FileURL& url, CleanupCategory category,
                                          const FileURL& home,
                                          std::optional<DiskGroup> group = std::nullopt);

    /// The same for whoever asks of many items: an absolute, standardised path, and the home as
    /// `loweredHomePrefix` gives it.
    [[nodiscard]] static bool needsReview(std::string_view path, CleanupCategory category,
                                          std::string_view homePrefix,
                                          std::optional<DiskGroup> group = std::nullopt);

    /// The assessment with the tier `reviewCarefully`. Its reasons and its summary stay, and say in
    /// addition that a person has to look.
    [[nodiscard]] static RiskAssessment downgraded(const RiskAssessment& assessment);

    /// The assessment, downgraded when it is safe and the item needs review; otherwise unchanged.
    [[nodiscard]] static RiskAssessment capped(const RiskAssessment& assessment, const FileURL& url,
                                               CleanupCategory category, const FileURL& home,
                                               std::optional<DiskGroup> group = std::nullopt);
};

/// The home's path as `touchesReviewRoot` takes it: lower-cased, with a "/" at its end.
[[nodiscard]] std::string loweredHomePrefix(const FileURL& home);

} // namespace tidyro

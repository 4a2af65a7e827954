#include "StorageEngine/Rules/ReviewRequiredScope.h"

#include <algorithm>
#include <array>

#include "Base/LoweredPath.h"
#include "Base/StableHash.h"
#include "Base/UnicodeText.h"

namespace tidyro {

namespace {

/// Below the home, lower-cased.
constexpr std::array<std::string_view, 17> reviewRoots{
    ".ollama/models",
    ".lmstudio",
    ".cache/lm-studio",
    ".cache/huggingface",
    ".cache/torch/hub",
    "library/containers/com.docker.docker",
    "library/group containers/group.com.docker",
    ".docker",
    ".orbstack",
    "library/group containers/huaq24hbr6.dev.orbstack",
    ".colima",
    ".lima",
    "library/containers/com.utmapp.utm",
    ".claude/projects",
    ".claude/todos",
    ".codex/sessions",
    "library/application support/cursor/user/workspacestorage"};
static_assert(tableHash(reviewRoots) == 0xa1f6'a035'0876'6d87);

/// Whether `path` is `folder` or lies in it; neither ends with "/".
bool isInsideOrEqual(std::string_view path, std::string_view folder) {
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

} // namespace

bool ReviewRequiredScope::touchesReviewRoot(std::string_view path, std::string_view homePrefix) {
    return touchesReviewRoot(LoweredPath(path), homePrefix);
}

bool ReviewRequiredScope::touchesReviewRoot(const LoweredPath& lowered,
                                            std::string_view homePrefix) {
    const std::string_view loweredPath = lowered.text();
    const std::string_view home = homePrefix.substr(0, homePrefix.size() - 1);
    if (loweredPath == "/" || isInsideOrEqual(home, loweredPath)) return true;
    if (!loweredPath.starts_with(homePrefix)) return false;
    const std::string_view below = loweredPath.substr(homePrefix.size());
    return std::ranges::any_of(reviewRoots, [&](std::string_view root) {
        // The first byte rules most of them out, which shows when a plan asks for each candidate.
        return below.starts_with(root.front()) &&
               (isInsideOrEqual(below, root) || isInsideOrEqual(root, below));
    });
}

bool ReviewRequiredScope::needsReview(const FileURL& url, CleanupCategory category,
                                      const FileURL& home, std::optional<DiskGroup> group) {
    return needsReview(url.path(), category, loweredHomePrefix(home), group);
}

bool ReviewRequiredScope::needsReview(std::string_view path, CleanupCategory category,
                                      std::string_view homePrefix, std::optional<DiskGroup> group) {
    const bool isMade = category == CleanupCategory::archivedConversation ||
                        category == CleanupCategory::generatedWork ||
                        category == CleanupCategory::applicationData;
    return isMade || group == DiskGroup::oldDownloads || group == DiskGroup::largeFiles ||
           touchesReviewRoot(path, homePrefix);
}

RiskAssessment ReviewRequiredScope::downgraded(const RiskAssessment& assessment) {
    RiskAssessment reviewed = assessment;
    reviewed.tier = RiskTier::reviewCarefully;
    reviewed.evidence.codes.insert(EvidenceCode::userReviewRequired);
    reviewed.evidence.summary =
        SharedText::made(std::string(assessment.evidence.summary) +
                         " Sessions, local models and container data always need your review.");
    return reviewed;
}

RiskAssessment ReviewRequiredScope::capped(const RiskAssessment& assessment, const FileURL& url,
                                           CleanupCategory category, const FileURL& home,
                                           std::optional<DiskGroup> group) {
    if (assessment.tier != RiskTier::safeToReclaim) return assessment;
    return needsReview(url, category, home, group) ? downgraded(assessment) : assessment;
}

std::string loweredHomePrefix(const FileURL& home) {
    std::string prefix = lowercased(home.path());
    if (!prefix.ends_with('/')) prefix += '/';
    return prefix;
}

} // namespace tidyro

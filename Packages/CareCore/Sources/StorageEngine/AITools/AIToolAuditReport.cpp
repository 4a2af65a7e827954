#include "StorageEngine/AITools/AIToolAuditReport.h"

#include <fmt/format.h>

#include "StorageEngine/AITools/AIToolClassifier.h"

namespace tidyro {

namespace {

template <class Add>
std::uint64_t sumOfFindings(const AIToolAuditReport& report, Add add) {
    std::uint64_t sum = 0;
    for (const AIToolRuleFinding& finding : report.ruleFindings) sum += add(finding);
    return sum;
}

} // namespace

FileURL AIToolRuleFinding::url(const AIToolArtifact& of) const {
    return locationRootURL.appending(of.relativePath);
}

std::string AIToolRuleFinding::key(const AIToolArtifact& of) const { return url(of).text(); }

std::uint64_t AIToolAuditReport::totalIncludingStoresByteCount() const {
    std::uint64_t total = totalLogicalByteCount;
    for (const AIToolPathSummary& store : externalStores) total += store.logicalByteCount;
    return total;
}

std::uint64_t AIToolAuditReport::eligibleByteCount() const {
    return sumOfFindings(*this, [](const auto& finding) { return finding.eligibleByteCount; });
}

std::uint64_t AIToolAuditReport::eligibleDisposableByteCount() const {
    return sumOfFindings(*this, [](const auto& finding) {
        return finding.group == AIToolArtifactGroup::disposableCache ? finding.eligibleByteCount
                                                                     : 0;
    });
}

std::uint64_t AIToolAuditReport::keptForRecentUseByteCount() const {
    return sumOfFindings(*this, [](const auto& finding) { return finding.keptRecentByteCount; });
}

std::uint64_t AIToolAuditReport::keptForActiveUseByteCount() const {
    return sumOfFindings(*this, [](const auto& finding) { return finding.keptActiveByteCount; });
}

CleanupCandidate AIToolAuditReport::candidate(const AIToolArtifact& forArtifact,
                                              const AIToolRuleFinding& in) const {
    FileURL url = in.url(forArtifact);
    // The classifier lets nothing go of which any of the constants here would be wrong.
    FileObservation observation{.id = {.rawValue = url.text()},
                                .url = std::move(url),
                                .kind = FileKind::regularFile,
                                .byteCount = forArtifact.byteCount,
                                .creationDate = forArtifact.creationDate,
                                .modificationDate = forArtifact.modificationDate,
                                .ownerUserID = ownerUserID,
                                .volumeIdentifier = in.volumeIdentifier,
                                .fileResourceIdentifier =
                                    fmt::format("{}:{}", forArtifact.deviceID, forArtifact.inode),
                                .isReadable = true,
                                .isCloudPlaceholder = false,
                                .isInProjectRepository = forArtifact.isInProjectRepository,
                                .isBackupArtifact = false,
                                .linkCount = 1};
    return AIToolClassifier::candidate(std::move(observation),
                                       {.tool = home.tool,
                                        .userHome = home.userHome,
                                        .layoutVersion = layoutVersion,
                                        .ruleID = in.ruleID,
                                        .group = in.group,
                                        .category = in.category,
                                        .candidateRootURL = in.candidateRootURL});
}

} // namespace tidyro

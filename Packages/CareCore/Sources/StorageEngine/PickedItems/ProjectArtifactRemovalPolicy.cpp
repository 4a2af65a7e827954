#include "StorageEngine/PickedItems/ProjectArtifactRemovalPolicy.h"

#include <string>

#include "Base/Fault.h"
#include "Base/PathText.h"
#include "StorageEngine/PickedItems/RepositoryIndex.h"
#include "StorageEngine/Sorting/DiskGroup.h"
#include "StorageEngine/Sorting/ProjectFolderJudge.h"

namespace tidyro {

namespace {

using ArtifactReason = ProjectArtifactRemovalPolicy::Reason;

std::optional<ArtifactReason> reasonAgainst(const authorization::ProjectArtifact& artifact) {
    const std::string& project = artifact.projectURL.path();
    const std::string& name = artifact.folderName;
    if (!path::isInsideOrEqual(project, artifact.workspaceURL.path()) || name.empty() ||
        name == "." || name == ".." || name.find('/') != std::string::npos) {
        return ArtifactReason::notInProject;
    }
    const std::string folder = path::joined(project, name);
    if (!ProjectFolderJudge::isGeneratedOnDisk(folder)) return ArtifactReason::notGenerated;
    // The repositories above the real place count. Links above the written one are none of them.
    const auto real = platform::realPath(project);
    if (!real) return ArtifactReason::historyUnknown;
    switch (RepositoryIndex::tracking(path::joined(*real, name))) {
    case RepositoryIndex::Tracking::untracked: return std::nullopt;
    case RepositoryIndex::Tracking::tracked: return ArtifactReason::tracked;
    case RepositoryIndex::Tracking::unknown: break;
    }
    return ArtifactReason::historyUnknown;
}

struct Explain {
    std::string_view operator()(ArtifactReason reason) const {
        switch (reason) {
        case ArtifactReason::notInProject:
            return "This folder does not lie directly inside its project any more. Scan again.";
        case ArtifactReason::notGenerated:
            return "No project file lies beside this folder any more, so nothing tells that it "
                   "would be generated again.";
        case ArtifactReason::tracked:
            return "Some of this folder belongs to the project's history, so it was not only "
                   "generated.";
        case ArtifactReason::historyUnknown:
            return "This folder could not be checked before moving it.";
        }
        fault("a reason that does not exist");
    }
    std::string_view operator()(DiskItemRefusal refusal) const { return explanation(refusal); }
};

} // namespace

std::string_view explanation(const ProjectArtifactRemovalPolicy::Refusal& refusal) {
    return std::visit(Explain{}, refusal);
}

std::expected<CleanupPlanEntry, ProjectArtifactRemovalPolicy::Refusal>
ProjectArtifactRemovalPolicy::planEntry(const Question& question) {
    const authorization::ProjectArtifact& artifact = question.artifact;
    if (const auto reason = reasonAgainst(artifact)) return std::unexpected(*reason);
    auto entry = items_.planEntry(
        {.item = FileURL::folder(path::joined(artifact.projectURL.path(), artifact.folderName)),
         .measuredBytes = question.measuredBytes,
         .group = DiskGroup::projectFolders,
         .built = question.built,
         .quietPeriod = quietPeriod,
         .at = question.at,
         .cancel = question.cancel});
    if (!entry) return std::unexpected(entry.error());
    // A file of that name is nothing that a tool makes again.
    if (!entry->sourceURL.isFolder()) return std::unexpected(ArtifactReason::notGenerated);
    entry->authorization = CleanupAuthorization{artifact};
    return *std::move(entry);
}

} // namespace tidyro

#include "StorageEngine/Cleanup/Planning/CleanupSheetMaker.h"

#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Base/PathText.h"
#include "Base/StringTable.h"
#include "Platform/Files/FileContents.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderReading.h"

namespace tidyro {

namespace {

using platform::FileMetadata;
using platform::FolderDescriptor;

/// A folder that items lie in, opened once for all that follow one another.
struct OpenedFolder {
    std::string path;
    std::expected<FolderDescriptor, SystemError> opened;
    bool mayShareBlocks;

    explicit OpenedFolder(std::string_view at)
        : path(at),
          opened(FolderDescriptor::openRoot(path)),
          mayShareBlocks(opened && platform::mayShareBlocks(*opened)) {}
};

std::optional<std::uint64_t> unsharedBytes(const OpenedFolder& folder, const std::string& name,
                                           const FileMetadata& seen) {
    if (seen.kind != platform::ItemKind::regularFile) return std::nullopt;
    if (seen.linkCount > 1) return 0; // another name keeps all of it
    if (!folder.mayShareBlocks) return seen.allocatedBytes;
    platform::FileContents::OwnerHint owner;
    const auto file = platform::FileContents::open(*folder.opened, name.c_str(), owner);
    const auto blocks = file ? file->blocks(seen) : std::nullopt;
    return blocks ? std::optional(blocks->ownBytes) : std::nullopt;
}

/// The permissions of the folders on the way to a path, from the top of the disk down.
std::vector<std::uint32_t> permissionsDownTo(const std::string& path) {
    std::vector<std::uint32_t> all;
    std::string above;
    for (const std::string_view component : path::components(path)) {
        above = path::joined(above.empty() ? "/" : above, component);
        const auto seen = platform::fileMetadata(above);
        constexpr std::uint32_t forOwnerAlone = 0700;
        all.push_back(seen ? seen->permissions : forOwnerAlone);
    }
    return all;
}

} // namespace

KeptCopy CleanupSheetMaker::keptCopy(const FileURL& url, FileFingerprint fingerprint) {
    const auto seen = platform::fileMetadata(url.path());
    return {.url = url,
            .fingerprint = std::move(fingerprint),
            .statusChange = seen ? seen->changed : std::nullopt};
}

CleanupPlanSheet CleanupSheetMaker::sheetFor(const Request& request) {
    CleanupPlanSheet sheet{.planID = request.plan.id, .entries = {}};
    sheet.entries.reserve(request.plan.entries.size());
    std::optional<OpenedFolder> folder;
    StringSet known;
    for (const CleanupPlanEntry& entry : request.plan.entries) {
        const std::string_view parent = path::parent(entry.sourceURL.path());
        if (!folder || folder->path != parent) folder.emplace(parent);
        const std::string name(entry.sourceURL.lastComponent());
        CleanupSheetEntry noted{.candidateID = entry.candidateID};
        if (folder->opened) {
            if (const auto seen = platform::fileMetadata(*folder->opened, name.c_str())) {
                noted.creationDate = seen->created;
                noted.statusChange = seen->changed;
                noted.unsharedByteCount = unsharedBytes(*folder, name, *seen);
            }
        }
        if (request.keptCopies != nullptr) {
            const auto kept = request.keptCopies->find(entry.candidateID);
            if (kept != request.keptCopies->end()) noted.keptCopy = kept->second;
        }
        noted.isReviewed =
            request.reviewed != nullptr && request.reviewed->contains(entry.candidateID);
        sheet.entries.push_back(std::move(noted));
        if (known.insert(folder->path).second) {
            sheet.folders.push_back({.url = FileURL::folder(folder->path),
                                     .permissions = permissionsDownTo(folder->path)});
        }
    }
    return sheet;
}

} // namespace tidyro

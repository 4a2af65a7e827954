#include "Platform/Folders/FolderChanges.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <string_view>
#include <utility>

#include "Base/PathText.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Machine/OperatingSystem.h"

namespace tidyro::platform {

namespace {

using Changed = FolderChanges::Changed;

constexpr unsigned forOwnerAlone = 0700;
constexpr std::string_view privateNamePrefix = ".tidyro-";

std::unexpected<ChangeError> changeRefused(int code) {
    return std::unexpected(ChangeError::fromSystem({code}));
}

/// The pieces of a path that the system takes one at a time.
std::string_view takePiece(std::string_view& rest) {
    constexpr std::size_t maxPiece = 4'000; // the system's own limit is at least 4,096 on Linux
    constexpr std::size_t maxPieceElsewhere = 1'000; // and 1,024 on macOS
    const std::size_t max =
        operatingSystem() == OperatingSystem::macOS ? maxPieceElsewhere : maxPiece;
    std::size_t length = rest.size();
    if (length > max) {
        length = rest.rfind('/', max);
        if (length == std::string_view::npos || length == 0) length = rest.size();
    }
    const std::string_view piece = rest.substr(0, length);
    rest.remove_prefix(std::min(length + 1, rest.size()));
    return piece;
}

std::expected<FolderDescriptor, SystemError> openInPieces(const FolderDescriptor& from,
                                                          std::string_view path) {
    if (path.empty()) return from.openBelow(".");
    auto folder = from.openBelow(std::string(takePiece(path)));
    while (folder && !path.empty()) folder = folder->openBelow(std::string(takePiece(path)));
    return folder;
}

bool isOnlyDown(std::string_view relativePath) {
    if (relativePath.starts_with('/')) return false;
    if (relativePath.find("..") == std::string_view::npos) return true; // nearly every one
    const auto names = path::components(relativePath);
    return std::ranges::find(names, "..") == names.end();
}

/// Takes away what was made for a move that then failed. What is in its place by now stays: a
/// folder goes only when it is empty, and a file only out of a folder of ours.
Changed withoutPlaceholder(FolderChanges& changes, const EntryName& at, bool isFolder,
                           Changed failed) {
    const Changed removed = isFolder ? changes.removeFolder(at) : changes.removeFile(at);
    static_cast<void>(removed); // the first failure is the one to tell
    return failed;
}

Changed moveOntoPlaceholder(FolderChanges& changes, const EntryName& from, const EntryName& to,
                            bool isFolder) {
    const Changed made =
        isFolder ? changes.makeFolder(to, forOwnerAlone) : changes.makeEmptyFile(to);
    if (!made) return made;
    const Changed moved = changes.renameReplacing(from, to);
    return moved ? moved : withoutPlaceholder(changes, to, isFolder, moved);
}

} // namespace

ChangeError ChangeError::fromSystem(SystemError error) {
    using enum ChangeFailure;
    const auto kind = [&] {
        switch (error.code) {
        case ENOENT:
        case ENOTDIR:
        case ESTALE: return sourceGone;
        case EEXIST:
        case ENOTEMPTY: return targetTaken;
        case EXDEV: return otherVolume;
        case EACCES:
        case EPERM: return notPermitted;
        case EROFS: return readOnly;
        case ENOSPC:
        case EDQUOT: return full;
        case ENAMETOOLONG: return nameTooLong;
        case EBUSY:
        case ETXTBSY: return inUse;
        default: return failed;
        }
    };
    return {.kind = kind(), .system = error};
}

std::expected<FoldersBeneath, SystemError> FoldersBeneath::openRoot(const std::string& realRoot) {
    if (!realRoot.starts_with('/')) return std::unexpected(SystemError{EINVAL});
    auto top = FolderDescriptor::openRoot("/");
    if (!top) return std::unexpected(top.error());
    auto root = openInPieces(*top, path::below(realRoot, "/"));
    if (!root) return std::unexpected(root.error());
    const auto seen = fileMetadata(root->fd());
    if (!seen) return std::unexpected(seen.error());
    FoldersBeneath beneath;
    beneath.path_ = realRoot;
    beneath.top_ = *std::move(top);
    beneath.root_ = *std::move(root);
    beneath.rootSeen_ = *seen;
    return beneath;
}

std::expected<FolderDescriptor, SystemError>
FoldersBeneath::open(const std::string& relativePath) const {
    if (!isOnlyDown(relativePath)) return std::unexpected(SystemError{EINVAL});
    return onItsVolume(openInPieces(root_, relativePath));
}

std::expected<FolderDescriptor, SystemError>
FoldersBeneath::openFromTop(const std::string& relativePath) const {
    if (!isOnlyDown(relativePath)) return std::unexpected(SystemError{EINVAL});
    const std::string path = path::joined(path_, relativePath);
    return onItsVolume(openInPieces(top_, path::below(path, "/")));
}

std::expected<FolderDescriptor, SystemError>
FoldersBeneath::onItsVolume(std::expected<FolderDescriptor, SystemError> folder) const {
    if (!folder) return folder;
    const auto seen = fileMetadata(folder->fd());
    if (!seen) return std::unexpected(seen.error());
    if (seen->identity.device != rootSeen_.identity.device || !areOnOneMount(*seen, rootSeen_)) {
        return std::unexpected(SystemError{EXDEV});
    }
    return folder;
}

std::string PrivateFolder::nameFor(const UUID& cleanup) {
    return std::string(privateNamePrefix) + cleanup.text();
}

bool PrivateFolder::isName(std::string_view name) {
    return name.starts_with(privateNamePrefix) &&
           UUID::fromText(name.substr(privateNamePrefix.size())).has_value();
}

bool PrivateFolder::isInOne(std::string_view path) {
    // Nearly no path has the beginning of the name anywhere, and whoever rates items asks for each.
    for (std::size_t at = path.find(privateNamePrefix); at != path.npos;
         at = path.find(privateNamePrefix, at + 1)) {
        const bool isBeginning = at == 0 || path[at - 1] == '/';
        if (isBeginning && isName(path.substr(at, path.find('/', at) - at))) return true;
    }
    return false;
}

std::expected<PrivateFolder, ChangeError> PrivateFolder::make(FolderChanges& changes,
                                                              const FolderDescriptor& parent,
                                                              const std::string& name) {
    const EntryName at{.folder = parent, .name = name};
    if (const Changed made = changes.makeFolder(at, forOwnerAlone); !made) {
        return std::unexpected(made.error());
    }
    auto folder = open(parent, name);
    if (!folder) static_cast<void>(changes.removeFolder(at));
    return folder;
}

std::expected<PrivateFolder, ChangeError> PrivateFolder::open(const FolderDescriptor& parent,
                                                              const std::string& name) {
    auto opened = parent.open(name.c_str());
    if (!opened) return std::unexpected(ChangeError::fromSystem(opened.error()));
    const auto seen = fileMetadata(opened->fd());
    const auto above = fileMetadata(parent.fd());
    // Another mount at this name would let nothing be renamed into it, and another subvolume is not
    // what was made here.
    if (!seen || !above || seen->identity.device != above->identity.device ||
        !areOnOneMount(*seen, *above) || !isPrivateFolder(*opened)) {
        return changeRefused(EIO);
    }
    PrivateFolder made;
    made.folder_ = *std::move(opened);
    return made;
}

Changed moveNeverReplacing(FolderChanges& changes, const EntryName& from, const EntryName& to) {
    const Changed moved = changes.renameNeverReplacing(from, to);
    if (moved || moved.error().kind != ChangeFailure::noExclusiveRename) return moved;
    const auto seen = fileMetadata(from.folder, from.name.c_str());
    if (!seen) return changeRefused(seen.error().code);
    const bool isFolder = seen->kind == ItemKind::folder;
    if (isPrivateFolder(to.folder)) return moveOntoPlaceholder(changes, from, to, isFolder);
    if (!isPrivateFolder(from.folder)) return moved;
    if (isFolder) return moveOntoPlaceholder(changes, from, to, isFolder);
    const Changed linked = changes.link(from, to);
    if (linked) return changes.removeFile(from);
    // A file system without hard links leaves no way to put a file back without replacing.
    return linked.error().kind == ChangeFailure::targetTaken ? linked : moved;
}

} // namespace tidyro::platform

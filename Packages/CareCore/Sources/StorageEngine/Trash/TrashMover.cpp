#include "StorageEngine/Trash/TrashMover.h"

#include <cerrno>
#include <utility>

#include "Base/PathText.h"
#include "Platform/Machine/OperatingSystem.h"

namespace tidyro {

namespace {

using platform::TrashError;
using platform::TrashFailure;
using Kind = CleanupMutationError::Kind;

constexpr const char* readOnlyFolderReason =
    "its folder is read-only, so it cannot be moved to the Trash";

CleanupMutationError moveFailed(SystemError error) {
    if (error.code == ENOENT || error.code == ENOTDIR) return {.kind = Kind::sourceMissing};
    return {.kind = Kind::moveFailed, .reason = appAuthoredFileSystemFailureReason(error)};
}

} // namespace

std::optional<std::string> appAuthoredFileSystemFailureReason(SystemError error) {
    switch (error.code) {
    case ENOENT:
    case ENOTDIR: return "the item was already gone";
    case EACCES:
    case EPERM: return "it doesn't have permission to do that";
    case EROFS: return "the disk this item is on can't be written to right now";
    case ENOSPC:
    case EDQUOT: return "there isn't enough free space on this disk";
    case EBUSY:
    case ETXTBSY: return "another application has it open right now";
    default: return std::nullopt;
    }
}

std::optional<std::string> appAuthoredMoveFailureReason(SystemError error, const FileURL& url) {
    if (error.code == EACCES || error.code == EPERM) {
        const auto parent =
            platform::FolderDescriptor::openRoot(std::string(path::parent(url.path())));
        const std::string name(url.lastComponent());
        if (const auto seen = parent ? platform::fileMetadata(*parent, name.c_str())
                                     : std::unexpected(parent.error())) {
            const auto refused = platform::trashRefusal(
                {.folder = *parent, .name = name, .path = url.path(), .seen = *seen});
            if (refused) return TrashRefusalDiagnosis::reason(*refused);
        }
        // Permitted by all that shows, and refused all the same: the system guards the place.
        if (platform::operatingSystem() == OperatingSystem::macOS && error.code == EPERM) {
            return TrashRefusalDiagnosis::reason({.kind = TrashFailure::guarded});
        }
    }
    return appAuthoredFileSystemFailureReason(error);
}

std::optional<std::string> TrashRefusalDiagnosis::reason(const TrashError& error) {
    switch (error.kind) {
    case TrashFailure::itemGone: return appAuthoredFileSystemFailureReason({ENOENT});
    case TrashFailure::itemLocked:
        return std::string(platform::systemText(SystemText::isLockedForTrash));
    case TrashFailure::folderReadOnly: return readOnlyFolderReason;
    case TrashFailure::itemReadOnly:
        return "it is a read-only folder, so it cannot be moved to the Trash";
    case TrashFailure::othersSticky:
        return "it lies in a shared folder, from which only its owner can move it";
    case TrashFailure::othersItem:
        return "it belongs to somebody else, who can move it to a Trash of their own";
    case TrashFailure::onSubvolume: return "it lies on a part of its disk that has no Trash";
    case TrashFailure::inMemory: return "it does not lie on a disk with a Trash";
    case TrashFailure::shownElsewhere:
        return "its folder appears here from another place, and no Trash can be reached from it";
    case TrashFailure::noTrashOnServer: return "the network disk that it lies on has no Trash";
    case TrashFailure::onSystemVolume: return "it lies on a disk of the system that has no Trash";
    case TrashFailure::trashUnusable: return "the Trash of the disk that it lies on cannot be used";
    case TrashFailure::volumeReadOnly: return appAuthoredFileSystemFailureReason({EROFS});
    case TrashFailure::full: return appAuthoredFileSystemFailureReason({ENOSPC});
    case TrashFailure::inUse: return appAuthoredFileSystemFailureReason({EBUSY});
    case TrashFailure::notPermitted: return appAuthoredFileSystemFailureReason({EACCES});
    case TrashFailure::guarded:
        return "macOS protects it. Give Tidyro Full Disk Access in System Settings, then try again";
    case TrashFailure::nameTaken: return "something else has its name";
    case TrashFailure::noDestination: return "the Trash did not report a destination";
    case TrashFailure::failed: break;
    }
    return appAuthoredFileSystemFailureReason(error.system);
}

CleanupMutationError TrashRefusalDiagnosis::mutationError(const TrashError& error) {
    if (error.kind == TrashFailure::itemGone) return {.kind = Kind::sourceMissing};
    return {.kind = Kind::moveFailed, .reason = reason(error)};
}

SystemTrashMover::SystemTrashMover(platform::Trash::Options options) : trash_(std::move(options)) {}

std::expected<FileURL, CleanupMutationError> SystemTrashMover::moveToTrash(const FileURL& url) {
    // Links above the item lead somewhere now; from there on none is followed.
    const auto real = platform::realPath(std::string(path::parent(url.path())));
    if (!real) return std::unexpected(moveFailed(real.error()));
    const auto beneath = platform::FoldersBeneath::openRoot(*real);
    if (!beneath) return std::unexpected(moveFailed(beneath.error()));
    const std::string name(url.lastComponent());
    const auto seen = platform::fileMetadata(beneath->root(), name.c_str());
    if (!seen) return std::unexpected(moveFailed(seen.error()));

    auto slot = trash_.reserve({.folder = beneath->root(),
                                .name = name,
                                .path = path::joined(*real, name),
                                .seen = *seen});
    if (!slot) return std::unexpected(TrashRefusalDiagnosis::mutationError(slot.error()));
    if (const auto moved = slot->move(); !moved) {
        if (moved.error().kind == TrashFailure::notPermitted) {
            return std::unexpected(CleanupMutationError{
                .kind = Kind::moveFailed, .reason = appAuthoredMoveFailureReason({EPERM}, url)});
        }
        return std::unexpected(TrashRefusalDiagnosis::mutationError(moved.error()));
    }
    const auto there = platform::fileMetadata(slot->folder(), slot->name().c_str());
    if (!there || there->identity != seen->identity) {
        // Another item had the name by then. Where it cannot go back it stays in the Trash, where a
        // person finds it.
        static_cast<void>(slot->moveBack());
        return std::unexpected(CleanupMutationError{.kind = Kind::identityChanged});
    }
    // What may not outlast a crash goes back. Where it cannot, it is in the Trash, which is told.
    if (const auto flushed = trash_.flush(); !flushed && slot->moveBack()) {
        return std::unexpected(moveFailed(flushed.error()));
    }
    return slot->url();
}

} // namespace tidyro

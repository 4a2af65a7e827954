#include "Platform/Folders/Trash.h"

namespace tidyro::platform {

std::optional<TrashError> trashRefusal(const TrashItem& item) {
    const auto refused = [](TrashFailure kind) { return TrashError{kind, {0}}; };
    const auto folder = fileMetadata(item.folder.fd());
    if (!folder) return TrashError{TrashFailure::failed, folder.error()};
    if (item.seen.isLocked || folder->isLocked) return refused(TrashFailure::itemLocked);
    const std::uint32_t user = currentUserID();
    // A superuser may do everything, so only the owners tell whose it is.
    if (user == 0 && (item.seen.ownerUserID != 0 || folder->ownerUserID != 0)) {
        return refused(TrashFailure::othersItem);
    }
    if (!isWritableFolder(item.folder, ".")) return refused(TrashFailure::folderReadOnly);
    if ((folder->permissions & stickyPermission) != 0 && user != 0 && folder->ownerUserID != user &&
        item.seen.ownerUserID != user) {
        return refused(TrashFailure::othersSticky);
    }
    if (item.seen.kind == ItemKind::folder && !isWritableFolder(item.folder, item.name.c_str())) {
        return refused(TrashFailure::itemReadOnly);
    }
    return std::nullopt;
}

} // namespace tidyro::platform

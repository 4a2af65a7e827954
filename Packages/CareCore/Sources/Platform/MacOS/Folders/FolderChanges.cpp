#include "Platform/Folders/FolderChanges.h"

#include <cerrno>

#include <stdio.h>
#include <unistd.h>

#include "Platform/Posix/Folders/MadeChange.h"

namespace tidyro::platform {

FolderChanges::Changed LiveFolderChanges::renameNeverReplacing(const EntryName& from,
                                                               const EntryName& to) {
    const int answer = ::renameatx_np(from.folder.fd(), from.name.c_str(), to.folder.fd(),
                                      to.name.c_str(), RENAME_EXCL);
    if (answer < 0 && (errno == EINVAL || errno == ENOTSUP)) {
        return std::unexpected(
            ChangeError{.kind = ChangeFailure::noExclusiveRename, .system = {errno}});
    }
    return madeChange(answer);
}

FolderChanges::Changed LiveFolderChanges::flushVolume(const FolderDescriptor& folder) {
    // Without the first flag the bytes stay in the drive's own cache, without the second one
    // nobody waits for them.
    return madeChange(::fsync_volume_np(folder.fd(), SYNC_VOLUME_FULLSYNC | SYNC_VOLUME_WAIT));
}

} // namespace tidyro::platform

// renameat2 and syncfs are Linux's own.
#include "Platform/Folders/FolderChanges.h"

#include <cerrno>

#include <stdio.h>
#include <unistd.h>

#include "Platform/Posix/Folders/MadeChange.h"

namespace tidyro::platform {

FolderChanges::Changed LiveFolderChanges::renameNeverReplacing(const EntryName& from,
                                                               const EntryName& to) {
    const int answer = ::renameat2(from.folder.fd(), from.name.c_str(), to.folder.fd(),
                                   to.name.c_str(), RENAME_NOREPLACE);
    // EINVAL also stands for a folder that would move into itself; any other way of renaming it
    // fails in the same way.
    if (answer < 0 && (errno == EINVAL || errno == ENOSYS || errno == ENOTSUP)) {
        return std::unexpected(
            ChangeError{.kind = ChangeFailure::noExclusiveRename, .system = {errno}});
    }
    return madeChange(answer);
}

FolderChanges::Changed LiveFolderChanges::flushVolume(const FolderDescriptor& folder) {
    return madeChange(::syncfs(folder.fd()));
}

} // namespace tidyro::platform

#include "Platform/Folders/FolderChanges.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Platform/Posix/Files/Flush.h"
#include "Platform/Posix/Folders/MadeChange.h"

namespace tidyro::platform {

namespace {

using Changed = FolderChanges::Changed;

} // namespace

Changed LiveFolderChanges::renameReplacing(const EntryName& from, const EntryName& to) {
    return madeChange(
        ::renameat(from.folder.fd(), from.name.c_str(), to.folder.fd(), to.name.c_str()));
}

Changed LiveFolderChanges::link(const EntryName& existing, const EntryName& added) {
    return madeChange(::linkat(existing.folder.fd(), existing.name.c_str(), added.folder.fd(),
                               added.name.c_str(), 0));
}

Changed LiveFolderChanges::makeEmptyFile(const EntryName& at) {
    constexpr mode_t forNobody = 0;
    const int fd = ::openat(at.folder.fd(), at.name.c_str(),
                            O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, forNobody);
    const Changed made = madeChange(fd);
    if (fd >= 0) ::close(fd);
    return made;
}

Changed LiveFolderChanges::makeFolder(const EntryName& at, unsigned permissions) {
    return madeChange(::mkdirat(at.folder.fd(), at.name.c_str(), static_cast<mode_t>(permissions)));
}

Changed LiveFolderChanges::removeFile(const EntryName& at) {
    return madeChange(::unlinkat(at.folder.fd(), at.name.c_str(), 0));
}

Changed LiveFolderChanges::removeFolder(const EntryName& at) {
    return madeChange(::unlinkat(at.folder.fd(), at.name.c_str(), AT_REMOVEDIR));
}

Changed LiveFolderChanges::flush(const FolderDescriptor& folder) {
    const auto flushed = flushToDisk(folder.fd());
    if (flushed) return {};
    return std::unexpected(ChangeError::fromSystem(flushed.error()));
}

bool isPrivateFolder(const FolderDescriptor& folder) {
    constexpr mode_t forOthers = S_IRWXG | S_IRWXO;
    struct stat seen{};
    return ::fstat(folder.fd(), &seen) == 0 && S_ISDIR(seen.st_mode) &&
           seen.st_uid == ::geteuid() && (seen.st_mode & forOthers) == 0;
}

} // namespace tidyro::platform

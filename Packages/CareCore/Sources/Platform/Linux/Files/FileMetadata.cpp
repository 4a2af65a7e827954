// statx is Linux's own: one call gives the date of creation and the mount as well.
#include "Platform/Files/FileMetadata.h"

#include <cerrno>

#include <fcntl.h>
#include <linux/openat2.h>
#include <linux/stat.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace tidyro::platform {

namespace {

constexpr unsigned wantedFacts = STATX_BASIC_STATS | STATX_BTIME | STATX_MNT_ID;
constexpr unsigned identifying = STATX_TYPE | STATX_INO | STATX_UID | STATX_NLINK | STATX_SIZE;
constexpr std::uint64_t locks = STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND;
constexpr unsigned anyWrite = S_IWUSR | S_IWGRP | S_IWOTH;
constexpr unsigned allPermissions = 07777;
constexpr std::uint64_t bytesPerBlock = 512; // of stx_blocks, whatever the file system's blocks

ItemKind kindOf(unsigned mode) {
    if (S_ISREG(mode)) return ItemKind::regularFile;
    if (S_ISDIR(mode)) return ItemKind::folder;
    return S_ISLNK(mode) ? ItemKind::link : ItemKind::other;
}

std::optional<Timestamp> moment(const struct statx& status, unsigned flag,
                                const statx_timestamp& time) {
    if ((status.stx_mask & flag) == 0) return std::nullopt;
    return Timestamp::since1970(time.tv_sec, time.tv_nsec);
}

std::expected<FileMetadata, SystemError> metadataAt(int folder, const char* name, int flags = 0) {
    struct statx status{};
    // Synchronised as an ordinary look is: what decides over a file must not come from a cache.
    if (::statx(folder, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | flags, wantedFacts,
                &status) != 0) {
        return std::unexpected(SystemError{errno});
    }
    if ((status.stx_mask & identifying) != identifying) return std::unexpected(SystemError{EIO});
    FileMetadata seen{
        .kind = kindOf(status.stx_mode),
        .byteCount = status.stx_size,
        .allocatedBytes = status.stx_blocks * bytesPerBlock,
        .created = moment(status, STATX_BTIME, status.stx_btime),
        .modified = moment(status, STATX_MTIME, status.stx_mtime),
        .changed = moment(status, STATX_CTIME, status.stx_ctime),
        .ownerUserID = status.stx_uid,
        .linkCount = status.stx_nlink,
        .identity = {.device = makedev(status.stx_dev_major, status.stx_dev_minor),
                     .inode = status.stx_ino},
        .isDataless = false,
        .isReadableByOwner = (status.stx_mode & S_IRUSR) != 0,
        .isWritableBySomebody = (status.stx_mode & anyWrite) != 0,
        .isLocked = (status.stx_attributes & locks) != 0,
        .permissions = status.stx_mode & allPermissions,
    };
    if ((status.stx_mask & STATX_MNT_ID) != 0) seen.mount = status.stx_mnt_id;
    return seen;
}

} // namespace

std::expected<FileMetadata, SystemError> fileMetadata(const std::string& path) {
    return metadataAt(AT_FDCWD, path.c_str());
}

std::expected<FileMetadata, SystemError> fileMetadata(const FolderDescriptor& folder,
                                                      const char* name) {
    return metadataAt(folder.fd(), name);
}

std::expected<FileMetadata, SystemError> fileMetadata(int fd) {
    return metadataAt(fd, "", AT_EMPTY_PATH);
}

bool isReadable(const std::string& path) {
    return ::faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS | AT_SYMLINK_NOFOLLOW) == 0;
}

bool isReadable(const FolderDescriptor& folder, const char* name) {
    return ::faccessat(folder.fd(), name, R_OK, AT_EACCESS | AT_SYMLINK_NOFOLLOW) == 0;
}

bool isWithoutLinks(const std::string& path) {
    open_how how{};
    how.flags = O_PATH | O_CLOEXEC;
    how.resolve = RESOLVE_NO_SYMLINKS;
    const long opened = ::syscall(SYS_openat2, AT_FDCWD, path.c_str(), &how, sizeof how);
    if (opened < 0) return false;
    ::close(static_cast<int>(opened));
    return true;
}

} // namespace tidyro::platform

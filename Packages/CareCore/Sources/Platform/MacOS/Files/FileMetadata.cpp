#include "Platform/Files/FileMetadata.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tidyro::platform {

namespace {

constexpr std::uint32_t locks =
    UF_IMMUTABLE | UF_APPEND | SF_IMMUTABLE | SF_APPEND | SF_RESTRICTED | SF_NOUNLINK;
constexpr unsigned anyWrite = S_IWUSR | S_IWGRP | S_IWOTH;
constexpr mode_t allPermissions = 07777;
constexpr std::uint64_t bytesPerBlock = 512; // of st_blocks, whatever the file system's blocks

ItemKind kindOf(mode_t mode) {
    if (S_ISREG(mode)) return ItemKind::regularFile;
    if (S_ISDIR(mode)) return ItemKind::folder;
    return S_ISLNK(mode) ? ItemKind::link : ItemKind::other;
}

Timestamp moment(const timespec& time) {
    return Timestamp::since1970(time.tv_sec, static_cast<std::uint32_t>(time.tv_nsec));
}

FileMetadata metadataIn(const struct stat& status) {
    FileMetadata seen{
        .kind = kindOf(status.st_mode),
        .byteCount = status.st_size > 0 ? static_cast<std::uint64_t>(status.st_size) : 0,
        .allocatedBytes = static_cast<std::uint64_t>(status.st_blocks) * bytesPerBlock,
        .modified = moment(status.st_mtimespec),
        .changed = moment(status.st_ctimespec),
        .ownerUserID = status.st_uid,
        .linkCount = status.st_nlink,
        // Device numbers are signed here; the 32 bits are the number.
        .identity = {.device = static_cast<std::uint32_t>(status.st_dev), .inode = status.st_ino},
        .isDataless = (status.st_flags & SF_DATALESS) != 0,
        // An access list may deny it all the same: `isReadable` is asked.
        .isReadableByOwner = false,
        .isWritableBySomebody = (status.st_mode & anyWrite) != 0,
        .isLocked = (status.st_flags & locks) != 0,
        .permissions = static_cast<std::uint32_t>(status.st_mode & allPermissions),
    };
    // A file system without dates of creation answers 0 or -1.
    if (status.st_birthtimespec.tv_sec > 0) seen.created = moment(status.st_birthtimespec);
    return seen;
}

std::expected<FileMetadata, SystemError> metadataAt(int folder, const char* name) {
    struct stat status{};
    if (::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return std::unexpected(SystemError{errno});
    }
    return metadataIn(status);
}

/// An older system knows no look at a link's own permissions: a link is then never readable, and
/// for anything else there is nothing to follow.
bool mayRead(int folder, const char* name) {
    if (::faccessat(folder, name, R_OK, AT_EACCESS | AT_SYMLINK_NOFOLLOW) == 0) return true;
    if (errno != EINVAL) return false;
    const auto seen = metadataAt(folder, name);
    return seen && seen->kind != ItemKind::link && ::faccessat(folder, name, R_OK, AT_EACCESS) == 0;
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
    struct stat status{};
    if (::fstat(fd, &status) != 0) return std::unexpected(SystemError{errno});
    return metadataIn(status);
}

bool isReadable(const std::string& path) { return mayRead(AT_FDCWD, path.c_str()); }

bool isReadable(const FolderDescriptor& folder, const char* name) {
    return mayRead(folder.fd(), name);
}

// Opening an item in order to ask may start a driver here; what follows a false resolves the path.
bool isWithoutLinks(const std::string& /*path*/) { return false; }

} // namespace tidyro::platform

// Leases are Linux's own.
#include "Platform/Files/FileLease.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <string>
#include <utility>

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace tidyro::platform {

namespace {

/// Stacked and network file systems grant a lease though somebody has the file open elsewhere.
constexpr std::array<std::uint32_t, 3> provenFileSystems{EXT4_SUPER_MAGIC, XFS_SUPER_MAGIC,
                                                         BTRFS_SUPER_MAGIC};

/// Who opens the file while we have the lease has the kernel send us SIGIO, which ends a process
/// that did not expect it.
bool ignoreLeaseSignals() {
    struct sigaction now{};
    if (::sigaction(SIGIO, nullptr, &now) != 0) return false;
    if ((now.sa_flags & SA_SIGINFO) != 0 || now.sa_handler != SIG_DFL) return true;
    struct sigaction ignoring{};
    ignoring.sa_handler = SIG_IGN;
    return ::sigaction(SIGIO, &ignoring, nullptr) == 0;
}

/// Takes the lease and keeps it when the answer is `free`.
FileUse useByLease(int fd) {
    static const bool isSafe = ignoreLeaseSignals();
    if (!isSafe) return FileUse::unknown;
    struct statfs volume{};
    if (::fstatfs(fd, &volume) != 0) return FileUse::unknown;
    const auto type = static_cast<std::uint32_t>(volume.f_type);
    const bool isProven = std::ranges::find(provenFileSystems, type) != provenFileSystems.end();
    if (::fcntl(fd, F_SETLEASE, F_WRLCK) != 0) {
        // Refused for somebody's sake holds on every file system.
        return errno == EAGAIN ? FileUse::inUse : FileUse::unknown;
    }
    if (isProven) return FileUse::free;
    ::fcntl(fd, F_SETLEASE, F_UNLCK);
    return FileUse::unknown;
}

} // namespace

FileUse fileUse(int fd) {
    const FileUse use = useByLease(fd);
    if (use == FileUse::free) ::fcntl(fd, F_SETLEASE, F_UNLCK);
    return use;
}

FileUse fileUse(const FolderDescriptor& folder, const char* name) {
    const int fd =
        ::openat(folder.fd(), name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return errno == EWOULDBLOCK ? FileUse::inUse : FileUse::unknown;
    const FileUse use = fileUse(fd);
    ::close(fd);
    return use;
}

std::expected<HeldItem, SystemError> HeldItem::open(const FolderDescriptor& folder,
                                                    const char* name) {
    int fd = -1;
    do {
        fd = ::openat(folder.fd(), name, O_PATH | O_NOFOLLOW | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return std::unexpected(SystemError{errno});
    return HeldItem(fd);
}

std::expected<FileMetadata, SystemError> HeldItem::metadata() const { return fileMetadata(fd_); }

FileUse HeldItem::takeLease() {
    releaseLease();
    struct stat seen{};
    // Opening a pipe or a device could do something.
    if (::fstat(fd_, &seen) != 0 || !S_ISREG(seen.st_mode)) return FileUse::unknown;
    // By this path the very item is opened, whatever its name leads to by now.
    const std::string item = "/proc/self/fd/" + std::to_string(fd_);
    const int fd = ::open(item.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return errno == EWOULDBLOCK ? FileUse::inUse : FileUse::unknown;
    const FileUse use = useByLease(fd);
    if (use == FileUse::free) {
        leased_ = fd;
    } else {
        ::close(fd);
    }
    return use;
}

bool HeldItem::isLeaseUnbroken() const {
    // One that is being broken answers as what it is to become.
    return leased_ >= 0 && ::fcntl(leased_, F_GETLEASE) == F_WRLCK;
}

void HeldItem::releaseLease() {
    if (leased_ >= 0) ::close(std::exchange(leased_, -1)); // which gives it back as well
}

HeldItem::HeldItem(HeldItem&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)), leased_(std::exchange(other.leased_, -1)) {}

HeldItem::~HeldItem() {
    releaseLease();
    if (fd_ >= 0) ::close(fd_);
}

} // namespace tidyro::platform

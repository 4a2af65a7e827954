// Leases are Linux's own.
#include "Platform/Files/FileLease.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <mutex>
#include <string>
#include <utility>

#include <fcntl.h>
#include <linux/magic.h>
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

/// Whether a lease that is granted on this file's file system proves anything.
bool areLeasesProven(int fd) {
    struct statfs volume{};
    if (::fstatfs(fd, &volume) != 0) return false;
    const auto type = static_cast<std::uint32_t>(volume.f_type);
    return std::ranges::find(provenFileSystems, type) != provenFileSystems.end();
}

/// What a lease tells that was asked for and not given back.
FileUse useByLease(int fd, bool isProven) {
    static const bool isSafe = ignoreLeaseSignals();
    if (!isSafe) return FileUse::unknown;
    if (::fcntl(fd, F_SETLEASE, F_WRLCK) != 0) {
        // Refused for somebody's sake holds on every file system.
        return errno == EAGAIN ? FileUse::inUse : FileUse::unknown;
    }
    return isProven ? FileUse::free : FileUse::unknown;
}

int openedForLease(const FolderDescriptor& folder, const char* name) {
    return ::openat(folder.fd(), name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

} // namespace

FileUse fileUse(int fd) {
    const FileUse use = useByLease(fd, areLeasesProven(fd));
    ::fcntl(fd, F_SETLEASE, F_UNLCK); // nothing happens when there is none
    return use;
}

FileUse fileUse(const FolderDescriptor& folder, const char* name) {
    const int fd = openedForLease(folder, name);
    if (fd < 0) return errno == EWOULDBLOCK ? FileUse::inUse : FileUse::unknown;
    const FileUse use = useByLease(fd, areLeasesProven(fd));
    ::close(fd); // gives the lease back
    return use;
}

void FileAccessAsker::begin(const FolderDescriptor& folder) { folder_ = &folder; }

FileAccess FileAccessAsker::ask(const char* name, const FileMetadata& seen) {
    // Two threads that meet at one file by two of its names would take each other for users of it.
    static std::mutex severalNames;
    std::unique_lock<std::mutex> alone;
    if (seen.linkCount > 1) alone = std::unique_lock(severalNames);
    const int fd = openedForLease(*folder_, name);
    if (fd < 0) {
        const bool isInUse = errno == EWOULDBLOCK;
        return {.isReadable = isReadable(*folder_, name),
                .use = isInUse ? FileUse::inUse : FileUse::unknown};
    }
    const std::optional<bool> isProven = mounts_.isProven(*folder_, seen);
    const FileUse use = useByLease(fd, isProven ? *isProven : areLeasesProven(fd));
    ::close(fd); // gives the lease back
    return {.isReadable = true, .use = use};
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

std::optional<bool> ProvenMounts::isProven(const FolderDescriptor& folder,
                                           const FileMetadata& seen) {
    if (!seen.mount) return std::nullopt;
    if (const auto known = mounts_.find(*seen.mount); known != mounts_.end()) {
        return known->second.isProven;
    }
    auto own = folder.open(".");
    const auto around = own ? fileMetadata(own->fd()) : std::unexpected(own.error());
    if (!around || around->mount != seen.mount) return std::nullopt;
    const bool isProven = areLeasesProven(own->fd());
    mounts_.emplace(*seen.mount, Mount{.folder = *std::move(own), .isProven = isProven});
    return isProven;
}

FileUse HeldItem::takeLease() {
    const auto seen = metadata();
    if (!seen) {
        releaseLease();
        return FileUse::unknown;
    }
    return takeLease(*seen, std::nullopt);
}

FileUse HeldItem::takeLease(const FileMetadata& seen, std::optional<bool> isProven) {
    releaseLease();
    // Opening a pipe or a device could do something.
    if (seen.kind != ItemKind::regularFile) return FileUse::unknown;
    // By this path the very item is opened, whatever its name leads to by now.
    const std::string item = "/proc/self/fd/" + std::to_string(fd_);
    const int fd = ::open(item.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return errno == EWOULDBLOCK ? FileUse::inUse : FileUse::unknown;
    const FileUse use = useByLease(fd, isProven ? *isProven : areLeasesProven(fd));
    if (use == FileUse::free) {
        leased_ = fd;
    } else {
        ::close(fd);
    }
    return use;
}

bool HeldItem::isLeaseBroken() const {
    // One that is being broken answers as what it is to become.
    return leased_ >= 0 && ::fcntl(leased_, F_GETLEASE) != F_WRLCK;
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

// Leases are Linux's own.
#include "Platform/Files/FileLease.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>

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

} // namespace

FileUse fileUse(int fd) {
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
    ::fcntl(fd, F_SETLEASE, F_UNLCK);
    return isProven ? FileUse::free : FileUse::unknown;
}

FileUse fileUse(const FolderDescriptor& folder, const char* name) {
    const int fd =
        ::openat(folder.fd(), name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return errno == EWOULDBLOCK ? FileUse::inUse : FileUse::unknown;
    const FileUse use = fileUse(fd);
    ::close(fd);
    return use;
}

} // namespace tidyro::platform

#include "Platform/Posix/Files/Flush.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace tidyro::platform {

std::expected<void, SystemError> flushToDisk(int fd) {
    if (::fsync(fd) == 0) return {};
    return std::unexpected(SystemError{errno});
}

std::expected<void, SystemError> flushVolume(int fd) {
    if (::syncfs(fd) == 0) return {};
    return std::unexpected(SystemError{errno});
}

std::expected<void, SystemError> allocateBlocks(int fd, std::uint64_t byteCount) {
    // Not posix_fallocate: where the file system cannot, it writes every block one by one.
    while (::fallocate(fd, 0, 0, static_cast<off_t>(byteCount)) != 0) {
        if (errno != EINTR) return std::unexpected(SystemError{errno});
    }
    return {};
}

} // namespace tidyro::platform

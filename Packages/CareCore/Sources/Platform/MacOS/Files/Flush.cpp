#include "Platform/Posix/Files/Flush.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace tidyro::platform {

std::expected<void, SystemError> flushToDisk(int fd) {
    // fsync leaves the bytes in the drive's own cache; volumes that have no full flush say ENOTSUP.
    if (::fcntl(fd, F_FULLFSYNC) == 0) return {};
    if (errno == ENOTSUP && ::fsync(fd) == 0) return {};
    return std::unexpected(SystemError{errno});
}

std::expected<void, SystemError> flushVolume(int fd) {
    ::sync(); // hands everything to the drives
    return flushToDisk(fd);
}

std::expected<void, SystemError> allocateBlocks(int fd, std::uint64_t byteCount) {
    const auto length = static_cast<off_t>(byteCount);
    fstore_t wanted{.fst_flags = F_ALLOCATEALL,
                    .fst_posmode = F_PEOFPOSMODE,
                    .fst_offset = 0,
                    .fst_length = length,
                    .fst_bytesalloc = 0};
    if (::fcntl(fd, F_PREALLOCATE, &wanted) != 0 || ::ftruncate(fd, length) != 0) {
        return std::unexpected(SystemError{errno});
    }
    return {};
}

} // namespace tidyro::platform

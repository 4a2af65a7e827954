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

} // namespace tidyro::platform

#include "Platform/Posix/Files/Flush.h"

#include <cerrno>

#include <unistd.h>

namespace tidyro::platform {

std::expected<void, SystemError> flushToDisk(int fd) {
    if (::fsync(fd) == 0) return {};
    return std::unexpected(SystemError{errno});
}

} // namespace tidyro::platform

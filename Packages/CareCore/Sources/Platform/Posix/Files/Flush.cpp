#include "Platform/Posix/Files/Flush.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace tidyro::platform {

std::expected<void, SystemError> flushFolder(const std::string& path) {
    const int folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    // A folder that may be written but not read, and some network volumes, cannot be flushed; what
    // was done in them stands all the same.
    if (folder < 0 && errno == EACCES) return {};
    if (folder < 0) return std::unexpected(SystemError{errno});
    auto flushed = flushToDisk(folder);
    ::close(folder);
    if (!flushed && (flushed.error().code == EINVAL || flushed.error().code == ENOTSUP)) return {};
    return flushed;
}

} // namespace tidyro::platform

#include "Platform/Posix/Files/FolderFlush.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

#include "Platform/Posix/Files/Flush.h"

namespace tidyro::platform {

std::expected<void, SystemError> flushFolder(const std::string& path) {
    const int folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    // A folder that may be written but not read, and some network volumes: there it is not to be
    // had, and the rename stands all the same.
    if (folder < 0 && errno == EACCES) return {};
    const bool isFlushed = folder >= 0 && flushToDisk(folder);
    const SystemError error{errno};
    if (folder >= 0) ::close(folder);
    if (isFlushed || error.code == EINVAL || error.code == ENOTSUP) return {};
    return std::unexpected(error);
}

} // namespace tidyro::platform

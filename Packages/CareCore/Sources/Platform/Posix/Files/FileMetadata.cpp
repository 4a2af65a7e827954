#include "Platform/Files/FileMetadata.h"

#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace tidyro::platform {

bool isWritableFolder(const std::string& path) {
    return ::faccessat(AT_FDCWD, path.c_str(), W_OK | X_OK, AT_EACCESS) == 0;
}

std::uint32_t currentUserID() { return ::geteuid(); }

std::expected<std::string, SystemError> realPath(const std::string& path) {
    std::error_code failed;
    const std::filesystem::path real = std::filesystem::canonical(path, failed);
    if (failed) return std::unexpected(SystemError{failed.value()});
    return real.string();
}

} // namespace tidyro::platform

#include "Platform/Files/FileMetadata.h"

#include <cerrno>
#include <filesystem>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include "Base/PathText.h"

namespace tidyro::platform {

bool isWritableFolder(const std::string& path) {
    return ::faccessat(AT_FDCWD, path.c_str(), W_OK | X_OK, AT_EACCESS) == 0;
}

bool isWritableFolder(const FolderDescriptor& folder, const char* name) {
    if (std::string_view(name) == ".") { // no link, and open already
        return ::faccessat(folder.fd(), name, W_OK | X_OK, AT_EACCESS) == 0;
    }
    const auto opened = folder.open(name); // without following a link, on every system
    return opened ? ::faccessat(opened->fd(), ".", W_OK | X_OK, AT_EACCESS) == 0
                  : opened.error().code == EACCES &&
                        ::faccessat(folder.fd(), name, W_OK | X_OK, AT_EACCESS) == 0;
}

std::uint32_t currentUserID() { return ::geteuid(); }

std::expected<std::string, SystemError> realPath(const std::string& path) {
    // Resolving reads a link, or fails to, for each component. Few paths have one.
    if (path::isStandardized(path) && isWithoutLinks(path)) return path;
    std::error_code failed;
    const std::filesystem::path real = std::filesystem::canonical(path, failed);
    if (failed) return std::unexpected(SystemError{failed.value()});
    return real.string();
}

} // namespace tidyro::platform

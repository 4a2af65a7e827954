#include "Platform/Files/SpaceReserve.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Base/PathText.h"
#include "Platform/Posix/Files/Flush.h"

namespace tidyro::platform {

std::expected<void, SystemError> reserveSpace(const std::string& path, std::uint64_t byteCount) {
    const int fd =
        ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    if (fd < 0) return std::unexpected(SystemError{errno});
    struct stat status{};
    std::expected<void, SystemError> done;
    if (::fstat(fd, &status) != 0) {
        done = std::unexpected(SystemError{errno});
    } else if (!S_ISREG(status.st_mode)) {
        ::close(fd);
        return std::unexpected(SystemError{EINVAL}); // none of ours: it stays
    } else if (static_cast<std::uint64_t>(status.st_blocks) * 512 < byteCount) {
        done = allocateBlocks(fd, byteCount);
    }
    ::close(fd);
    if (!done) ::unlink(path.c_str());
    return done;
}

bool releaseSpace(const std::string& path) {
    struct stat status{};
    if (::lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_blocks == 0) {
        return false;
    }
    if (::unlink(path.c_str()) != 0) return false;
    // Some file systems free the blocks only with their next transaction. Whether that succeeds
    // shows when the caller writes again.
    const int folder = ::open(std::string(path::parent(path)).c_str(), O_RDONLY | O_CLOEXEC);
    if (folder >= 0) {
        static_cast<void>(flushVolume(folder));
        ::close(folder);
    }
    return true;
}

} // namespace tidyro::platform

#include <algorithm>
#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include "Platform/Folders/FolderReading.h"

namespace tidyro::platform {

namespace {

// O_NONBLOCK: whatever stands in a folder's place by now, opening it must not wait.
constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK;

std::expected<FolderDescriptor, SystemError> openFolder(int parent, const char* name, int flags) {
    int opened = -1;
    do {
        opened = ::openat(parent, name, flags);
    } while (opened < 0 && errno == EINTR);
    if (opened < 0) return std::unexpected(SystemError{errno});
    return FolderDescriptor(opened);
}

} // namespace

FolderDescriptor::FolderDescriptor(FolderDescriptor&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)) {}

FolderDescriptor& FolderDescriptor::operator=(FolderDescriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
}

FolderDescriptor::~FolderDescriptor() {
    if (fd_ >= 0) ::close(fd_);
}

std::expected<FolderDescriptor, SystemError> FolderDescriptor::openRoot(const std::string& path) {
    return openFolder(AT_FDCWD, path.c_str(), folderFlags);
}

std::expected<FolderDescriptor, SystemError> FolderDescriptor::open(const char* name) const {
    return openFolder(fd_, name, folderFlags | O_NOFOLLOW);
}

bool hasVanished(SystemError error) {
    // ESRCH: a folder of /proc whose process has ended.
    return error.code == ENOENT || error.code == ENOTDIR || error.code == ELOOP ||
           error.code == ESRCH || error.code == ESTALE;
}

std::size_t openFolderBudget() {
    constexpr rlim_t keptForOthers = 64;
    // A deeper tree with several folders on every level is read all the same, but parts of the way
    // are opened again and again.
    constexpr rlim_t maxBudget = 8'192;
    constexpr rlim_t enough = 10'240; // some systems refuse more
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
    if (limit.rlim_cur < enough && limit.rlim_cur < limit.rlim_max) {
        rlimit raised = limit;
        raised.rlim_cur = std::min(enough, limit.rlim_max);
        if (::setrlimit(RLIMIT_NOFILE, &raised) == 0) limit = raised;
    }
    if (limit.rlim_cur <= keptForOthers) return 0;
    return static_cast<std::size_t>(std::min((limit.rlim_cur - keptForOthers) / 2, maxBudget));
}

} // namespace tidyro::platform

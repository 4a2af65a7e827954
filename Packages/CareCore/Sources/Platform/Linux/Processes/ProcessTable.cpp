#include "Platform/Linux/Processes/ProcessTable.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <string>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace tidyro::platform {

namespace {

constexpr int processFolderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK;

} // namespace

std::expected<std::vector<long>, SystemError> processIDs() {
    DIR* table = ::opendir("/proc");
    if (table == nullptr) return std::unexpected(SystemError{errno});
    std::vector<long> pids;
    errno = 0;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread has this stream
    for (const dirent* entry = nullptr; (entry = ::readdir(table)) != nullptr; errno = 0) {
        long pid = 0;
        const char* end = entry->d_name + std::strlen(entry->d_name);
        if (const auto read = std::from_chars(entry->d_name, end, pid); read.ptr == end) {
            pids.push_back(pid);
        }
    }
    const int error = errno;
    ::closedir(table);
    if (error != 0) return std::unexpected(SystemError{error});
    if (std::ranges::find(pids, ::getpid()) == pids.end()) {
        return std::unexpected(SystemError{ESRCH});
    }
    return pids;
}

bool meansEnded(int error) { return error == ENOENT || error == ESRCH; }

bool meansForbidden(int error) { return error == EACCES || error == EPERM; }

ProcessFolder::ProcessFolder(long pid)
    : fd_(::open(("/proc/" + std::to_string(pid)).c_str(), processFolderFlags)),
      error_(fd_ < 0 ? errno : 0) {}

ProcessFolder::ProcessFolder(const ProcessFolder& parent, const char* name)
    : fd_(::openat(parent.fd_, name, processFolderFlags)), error_(fd_ < 0 ? errno : 0) {}

ProcessFolder::~ProcessFolder() {
    if (fd_ >= 0) ::close(fd_);
}

int ProcessFolder::eachName(const std::function<void(const char* name)>& use) const {
    const int copy = ::fcntl(fd_, F_DUPFD_CLOEXEC, 0);
    if (copy < 0) return errno;
    DIR* folder = ::fdopendir(copy);
    if (folder == nullptr) {
        const int error = errno;
        ::close(copy);
        return error;
    }
    errno = 0;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread has this stream
    for (const dirent* entry = nullptr; (entry = ::readdir(folder)) != nullptr; errno = 0) {
        if (entry->d_name[0] != '.') use(entry->d_name);
    }
    const int error = errno;
    ::closedir(folder);
    return error;
}

} // namespace tidyro::platform

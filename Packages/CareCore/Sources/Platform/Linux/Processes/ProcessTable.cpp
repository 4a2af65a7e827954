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

std::expected<std::vector<long>, SystemError> processIDs() {
    const auto table = FolderDescriptor::openRoot("/proc");
    if (!table) return std::unexpected(table.error());
    std::vector<long> pids;
    const auto listed = forEachName(*table, [&](const char* name) {
        long pid = 0;
        const char* end = name + std::strlen(name);
        if (const auto read = std::from_chars(name, end, pid); read.ptr == end) pids.push_back(pid);
    });
    if (!listed) return std::unexpected(listed.error());
    if (std::ranges::find(pids, ::getpid()) == pids.end()) {
        return std::unexpected(SystemError{ESRCH});
    }
    return pids;
}

std::expected<FolderDescriptor, SystemError> openProcess(long pid) {
    return FolderDescriptor::openRoot("/proc/" + std::to_string(pid));
}

std::expected<void, SystemError> forEachName(const FolderDescriptor& folder,
                                             const std::function<void(const char* name)>& use) {
    const int copy = ::fcntl(folder.fd(), F_DUPFD_CLOEXEC, 0);
    if (copy < 0) return std::unexpected(SystemError{errno});
    DIR* names = ::fdopendir(copy);
    if (names == nullptr) {
        const SystemError error{errno};
        ::close(copy);
        return std::unexpected(error);
    }
    errno = 0;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread has this stream
    for (const dirent* entry = nullptr; (entry = ::readdir(names)) != nullptr; errno = 0) {
        if (entry->d_name[0] != '.') use(entry->d_name);
    }
    const SystemError error{errno};
    ::closedir(names);
    if (error.code != 0) return std::unexpected(error);
    return {};
}

bool hasEnded(SystemError error) { return error.code == ENOENT || error.code == ESRCH; }

bool isForbidden(SystemError error) { return error.code == EACCES || error.code == EPERM; }

} // namespace tidyro::platform

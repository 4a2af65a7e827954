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

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK;

} // namespace

std::expected<std::vector<long>, SystemError> processNumbers() {
    DIR* table = ::opendir("/proc");
    if (table == nullptr) return std::unexpected(SystemError{errno});
    std::vector<long> numbers;
    errno = 0;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread has this stream
    for (const dirent* entry = nullptr; (entry = ::readdir(table)) != nullptr; errno = 0) {
        long number = 0;
        const char* end = entry->d_name + std::strlen(entry->d_name);
        if (const auto read = std::from_chars(entry->d_name, end, number); read.ptr == end) {
            numbers.push_back(number);
        }
    }
    const int error = errno;
    ::closedir(table);
    if (error != 0) return std::unexpected(SystemError{error});
    if (std::ranges::find(numbers, ::getpid()) == numbers.end()) {
        return std::unexpected(SystemError{ESRCH});
    }
    return numbers;
}

bool meansEnded(int error) { return error == ENOENT || error == ESRCH; }

bool meansForbidden(int error) { return error == EACCES || error == EPERM; }

ProcessFolder::ProcessFolder(long process)
    : descriptor_(::open(("/proc/" + std::to_string(process)).c_str(), folderFlags)),
      error_(descriptor_ < 0 ? errno : 0) {}

ProcessFolder::ProcessFolder(const ProcessFolder& parent, const char* name)
    : descriptor_(::openat(parent.descriptor_, name, folderFlags)),
      error_(descriptor_ < 0 ? errno : 0) {}

ProcessFolder::~ProcessFolder() {
    if (descriptor_ >= 0) ::close(descriptor_);
}

int ProcessFolder::eachName(const std::function<void(const char* name)>& use) const {
    const int copy = ::fcntl(descriptor_, F_DUPFD_CLOEXEC, 0);
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

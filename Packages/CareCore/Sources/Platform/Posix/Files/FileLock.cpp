#include "Platform/Files/FileLock.h"

#include <array>
#include <cerrno>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace tidyro::platform {

std::expected<FileLock, SystemError> FileLock::take(const std::string& path,
                                                    std::chrono::milliseconds maxWait) {
    const int fd =
        ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    if (fd < 0) return std::unexpected(SystemError{errno});
    FileLock lock(fd);
    const auto end = std::chrono::steady_clock::now() + maxWait;
    // Waits with single tries: who only looks at the state has the lock for a moment as well.
    while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        if (errno == EINTR) continue;
        if (errno != EWOULDBLOCK || std::chrono::steady_clock::now() >= end) {
            return std::unexpected(SystemError{errno});
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    if (const auto told = lock.tell({}); !told) return std::unexpected(told.error());
    return lock;
}

FileLock::FileLock(FileLock&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

FileLock::~FileLock() {
    if (fd_ >= 0) ::close(fd_);
}

std::expected<void, SystemError> FileLock::tell(std::string_view text) const {
    if (::pwrite(fd_, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()) ||
        ::ftruncate(fd_, static_cast<off_t>(text.size())) != 0) {
        return std::unexpected(SystemError{errno});
    }
    return {};
}

std::expected<FileLock::State, SystemError> FileLock::state(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0 && errno == ENOENT) return State{.isHeld = false, .text = {}};
    if (fd < 0) return std::unexpected(SystemError{errno});
    const FileLock closing(fd); // not locked by us; it closes the file
    State state{.isHeld = false, .text = {}};
    // Shared, so that two who look do not take each other for a holder.
    while (::flock(fd, LOCK_SH | LOCK_NB) != 0) {
        if (errno == EINTR) continue;
        if (errno != EWOULDBLOCK) return std::unexpected(SystemError{errno});
        state.isHeld = true;
        break;
    }
    std::array<char, 4096> buffer{};
    for (ssize_t got = 0; (got = ::read(fd, buffer.data(), buffer.size())) != 0;) {
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return std::unexpected(SystemError{errno});
        state.text.append(buffer.data(), static_cast<std::size_t>(got));
    }
    return state;
}

std::expected<bool, SystemError> FileLock::isTaken(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0 && errno == ENOENT) return false;
    if (fd < 0) return std::unexpected(SystemError{errno});
    const FileLock closing(fd); // which lets go of the lock as well
    while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) return true;
        if (errno != EINTR) return std::unexpected(SystemError{errno});
    }
    return false;
}

} // namespace tidyro::platform

#include "Platform/Files/AppendFile.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Base/PathText.h"
#include "Platform/Posix/Files/Flush.h"

namespace tidyro::platform {

namespace {

constexpr int logFlags = O_RDWR | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

std::expected<void, SystemError> writeAtEnd(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return std::unexpected(SystemError{errno});
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return {};
}

} // namespace

std::expected<AppendFile, SystemError> AppendFile::open(const std::string& path, ChangeGate& gate) {
    int fd = ::open(path.c_str(), logFlags);
    if (fd < 0 && errno == ENOENT) {
        const auto made =
            pass(gate, DiskChange::makeFile, [&]() -> std::expected<void, SystemError> {
                fd = ::open(path.c_str(), logFlags | O_CREAT, 0600);
                if (fd < 0) return std::unexpected(SystemError{errno});
                return {};
            });
        if (!made) return std::unexpected(made.error());
    } else if (fd < 0) {
        return std::unexpected(SystemError{errno});
    }
    AppendFile file(fd, gate);
    struct stat status{};
    if (::fstat(fd, &status) != 0) return std::unexpected(SystemError{errno});
    if (!S_ISREG(status.st_mode)) return std::unexpected(SystemError{EINVAL});
    file.byteCount_ = static_cast<std::uint64_t>(status.st_size);
    if (status.st_size > 0) {
        char last = 0;
        if (::pread(fd, &last, 1, status.st_size - 1) != 1) {
            return std::unexpected(SystemError{errno});
        }
        file.endsWithLineBreak_ = last == '\n';
    }
    return file;
}

AppendFile::AppendFile(AppendFile&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)),
      gate_(other.gate_),
      byteCount_(other.byteCount_),
      endsWithLineBreak_(other.endsWithLineBreak_) {}

AppendFile::~AppendFile() {
    if (fd_ >= 0) ::close(fd_);
}

std::expected<void, SystemError> AppendFile::append(std::string_view bytes) {
    if (bytes.empty()) return {};
    auto written = pass(*gate_, DiskChange::write, [&] { return writeAtEnd(fd_, bytes); });
    if (written) {
        byteCount_ += bytes.size();
        endsWithLineBreak_ = bytes.back() == '\n';
    } else if (::ftruncate(fd_, static_cast<off_t>(byteCount_)) != 0) {
        endsWithLineBreak_ = false;
    }
    return written;
}

std::expected<void, SystemError> AppendFile::flush() {
    return passFlush(*gate_, {.file = fd_}, [&] { return flushToDisk(fd_); });
}

std::expected<void, SystemError> removeDurably(const std::string& path, ChangeGate& gate) {
    bool wasThere = true;
    const auto removed = pass(gate, DiskChange::remove, [&]() -> std::expected<void, SystemError> {
        if (::unlink(path.c_str()) == 0) return {};
        if (errno != ENOENT) return std::unexpected(SystemError{errno});
        wasThere = false;
        return {};
    });
    if (!removed || !wasThere) return removed;
    const std::string folder(path::parent(path));
    return passFlush(gate, {.folder = folder}, [&] { return flushFolder(folder); });
}

} // namespace tidyro::platform

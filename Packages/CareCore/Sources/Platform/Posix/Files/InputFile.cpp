#include "Platform/Files/InputFile.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tidyro::platform {

std::expected<InputFile, SystemError> InputFile::open(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return std::unexpected(SystemError{errno});
    InputFile file(fd);
    struct stat status{};
    if (::fstat(fd, &status) != 0) return std::unexpected(SystemError{errno});
    if (!S_ISREG(status.st_mode)) return std::unexpected(SystemError{EINVAL});
    constexpr std::uint64_t blockSize = 512; // of `st_blocks` on every system
    file.byteCount_ = static_cast<std::uint64_t>(status.st_size);
    file.bytesOnDisk_ = static_cast<std::uint64_t>(status.st_blocks) * blockSize;
    return file;
}

InputFile::InputFile(InputFile&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)),
      byteCount_(other.byteCount_),
      bytesOnDisk_(other.bytesOnDisk_) {}

InputFile::~InputFile() {
    if (fd_ >= 0) ::close(fd_);
}

std::expected<std::size_t, SystemError> InputFile::read(std::span<std::byte> into) {
    constexpr std::size_t maxPerRead = 1UL << 30; // some systems refuse more than 2 GiB
    std::size_t filled = 0;
    while (filled < into.size()) {
        const std::span<std::byte> rest = into.subspan(filled);
        const ssize_t got = ::read(fd_, rest.data(), std::min(rest.size(), maxPerRead));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return std::unexpected(SystemError{errno});
        if (got == 0) break;
        filled += static_cast<std::size_t>(got);
    }
    return filled;
}

} // namespace tidyro::platform

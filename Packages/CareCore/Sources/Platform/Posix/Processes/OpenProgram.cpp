#include "Platform/Processes/OpenProgram.h"

#include <array>
#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "Platform/Posix/Processes/ProgramImage.h"

namespace tidyro::platform {

std::expected<OpenProgram, SystemError> OpenProgram::open(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return std::unexpected(SystemError{errno});
    OpenProgram program(path, fd);
    const auto seen = program.metadata();
    if (!seen) return std::unexpected(seen.error());
    if (seen->kind != ItemKind::regularFile) return std::unexpected(SystemError{EINVAL});
    std::array<unsigned char, 4> start{};
    program.isNative_ =
        ::pread(fd, start.data(), start.size(), 0) == static_cast<ssize_t>(start.size()) &&
        beginsNativeProgram(start);
    return program;
}

OpenProgram::OpenProgram(OpenProgram&& other) noexcept
    : path_(std::move(other.path_)),
      fd_(std::exchange(other.fd_, -1)),
      isNative_(other.isNative_) {}

OpenProgram::~OpenProgram() {
    if (fd_ >= 0) ::close(fd_);
}

std::expected<FileMetadata, SystemError> OpenProgram::metadata() const { return fileMetadata(fd_); }

std::string OpenProgram::pathToRun() const {
    return isNative_ ? pathOfOpenProgram(fd_, path_) : path_;
}

bool isExecutable(const std::string& path) {
    return ::faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) == 0;
}

} // namespace tidyro::platform

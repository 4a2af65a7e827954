#include "Platform/Files/FileContents.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "Platform/Posix/Files/OpenQuietly.h"

namespace tidyro::platform {

std::expected<FileContents, SystemError> FileContents::open(const FolderDescriptor& folder,
                                                            const char* name, OwnerHint& owners) {
    const int opened = openQuietly(folder.fd(), name, owners);
    if (opened < 0) return std::unexpected(SystemError{errno});
    return FileContents(opened);
}

std::expected<FileContents, SystemError> FileContents::open(const std::string& path) {
    OwnerHint owners;
    const int opened = openQuietly(AT_FDCWD, path.c_str(), owners);
    if (opened < 0) return std::unexpected(SystemError{errno});
    return FileContents(opened);
}

FileContents::FileContents(FileContents&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)), passesCache_(other.passesCache_) {}

FileContents& FileContents::operator=(FileContents&& other) noexcept {
    std::swap(fd_, other.fd_);
    std::swap(passesCache_, other.passesCache_);
    return *this;
}

FileContents::~FileContents() {
    if (fd_ >= 0) ::close(fd_);
}

} // namespace tidyro::platform

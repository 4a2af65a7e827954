#include "Platform/Files/FileContents.h"

#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace tidyro::platform {

std::expected<FileContents, SystemError> FileContents::open(const FolderDescriptor& folder,
                                                            const char* name, OwnerHint& owner) {
    return open(folder.fd(), name, owner);
}

std::expected<FileContents, SystemError> FileContents::open(const std::string& path) {
    OwnerHint owner;
    return open(AT_FDCWD, path.c_str(), owner);
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

std::expected<FileMetadata, SystemError> FileContents::metadata() const {
    return fileMetadata(fd_);
}

} // namespace tidyro::platform

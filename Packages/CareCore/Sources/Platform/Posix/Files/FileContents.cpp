#include "Platform/Files/FileContents.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "Platform/Posix/Files/OpenQuietly.h"

namespace tidyro::platform {

std::expected<FileContents, SystemError> FileContents::open(const FolderDescriptor& folder,
                                                            const char* name, OwnersFirst& owners) {
    const int opened = openQuietly(folder.number(), name, owners);
    if (opened < 0) return std::unexpected(SystemError{errno});
    return FileContents(opened);
}

std::expected<FileContents, SystemError> FileContents::open(const std::string& path) {
    OwnersFirst owners;
    const int opened = openQuietly(AT_FDCWD, path.c_str(), owners);
    if (opened < 0) return std::unexpected(SystemError{errno});
    return FileContents(opened);
}

FileContents::FileContents(FileContents&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)), passesCache_(other.passesCache_) {}

FileContents& FileContents::operator=(FileContents&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    std::swap(passesCache_, other.passesCache_);
    return *this;
}

FileContents::~FileContents() {
    if (descriptor_ >= 0) ::close(descriptor_);
}

} // namespace tidyro::platform

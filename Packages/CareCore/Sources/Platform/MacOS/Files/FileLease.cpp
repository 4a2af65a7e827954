#include "Platform/Files/FileLease.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace tidyro::platform {

FileUse fileUse(const FolderDescriptor& /*folder*/, const char* /*name*/) {
    return FileUse::unknown;
}

FileUse fileUse(int /*fd*/) { return FileUse::unknown; }

void FileAccessAsker::begin(const FolderDescriptor& folder) { folder_ = &folder; }

FileAccess FileAccessAsker::ask(const char* name, const FileMetadata& /*seen*/) {
    return {.isReadable = isReadable(*folder_, name), .use = FileUse::unknown};
}

std::expected<HeldItem, SystemError> HeldItem::open(const FolderDescriptor& folder,
                                                    const char* name) {
    // The descriptor is good for looking only; O_SYMLINK opens a link itself.
    const int fd = ::openat(folder.fd(), name, O_EVTONLY | O_SYMLINK | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return std::unexpected(SystemError{errno});
    return HeldItem(fd);
}

std::expected<FileMetadata, SystemError> HeldItem::metadata() const { return fileMetadata(fd_); }

std::optional<bool> ProvenMounts::isProven(const FolderDescriptor& /*folder*/,
                                           const FileMetadata& /*seen*/) {
    return std::nullopt;
}

FileUse HeldItem::takeLease() { return FileUse::unknown; }

FileUse HeldItem::takeLease(const FileMetadata& /*seen*/, std::optional<bool> /*isProven*/) {
    return FileUse::unknown;
}

bool HeldItem::isLeaseBroken() const { return leased_ >= 0; } // never taken

void HeldItem::releaseLease() {}

HeldItem::HeldItem(HeldItem&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)), leased_(std::exchange(other.leased_, -1)) {}

HeldItem::~HeldItem() {
    if (fd_ >= 0) ::close(fd_);
}

} // namespace tidyro::platform

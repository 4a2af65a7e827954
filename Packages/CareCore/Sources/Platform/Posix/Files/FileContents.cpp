#include "Platform/Files/FileContents.h"

#include <algorithm>
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

std::uint64_t joinRanges(std::vector<FileBlocks::Range>& ranges) {
    std::ranges::sort(ranges);
    std::uint64_t bytes = 0;
    auto last = ranges.begin();
    for (auto next = ranges.begin(); next != ranges.end(); ++next) {
        if (next == last) continue;
        if (next->begin <= last->end) {
            last->end = std::max(last->end, next->end);
        } else {
            *++last = *next;
        }
    }
    if (last != ranges.end()) ranges.erase(last + 1, ranges.end());
    for (const FileBlocks::Range& range : ranges) bytes += range.end - range.begin;
    return bytes;
}

std::uint64_t ownByteCount(const FolderDescriptor& folder, const char* name,
                           const FileMetadata& seen) {
    if (!mayShareBlocks(folder)) return seen.allocatedBytes;
    FileContents::OwnerHint owner;
    const auto file = FileContents::open(folder, name, owner);
    const auto blocks = file ? file->blocks(seen) : std::nullopt;
    return blocks ? blocks->ownBytes : 0;
}

} // namespace tidyro::platform

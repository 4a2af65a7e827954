#include "Platform/Files/FileContents.h"

#include <algorithm>
#include <cerrno>
#include <limits>

#include <fcntl.h>
#include <unistd.h>

namespace tidyro::platform {

// There is no way here to read a file and leave its date of use as it was.
std::expected<FileContents, SystemError> FileContents::open(int folder, const char* name,
                                                            OwnerHint& /*owner*/) {
    int fd = -1;
    do {
        fd = ::openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return std::unexpected(SystemError{errno});
    ::fcntl(fd, F_NOCACHE, 1);
    return FileContents(fd);
}

void FileContents::expectSingleReads() { ::fcntl(fd_, F_RDAHEAD, 0); }

std::expected<std::size_t, SystemError> FileContents::read(std::uint64_t offset,
                                                           std::span<std::byte> into) {
    constexpr std::size_t maxPerCall = std::numeric_limits<int>::max();
    std::size_t done = 0;
    while (done < into.size()) {
        const ssize_t count =
            ::pread(fd_, into.data() + done, std::min(into.size() - done, maxPerCall),
                    static_cast<off_t>(offset + done));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return std::unexpected(SystemError{errno});
        if (count == 0) break;
        done += static_cast<std::size_t>(count);
    }
    return done;
}

namespace {

std::optional<std::int64_t> placeOf(int fd, std::uint64_t offset) {
    log2phys question{};
    question.l2p_contigbytes = 1;
    question.l2p_devoffset = static_cast<off_t>(offset);
    if (::fcntl(fd, F_LOG2PHYS_EXT, &question) != 0) return std::nullopt;
    return question.l2p_devoffset;
}

} // namespace

std::optional<FileExtent> FileContents::extent(const FileMetadata& seen) const {
    if (seen.byteCount == 0) return std::nullopt;
    const auto first = placeOf(fd_, 0);
    const auto last = first ? placeOf(fd_, seen.byteCount - 1) : std::nullopt;
    if (!last) return std::nullopt;
    return FileExtent{.fileSystem = seen.identity.device, .first = *first, .last = *last};
}

bool mayShareBlocks(const FolderDescriptor&) { return true; }

} // namespace tidyro::platform

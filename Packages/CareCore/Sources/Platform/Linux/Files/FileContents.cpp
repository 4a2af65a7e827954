// preadv2's flags and O_NOATIME are Linux's own.
#include "Platform/Files/FileContents.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/uio.h>
#include <unistd.h>

#include "Platform/Linux/Files/FileExtents.h"

#ifndef RWF_DONTCACHE
#define RWF_DONTCACHE 0x00000080 // of a newer kernel than the headers are
#endif

namespace tidyro::platform {

namespace {

constexpr int quietReading = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

/// One call; -1 with errno, EINTR taken care of.
ssize_t readOnce(int fd, std::span<std::byte> into, std::uint64_t offset, int flags) {
    iovec place{.iov_base = into.data(), .iov_len = into.size()};
    ssize_t count = 0;
    do {
        count = ::preadv2(fd, &place, 1, static_cast<off_t>(offset), flags);
    } while (count < 0 && errno == EINTR);
    return count;
}

/// What is in memory already comes at once and stays. What has to be fetched goes again, and so
/// may what was there before of the same piece.
ssize_t readAndForget(int fd, std::span<std::byte> into, std::uint64_t offset) {
    ssize_t count = readOnce(fd, into, offset, RWF_NOWAIT);
    if (count >= 0 || (errno != EAGAIN && errno != EOPNOTSUPP && errno != EINVAL)) return count;
    count = readOnce(fd, into, offset, 0);
    if (count > 0) {
        ::posix_fadvise(fd, static_cast<off_t>(offset), count, POSIX_FADV_DONTNEED);
    }
    return count;
}

} // namespace

std::expected<FileContents, SystemError> FileContents::open(int folder, const char* name,
                                                            OwnerHint& owner) {
    for (;;) {
        const int fd = ::openat(folder, name, quietReading | (owner.isUs ? O_NOATIME : 0));
        if (fd >= 0) return FileContents(fd);
        if (errno == EPERM && owner.isUs) {
            owner.isUs = false;
        } else if (errno != EINTR) {
            return std::unexpected(SystemError{errno});
        }
    }
}

void FileContents::expectSingleReads() { ::posix_fadvise(fd_, 0, 0, POSIX_FADV_RANDOM); }

std::expected<std::size_t, SystemError> FileContents::read(std::uint64_t offset,
                                                           std::span<std::byte> into) {
    std::size_t done = 0;
    while (done < into.size()) {
        const auto rest = into.subspan(done);
        ssize_t count = -1;
        if (passesCache_) {
            count = readOnce(fd_, rest, offset + done, RWF_DONTCACHE);
            if (count < 0 && (errno == EOPNOTSUPP || errno == EINVAL)) {
                passesCache_ = false;
                // What the system read ahead would look as if it had been in memory before.
                expectSingleReads();
                continue;
            }
        } else {
            constexpr std::size_t piece = 262'144;
            count = readAndForget(fd_, rest.first(std::min(rest.size(), piece)), offset + done);
        }
        if (count < 0) return std::unexpected(SystemError{errno});
        if (count == 0) break;
        done += static_cast<std::size_t>(count);
    }
    return done;
}

std::optional<FileBlocks> FileContents::blocks(const FileMetadata& seen) const {
    return fileBlocks(fd_, seen);
}

} // namespace tidyro::platform

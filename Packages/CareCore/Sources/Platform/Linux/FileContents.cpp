// preadv2's flags, FIEMAP and O_NOATIME are Linux's own.
#include "Platform/FileContents.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>

#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/uio.h>
#include <unistd.h>

#include "Platform/Linux/FileMetadataAt.h"
#include "Platform/Posix/OpenQuietly.h"

#ifndef RWF_DONTCACHE
#define RWF_DONTCACHE 0x00000080 // of a newer kernel than the headers are
#endif

namespace tidyro::platform {

namespace {

constexpr int readingQuietly = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

/// One call; -1 with errno, EINTR taken care of.
ssize_t readOnce(int file, std::span<std::byte> into, std::uint64_t offset, int flags) {
    iovec place{.iov_base = into.data(), .iov_len = into.size()};
    ssize_t count = 0;
    do {
        count = ::preadv2(file, &place, 1, static_cast<off_t>(offset), flags);
    } while (count < 0 && errno == EINTR);
    return count;
}

} // namespace

int openQuietly(int folder, const char* name) {
    // Only its owner may look at a file without its date of use telling of it. Folders are mostly
    // one owner's, so what went for the last file is tried first for the next.
    static thread_local bool isMine = true;
    int opened = -1;
    do {
        opened = ::openat(folder, name, readingQuietly | (isMine ? O_NOATIME : 0));
        if (opened < 0 && errno == EPERM && isMine) {
            isMine = false;
            errno = EINTR;
        }
    } while (opened < 0 && errno == EINTR);
    return opened;
}

std::expected<FileMetadata, SystemError> FileContents::metadata() const {
    return fileMetadataAt(descriptor_, "", AT_EMPTY_PATH);
}

void FileContents::expectSingleReads() { ::posix_fadvise(descriptor_, 0, 0, POSIX_FADV_RANDOM); }

std::expected<std::size_t, SystemError> FileContents::read(std::uint64_t offset,
                                                           std::span<std::byte> into) {
    std::size_t done = 0;
    while (done < into.size()) {
        const auto rest = into.subspan(done);
        const std::uint64_t at = offset + done;
        ssize_t count = -1;
        if (passesCache_) {
            count = readOnce(descriptor_, rest, at, RWF_DONTCACHE);
            if (count < 0 && (errno == EOPNOTSUPP || errno == EINVAL)) {
                passesCache_ = false;
                continue;
            }
        } else {
            // What is in memory already comes at once and stays. What has to be fetched goes again.
            count = readOnce(descriptor_, rest, at, RWF_NOWAIT);
            if (count < 0 && (errno == EAGAIN || errno == EOPNOTSUPP || errno == EINVAL)) {
                count = readOnce(descriptor_, rest, at, 0);
                if (count > 0) {
                    ::posix_fadvise(descriptor_, static_cast<off_t>(at), count,
                                    POSIX_FADV_DONTNEED);
                }
            }
        }
        if (count < 0) return std::unexpected(SystemError{errno});
        if (count == 0) break;
        done += static_cast<std::size_t>(count);
    }
    return done;
}

namespace {

/// Room for the question and one extent of the answer.
struct OneExtent {
    alignas(fiemap) std::array<std::byte, sizeof(fiemap) + sizeof(fiemap_extent)> bytes{};

    fiemap& request() { return *reinterpret_cast<fiemap*>(bytes.data()); }
};

/// The place of one byte; none where the file system does not know it exactly, or shares nothing.
std::optional<std::int64_t> placeOf(int file, std::uint64_t offset) {
    OneExtent answer;
    fiemap& request = answer.request();
    request.fm_start = offset;
    request.fm_length = 1;
    request.fm_extent_count = 1;
    if (::ioctl(file, FS_IOC_FIEMAP, &request) != 0 || request.fm_mapped_extents != 1) {
        return std::nullopt;
    }
    const fiemap_extent& extent = request.fm_extents[0];
    constexpr std::uint32_t inexact = FIEMAP_EXTENT_UNKNOWN | FIEMAP_EXTENT_DELALLOC |
                                      FIEMAP_EXTENT_DATA_INLINE | FIEMAP_EXTENT_NOT_ALIGNED;
    const bool holdsIt =
        extent.fe_logical <= offset && offset - extent.fe_logical < extent.fe_length;
    if (!holdsIt || (extent.fe_flags & inexact) != 0) return std::nullopt;
    return static_cast<std::int64_t>(extent.fe_physical + (offset - extent.fe_logical));
}

} // namespace

std::optional<FileExtent> FileContents::extent(std::uint64_t byteCount,
                                               std::uint64_t device) const {
    if (byteCount == 0) return std::nullopt;
    const auto first = placeOf(descriptor_, 0);
    const auto last = first ? placeOf(descriptor_, byteCount - 1) : std::nullopt;
    if (!last) return std::nullopt;
    return FileExtent{.device = device, .first = *first, .last = *last};
}

} // namespace tidyro::platform

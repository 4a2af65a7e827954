// preadv2's flags, FIEMAP and O_NOATIME are Linux's own.
#include "Platform/Files/FileContents.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <linux/btrfs.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/uio.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "Platform/Linux/Files/FileMetadataAt.h"
#include "Platform/Posix/Files/OpenQuietly.h"

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

/// What is in memory already comes at once and stays. What has to be fetched goes again, and so
/// may what was there before of the same piece.
ssize_t readAndForget(int file, std::span<std::byte> into, std::uint64_t offset) {
    ssize_t count = readOnce(file, into, offset, RWF_NOWAIT);
    if (count >= 0 || (errno != EAGAIN && errno != EOPNOTSUPP && errno != EINVAL)) return count;
    count = readOnce(file, into, offset, 0);
    if (count > 0) {
        ::posix_fadvise(file, static_cast<off_t>(offset), count, POSIX_FADV_DONTNEED);
    }
    return count;
}

} // namespace

int openQuietly(int folder, const char* name, FileContents::OwnerHint& owners) {
    int opened = -1;
    bool isAgain = false;
    do {
        opened = ::openat(folder, name, readingQuietly | (owners.isOurs ? O_NOATIME : 0));
        isAgain = opened < 0 && (errno == EINTR || (errno == EPERM && owners.isOurs));
        if (isAgain && errno == EPERM) owners.isOurs = false;
    } while (isAgain);
    return opened;
}

std::expected<FileMetadata, SystemError> FileContents::metadata() const {
    return fileMetadataAt(fd_, "", AT_EMPTY_PATH);
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

namespace {

/// The numbers by which the kernel calls its file systems.
constexpr std::uint32_t btrfs = 0x9123683E;
/// Those that have no blocks to share, or never share them.
constexpr std::array<std::uint32_t, 9> neverSharing{
    0x0000EF53 /* ext2 to ext4 */, 0x01021994 /* tmpfs */,    0x858458F6 /* ramfs */,
    0x00004D44 /* FAT */,          0x2011BAB0 /* exFAT */,    0x5346544E /* NTFS */,
    0x00009660 /* ISO 9660 */,     0x73717368 /* squashfs */, 0xE0F5E1E2 /* EROFS */};

std::uint32_t fileSystemType(int file) {
    struct statfs volume{};
    return ::fstatfs(file, &volume) == 0 ? static_cast<std::uint32_t>(volume.f_type) : 0;
}

/// Each subvolume of btrfs has a device number of its own, and all of them share blocks.
std::uint64_t fileSystemNumber(int file, std::uint64_t device) {
    if (fileSystemType(file) != btrfs) return device;
    btrfs_ioctl_fs_info_args facts{};
    if (::ioctl(file, BTRFS_IOC_FS_INFO, &facts) != 0) return device;
    std::uint64_t number = 0;
    std::memcpy(&number, facts.fsid, sizeof number);
    return number;
}

/// Extents of a file from a place on, a handful at a time.
class Extents {
  public:
    explicit Extents(int file) : file_(file) {}

    /// False when the file system does not tell.
    [[nodiscard]] bool ask(std::uint64_t from, std::uint64_t length) {
        bytes_.fill(std::byte{0});
        fiemap& request = *reinterpret_cast<fiemap*>(bytes_.data());
        request.fm_start = from;
        request.fm_length = length;
        request.fm_extent_count = most;
        return ::ioctl(file_, FS_IOC_FIEMAP, &request) == 0;
    }
    [[nodiscard]] std::span<const fiemap_extent> found() const {
        const auto& answer = *reinterpret_cast<const fiemap*>(bytes_.data());
        return {answer.fm_extents, answer.fm_mapped_extents};
    }

  private:
    static constexpr std::size_t most = 32;

    int file_;
    alignas(fiemap) std::array<std::byte, sizeof(fiemap) + most * sizeof(fiemap_extent)> bytes_{};
};

bool isExact(const fiemap_extent& extent) {
    constexpr std::uint32_t inexact = FIEMAP_EXTENT_UNKNOWN | FIEMAP_EXTENT_DELALLOC |
                                      FIEMAP_EXTENT_DATA_INLINE | FIEMAP_EXTENT_NOT_ALIGNED;
    return (extent.fe_flags & inexact) == 0;
}

/// The extent that holds the last byte that is there, mostly that of the file's last byte.
std::optional<fiemap_extent> lastExtent(Extents& extents, std::uint64_t byteCount) {
    if (!extents.ask(byteCount - 1, 1)) return std::nullopt;
    if (!extents.found().empty()) return extents.found().back();
    std::optional<fiemap_extent> last;
    for (std::uint64_t from = 0; from < byteCount;) {
        if (!extents.ask(from, byteCount - from)) return std::nullopt;
        if (extents.found().empty()) break;
        last = extents.found().back();
        from = last->fe_logical + last->fe_length;
    }
    return last;
}

} // namespace

std::optional<FileExtent> FileContents::extent(const FileMetadata& seen) const {
    if (seen.byteCount == 0) return std::nullopt;
    Extents extents(fd_);
    if (!extents.ask(0, seen.byteCount)) return std::nullopt;
    const std::uint64_t fileSystem = fileSystemNumber(fd_, seen.identity.device);
    if (extents.found().empty()) {
        return FileExtent{.fileSystem = fileSystem, .first = -1, .last = -1};
    }
    const fiemap_extent first = extents.found().front();
    const auto last = lastExtent(extents, seen.byteCount);
    if (!last || !isExact(first) || !isExact(*last)) return std::nullopt;
    const std::uint64_t lastByte =
        std::min<std::uint64_t>(seen.byteCount - 1, last->fe_logical + last->fe_length - 1);
    return FileExtent{
        .fileSystem = fileSystem,
        .first = static_cast<std::int64_t>(first.fe_physical),
        .last = static_cast<std::int64_t>(last->fe_physical + (lastByte - last->fe_logical))};
}

bool mayShareBlocks(const FolderDescriptor& folder) {
    return std::ranges::find(neverSharing, fileSystemType(folder.fd())) == neverSharing.end();
}

} // namespace tidyro::platform

// FIEMAP and the numbers of the file systems are Linux's own.
#include "Platform/Linux/Files/FileExtents.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <limits>
#include <span>

#include <fcntl.h>
#include <linux/btrfs.h>
#include <linux/btrfs_tree.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace tidyro::platform {

namespace {

/// The numbers by which the kernel calls its file systems.
constexpr std::uint32_t btrfs = 0x9123683E;
constexpr std::array<std::uint32_t, 3> sharingBlocks{btrfs, 0x58465342 /* XFS */,
                                                     0xCA451A4E /* bcachefs */};
/// Those that have no blocks to share, or never share them.
constexpr std::array<std::uint32_t, 9> neverSharingBlocks{
    0x0000EF53 /* ext2 to ext4 */, 0x01021994 /* tmpfs */,    0x858458F6 /* ramfs */,
    0x00004D44 /* FAT */,          0x2011BAB0 /* exFAT */,    0x5346544E /* NTFS */,
    0x00009660 /* ISO 9660 */,     0x73717368 /* squashfs */, 0xE0F5E1E2 /* EROFS */};

/// 0 when the kernel does not tell.
std::uint32_t fileSystemType(int fd) {
    struct statfs volume{};
    return ::fstatfs(fd, &volume) == 0 ? static_cast<std::uint32_t>(volume.f_type) : 0;
}

/// Each subvolume of btrfs has a device number of its own, and all of them share blocks.
std::uint64_t fileSystemNumber(int fd, std::uint64_t device) {
    if (fileSystemType(fd) != btrfs) return device;
    btrfs_ioctl_fs_info_args facts{};
    if (::ioctl(fd, BTRFS_IOC_FS_INFO, &facts) != 0) return device;
    std::uint64_t number = 0;
    std::memcpy(&number, facts.fsid, sizeof number);
    return number;
}

/// Reads the extents of an open file from a place on, a handful at a time.
class ExtentReader {
  public:
    static constexpr std::uint32_t maxAtOnce = 32;

    explicit ExtentReader(int fd) : fd_(fd) {}

    /// False when the file system does not tell.
    [[nodiscard]] bool read(std::uint64_t from, std::uint64_t length,
                            std::uint32_t maxCount = maxAtOnce) {
        std::memset(bytes_.data(), 0, sizeof(fiemap));
        fiemap& request = *reinterpret_cast<fiemap*>(bytes_.data());
        request.fm_start = from;
        request.fm_length = length;
        request.fm_extent_count = maxCount;
        return ::ioctl(fd_, FS_IOC_FIEMAP, &request) == 0;
    }
    /// What the last reading found.
    [[nodiscard]] std::span<const fiemap_extent> found() const {
        const auto& answer = *reinterpret_cast<const fiemap*>(bytes_.data());
        return {answer.fm_extents, answer.fm_mapped_extents};
    }

  private:
    int fd_;
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): the kernel fills what is read
    alignas(
        fiemap) std::array<std::byte, sizeof(fiemap) + maxAtOnce * sizeof(fiemap_extent)> bytes_;
};

/// Whether the place of an extent on the disk is settled, and the extent holds nothing else.
bool isSettled(const fiemap_extent& extent) {
    constexpr std::uint32_t unsettled =
        FIEMAP_EXTENT_UNKNOWN | FIEMAP_EXTENT_DELALLOC | FIEMAP_EXTENT_DATA_INLINE;
    return (extent.fe_flags & unsettled) == 0;
}

bool isShared(const fiemap_extent& extent) { return (extent.fe_flags & FIEMAP_EXTENT_SHARED) != 0; }

/// Whether each of its bytes lies where the extent says.
bool isExact(const fiemap_extent& extent) {
    return isSettled(extent) && (extent.fe_flags & FIEMAP_EXTENT_NOT_ALIGNED) == 0;
}

/// The extent that holds the last byte that is there, mostly that of the file's last byte.
std::optional<fiemap_extent> lastExtent(ExtentReader& extents, std::uint64_t byteCount) {
    if (!extents.read(byteCount - 1, 1)) return std::nullopt;
    if (!extents.found().empty()) return extents.found().back();
    std::optional<fiemap_extent> last;
    for (std::uint64_t from = 0; from < byteCount;) {
        if (!extents.read(from, byteCount - from)) return std::nullopt;
        if (extents.found().empty()) break;
        last = extents.found().back();
        from = last->fe_logical + last->fe_length;
    }
    return last;
}

std::uint64_t mixed(std::uint64_t value) {
    value ^= value >> 32;
    value *= 0x9E3779B97F4A7C15U;
    return value ^ value >> 29;
}

SharedExtents sharedExtentsOfFile(int fd) {
    constexpr std::uint64_t toTheEnd = std::numeric_limits<std::uint64_t>::max();
    ExtentReader extents(fd);
    if (!extents.read(0, toTheEnd, 1) || extents.found().empty()) return {};
    const fiemap_extent first = extents.found().front();
    if (!isShared(first) || !isSettled(first)) return {};
    const std::uint64_t family = mixed(first.fe_physical);
    SharedExtents shared{.family = family == 0 ? 1 : family, .sharedBytes = first.fe_length};
    // A file that changes meanwhile may come to no end.
    constexpr int maxReadings = 100'000;
    std::uint64_t from = first.fe_logical + first.fe_length;
    bool isLast = (first.fe_flags & FIEMAP_EXTENT_LAST) != 0;
    for (int i = 0; i < maxReadings && !isLast; ++i) {
        if (!extents.read(from, toTheEnd - from) || extents.found().empty()) break;
        for (const fiemap_extent& extent : extents.found()) {
            if (isShared(extent)) shared.sharedBytes += extent.fe_length;
        }
        const fiemap_extent& last = extents.found().back();
        from = last.fe_logical + last.fe_length;
        isLast = (last.fe_flags & FIEMAP_EXTENT_LAST) != 0;
    }
    return shared;
}

} // namespace

SharedExtents sharedExtents(int folder, const char* name) {
    const int fd =
        ::openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) return {};
    const SharedExtents found = sharedExtentsOfFile(fd);
    ::close(fd);
    return found;
}

bool isReadOnlySnapshot(int folder, const ItemIdentity& identity) {
    // The top of each subvolume has this number, and most folders elsewhere do not: they cost
    // nothing.
    if (identity.inode != BTRFS_FIRST_FREE_OBJECTID) return false;
    std::uint64_t flags = 0;
    return ::ioctl(folder, BTRFS_IOC_SUBVOL_GETFLAGS, &flags) == 0 &&
           (flags & BTRFS_SUBVOL_RDONLY) != 0;
}

std::optional<FileExtent> fileExtent(int fd, const FileMetadata& seen) {
    if (seen.byteCount == 0) return std::nullopt;
    ExtentReader extents(fd);
    if (!extents.read(0, seen.byteCount)) return std::nullopt;
    const std::uint64_t fileSystem = fileSystemNumber(fd, seen.identity.device);
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

bool isKnownToShareBlocks(const FolderDescriptor& folder) {
    return std::ranges::find(sharingBlocks, fileSystemType(folder.fd())) != sharingBlocks.end();
}

bool mayShareBlocks(const FolderDescriptor& folder) {
    return std::ranges::find(neverSharingBlocks, fileSystemType(folder.fd())) ==
           neverSharingBlocks.end();
}

} // namespace tidyro::platform

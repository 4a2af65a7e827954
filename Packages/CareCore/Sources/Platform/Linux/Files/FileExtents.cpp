// FIEMAP and the numbers of the file systems are Linux's own.
#include "Platform/Linux/Files/FileExtents.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <limits>
#include <map>
#include <span>
#include <vector>

#include <endian.h>
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

    /// False when the file system does not tell. `flags` are those of the call.
    [[nodiscard]] bool read(std::uint64_t from, std::uint64_t length,
                            std::uint32_t maxCount = maxAtOnce, std::uint32_t flags = 0) {
        std::memset(bytes_.data(), 0, sizeof(fiemap));
        fiemap& request = *reinterpret_cast<fiemap*>(bytes_.data());
        request.fm_start = from;
        request.fm_length = length;
        request.fm_extent_count = maxCount;
        request.fm_flags = flags;
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

std::uint64_t mixed(std::uint64_t value) {
    value ^= value >> 32;
    value *= 0x9E3779B97F4A7C15U;
    return value ^ value >> 29;
}

/// Calls `use` with the extents behind a place up to another, in the order of the file. False when
/// the file system does not tell, or the file comes to no end because it changes meanwhile.
template <class Use>
bool forEachExtent(ExtentReader& extents, std::uint64_t from, std::uint64_t end,
                   std::uint32_t flags, Use use) {
    constexpr int maxReadings = 100'000;
    for (int i = 0; i < maxReadings; ++i) {
        if (from >= end) return true;
        if (!extents.read(from, end - from, ExtentReader::maxAtOnce, flags)) return false;
        if (extents.found().empty()) return true;
        for (const fiemap_extent& extent : extents.found()) use(extent);
        const fiemap_extent& last = extents.found().back();
        if ((last.fe_flags & FIEMAP_EXTENT_LAST) != 0) return true;
        from = last.fe_logical + last.fe_length;
    }
    return false;
}

SharedExtents sharedExtentsOfFile(int fd) {
    constexpr std::uint64_t toTheEnd = std::numeric_limits<std::uint64_t>::max();
    ExtentReader extents(fd);
    if (!extents.read(0, toTheEnd, 1) || extents.found().empty()) return {};
    const fiemap_extent first = extents.found().front();
    if (!isShared(first) || !isSettled(first)) return {};
    const std::uint64_t family = mixed(first.fe_physical);
    SharedExtents shared{.family = family == 0 ? 1 : family, .sharedBytes = first.fe_length};
    if ((first.fe_flags & FIEMAP_EXTENT_LAST) != 0) return shared;
    const std::uint64_t behind = first.fe_logical + first.fe_length;
    static_cast<void>(forEachExtent(extents, behind, toTheEnd, 0, [&](const fiemap_extent& extent) {
        if (isShared(extent)) shared.sharedBytes += extent.fe_length;
    }));
    return shared;
}

/// What the compressed pieces of a file on btrfs take, by their place on the disk. Extents tell
/// only how long a piece is when it is unpacked, and the rest is told to a superuser only: empty
/// for others.
std::map<std::uint64_t, std::uint64_t> compressedPieces(int fd, std::uint64_t inode) {
    constexpr std::uint64_t everything = std::numeric_limits<std::uint64_t>::max();
    std::map<std::uint64_t, std::uint64_t> pieces;
    std::uint64_t from = 0;
    for (;;) {
        btrfs_ioctl_search_args search{};
        search.key = {.tree_id = 0, // the subvolume of the file
                      .min_objectid = inode,
                      .max_objectid = inode,
                      .min_offset = from,
                      .max_offset = everything,
                      .min_transid = 0,
                      .max_transid = everything,
                      .min_type = BTRFS_EXTENT_DATA_KEY,
                      .max_type = BTRFS_EXTENT_DATA_KEY,
                      .nr_items = std::numeric_limits<std::uint32_t>::max(),
                      .unused = 0,
                      .unused1 = 0,
                      .unused2 = 0,
                      .unused3 = 0,
                      .unused4 = 0};
        if (::ioctl(fd, BTRFS_IOC_TREE_SEARCH, &search) != 0) return {};
        if (search.key.nr_items == 0) return pieces;
        const char* at = search.buf;
        for (std::uint32_t i = 0; i < search.key.nr_items; ++i) {
            btrfs_ioctl_search_header header{};
            std::memcpy(&header, at, sizeof header);
            at += sizeof header;
            btrfs_file_extent_item item{};
            if (header.len >= sizeof item) { // data beside the name has no place
                std::memcpy(&item, at, sizeof item);
                if (item.compression != 0) {
                    pieces[le64toh(item.disk_bytenr)] = le64toh(item.disk_num_bytes);
                }
            }
            at += header.len;
            from = header.offset;
        }
        if (from == everything) return pieces;
        ++from;
    }
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

std::optional<FileBlocks> fileBlocks(int fd, const FileMetadata& seen) {
    constexpr std::uint64_t smallestBlock = 4'096;
    FileBlocks blocks{.fileSystem = fileSystemNumber(fd, seen.identity.device)};
    std::vector<FileBlocks::Range> own;
    std::optional<std::map<std::uint64_t, std::uint64_t>> compressed;
    ExtentReader extents(fd);
    const bool isTold = forEachExtent(
        extents, 0, seen.byteCount, FIEMAP_FLAG_SYNC, [&](const fiemap_extent& extent) {
            if (!isSettled(extent) || (extent.fe_flags & FIEMAP_EXTENT_NOT_ALIGNED) != 0) {
                blocks.isWhole = false;
                return;
            }
            const std::uint64_t left =
                seen.byteCount - std::min<std::uint64_t>(seen.byteCount, extent.fe_logical);
            std::uint64_t length = std::min<std::uint64_t>(extent.fe_length, left);
            if ((extent.fe_flags & FIEMAP_EXTENT_ENCODED) != 0) {
                if (!compressed) compressed = compressedPieces(fd, seen.identity.inode);
                const auto piece = compressed->find(extent.fe_physical);
                length = piece == compressed->end() ? smallestBlock : piece->second;
            }
            const FileBlocks::Range range{.begin = extent.fe_physical,
                                          .end = extent.fe_physical + length};
            blocks.ranges.push_back(range);
            if (!isShared(extent)) own.push_back(range);
        });
    if (!isTold) return std::nullopt;
    joinRanges(blocks.ranges);
    blocks.ownBytes = joinRanges(own);
    return blocks;
}

bool isKnownToShareBlocks(const FolderDescriptor& folder) {
    return std::ranges::find(sharingBlocks, fileSystemType(folder.fd())) != sharingBlocks.end();
}

bool mayShareBlocks(const FolderDescriptor& folder) {
    return std::ranges::find(neverSharingBlocks, fileSystemType(folder.fd())) ==
           neverSharingBlocks.end();
}

} // namespace tidyro::platform

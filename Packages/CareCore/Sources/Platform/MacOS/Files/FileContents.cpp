#include "Platform/Files/FileContents.h"

#include <algorithm>
#include <cerrno>
#include <limits>

#include <fcntl.h>
#include <sys/attr.h>
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

/// What removing the file frees. None when the file system does not keep count of it.
std::optional<std::uint64_t> privateBytes(int fd) {
    struct __attribute__((packed)) {
        std::uint32_t length;
        attribute_set_t returned;
        std::int64_t bytes;
    } answer{};
    attrlist wanted{.bitmapcount = ATTR_BIT_MAP_COUNT,
                    .reserved = 0,
                    .commonattr = ATTR_CMN_RETURNED_ATTRS,
                    .volattr = 0,
                    .dirattr = 0,
                    .fileattr = 0,
                    .forkattr = ATTR_CMNEXT_PRIVATESIZE};
    if (::fgetattrlist(fd, &wanted, &answer, sizeof answer, FSOPT_ATTR_CMN_EXTENDED) != 0 ||
        (answer.returned.forkattr & ATTR_CMNEXT_PRIVATESIZE) == 0 || answer.bytes < 0) {
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(answer.bytes);
}

} // namespace

std::optional<FileBlocks> FileContents::blocks(const FileMetadata& seen) const {
    constexpr int maxPieces = 100'000; // a file that changes may come to no end
    FileBlocks blocks{.fileSystem = seen.identity.device};
    std::uint64_t from = 0;
    for (int i = 0; i < maxPieces && from < seen.byteCount; ++i) {
        log2phys piece{};
        piece.l2p_contigbytes = static_cast<off_t>(seen.byteCount - from);
        piece.l2p_devoffset = static_cast<off_t>(from);
        if (::fcntl(fd_, F_LOG2PHYS_EXT, &piece) != 0 || piece.l2p_contigbytes <= 0) {
            return std::nullopt;
        }
        const std::uint64_t length =
            std::min(static_cast<std::uint64_t>(piece.l2p_contigbytes), seen.byteCount - from);
        if (piece.l2p_devoffset >= 0) {
            const auto begin = static_cast<std::uint64_t>(piece.l2p_devoffset);
            blocks.ranges.push_back({.begin = begin, .end = begin + length});
        }
        from += length;
    }
    blocks.isWhole = from == seen.byteCount;
    const std::uint64_t all = joinRanges(blocks.ranges);
    blocks.ownBytes = std::min(privateBytes(fd_).value_or(all), all);
    return blocks;
}

bool mayShareBlocks(const FolderDescriptor&) { return true; }

} // namespace tidyro::platform

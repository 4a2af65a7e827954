#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Base/Saturating.h"

namespace tidyro {

/// How the file of an index is laid out. Numbers are little-endian; dates are the bits of a double,
/// seconds since 1970.
///
///     "TIDYROFI", the head below, the root's path
///     the columns of FindIndexStorage in the order of fileByteCount(), each from a
///     multiple of 8 on, zeros between them
///     "TIDYROFE", again from a multiple of 8 on
///
/// The folded names are not kept: they are made again faster than they are read.
struct FindIndexFileHead {
    std::uint32_t version = 1;
    std::uint32_t reserved = 0;
    std::uint64_t entryCount;
    std::uint64_t nameByteCount;
    std::uint64_t bigSizeCount;
    std::uint64_t extraChildCount;
    std::uint64_t lastEventID;
    double builtAt;
    double savedAt;
    std::uint64_t deniedCount;
    std::uint64_t deletedCount;
    std::uint64_t marksSystemFolders; ///< 1 or 0
    std::uint64_t rootPathLength;

    static constexpr std::uint32_t knownVersion = 1;
    static constexpr std::string_view magic = "TIDYROFI";
    static constexpr std::string_view trailer = "TIDYROFE";
    static constexpr std::uint64_t alignment = 8;

    /// Of the whole file; the largest number when it says more than there can be.
    [[nodiscard]] constexpr std::uint64_t fileByteCount() const {
        std::uint64_t end = magic.size() + sizeof(FindIndexFileHead);
        const auto add = [&](std::uint64_t count, std::uint64_t width) {
            end = saturatingAdd(end, saturatingMultiply(count, width));
            end = saturatingAdd(end, (0 - end) % alignment);
        };
        add(rootPathLength, 1);
        add(nameByteCount, 1);                          // names
        add(saturatingAdd(entryCount, 1), 4);           // nameStart
        for (int i = 0; i < 3; ++i) add(entryCount, 4); // parent, size32, mtime
        for (int i = 0; i < 3; ++i) add(entryCount, 1); // flags, kind, depth
        add(entryCount, 4);                             // firstChild
        add(bigSizeCount, 4);                           // their entries, ascending
        add(bigSizeCount, 8);                           // their sizes
        add(extraChildCount, 4);                        // folders, ascending
        add(extraChildCount, 4);                        // the child of each
        return saturatingAdd(end, trailer.size());
    }
};
// It is written as it stands in memory.
static_assert(sizeof(FindIndexFileHead) == 96 && std::endian::native == std::endian::little);

} // namespace tidyro

#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Base/GrowingArray.h"
#include "Base/Saturating.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"

namespace tidyro {

/// The two maps of a FindIndexStorage as columns, which is how the file holds them.
struct FindIndexFileTables {
    GrowingArray<std::uint32_t> bigSizeKeys; ///< entries, ascending
    GrowingArray<std::uint64_t> bigSizeValues;
    GrowingArray<std::uint32_t> extraChildFolders; ///< ascending, a folder for each of its children
    GrowingArray<std::uint32_t> extraChildren;

    /// Calls `visit` with each, a `FindColumn`, in the order of the file.
    template <class Visit>
    static constexpr void visitColumns(const Visit& visit) {
        using Tables = FindIndexFileTables;
        using enum FindColumnLength;
        visit(FindColumn{&Tables::bigSizeKeys, bigSizes});
        visit(FindColumn{&Tables::bigSizeValues, bigSizes});
        visit(FindColumn{&Tables::extraChildFolders, extraChildren});
        visit(FindColumn{&Tables::extraChildren, extraChildren});
    }
};

/// How the file of an index is laid out. Numbers are little-endian; dates are the bits of a double,
/// seconds since 1970.
///
///     "TIDYROFI", the head below, the root's path
///     the stored columns of FindIndexStorage, then those of FindIndexFileTables, each from a
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
    std::uint64_t lastEventID; ///< this and the dates: see FindIndexMetadata
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

    /// How many elements a column has in this file.
    [[nodiscard]] constexpr std::uint64_t elementCount(FindColumnLength length) const {
        switch (length) {
        case FindColumnLength::entries: return entryCount;
        case FindColumnLength::starts: return saturatingAdd(entryCount, 1);
        case FindColumnLength::nameBytes: return nameByteCount;
        case FindColumnLength::bigSizes: return bigSizeCount;
        case FindColumnLength::extraChildren: return extraChildCount;
        case FindColumnLength::foldedBytes: break; // not kept
        }
        return 0;
    }
    /// The length of the whole file. Counts that no file can have give the largest number.
    [[nodiscard]] constexpr std::uint64_t fileByteCount() const {
        std::uint64_t end = magic.size() + sizeof(FindIndexFileHead);
        const auto add = [&](std::uint64_t count, std::uint64_t width) {
            end = saturatingAdd(end, saturatingMultiply(count, width));
            end = saturatingAdd(end, (0 - end) % alignment);
        };
        add(rootPathLength, 1);
        const auto addColumn = [&](auto column) { add(elementCount(column.length), column.width); };
        FindIndexStorage::visitStoredColumns(addColumn);
        FindIndexFileTables::visitColumns(addColumn);
        return saturatingAdd(end, trailer.size());
    }
};
// It is written as it stands in memory.
static_assert(sizeof(FindIndexFileHead) == 96 && std::endian::native == std::endian::little);

} // namespace tidyro

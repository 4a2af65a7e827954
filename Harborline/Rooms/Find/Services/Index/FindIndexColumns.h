#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Base/GrowingArray.h"
#include "Rooms/Find/Services/Index/FindFolderStamps.h"

namespace tidyro {

/// How many elements a column of an index has.
enum class FindColumnLength : std::uint8_t {
    entries,       ///< one for each entry
    starts,        ///< one for each entry, and one more: where the last one ends
    nameBytes,     ///< what `nameStart` ends with
    foldedBytes,   ///< what `foldedStart` ends with
    bigSizes,      ///< one for each entry of `bigSizes`
    extraChildren, ///< one for each child in `extraChildren`
};

/// Whether the elements of a column mean the same in another storage.
enum class FindColumnMeaning : std::uint8_t {
    fact,     ///< they tell of the entry itself: such a column is copied as it is
    position, ///< they tell where the entry or its name lies in this storage
};

/// One column of `Owner`, as a list of its columns names it.
template <class Owner, class T>
struct FindColumn {
    GrowingArray<T> Owner::* values;
    FindColumnLength length;
    FindColumnMeaning meaning = FindColumnMeaning::fact;
    static constexpr std::size_t width = sizeof(T); ///< of an element, in bytes
};

/// The columns of an index of names, and the one list of them. Reserving, joining, saving, reading,
/// checking and counting bytes walk that list. A further column needs a member here, a row of the
/// list, and code that gives it its values. FindIndexStorage has the functions.
struct FindIndexColumns {
    using Entry = std::uint32_t;
    static constexpr Entry none = 0xFFFFFFFF;            ///< no parent, no child, no entry
    static constexpr std::uint32_t bigSize = 0xFFFFFFFF; ///< the size itself is in `bigSizes`
    static constexpr std::uint8_t maxDepth = 255;

    // The stored form; see FindIndexPersistence for its file.
    std::string rootPath;
    bool marksSystemFolders = false;
    GrowingArray<char> names;              ///< of all entries, without separators
    GrowingArray<std::uint32_t> nameStart; ///< offsets into `names`, and where the last name ends
    GrowingArray<std::uint32_t> parent;    ///< `none` for the root; below the entry's own number
    GrowingArray<std::uint32_t> size32;    ///< bytes, or `bigSize`
    std::map<Entry, std::uint64_t> bigSizes;
    GrowingArray<std::uint32_t> mtime;      ///< whole seconds since 1970
    GrowingArray<std::uint8_t> flags;       ///< `findflag`
    GrowingArray<std::uint8_t> kind;        ///< the category, and `findkind`
    GrowingArray<std::uint8_t> depth;       ///< below the root, at most `maxDepth`
    GrowingArray<std::uint32_t> firstChild; ///< `none` where nothing was appended
    /// Children that came later, outside the folder's block.
    std::map<Entry, std::vector<Entry>> extraChildren;
    std::int64_t deletedCount = 0; ///< marked and not yet compacted away
    std::int64_t deniedCount = 0;  ///< folders that could not be read

    /// How the folders stood when they were read. Kept in a file of its own.
    FindFolderStamps folderStamps;

    // Made from the names: the names as a search compares them, in the order of the entries.
    GrowingArray<std::uint32_t> foldedEntries; ///< the entry of each folded name
    GrowingArray<std::uint32_t> foldedStart;   ///< like `nameStart`, into `foldedNames`
    GrowingArray<char> foldedNames;
    std::uint32_t foldedThrough = 0; ///< the names of all entries below it are folded

    /// Made from the names as well, by `FindIndexStorage::extendPlaces`: the cost of an entry's
    /// place in the lower half, and for folders the `FindPlace` of what they hold in the upper.
    GrowingArray<std::uint8_t> place;

    /// Calls `visit` with each column that a file holds, a `FindColumn`, in the order of the file.
    template <class Visit>
    static constexpr void visitStoredColumns(const Visit& visit) {
        using Index = FindIndexColumns;
        using enum FindColumnLength;
        using enum FindColumnMeaning;
        visit(FindColumn{&Index::names, nameBytes});
        visit(FindColumn{&Index::nameStart, starts, position});
        visit(FindColumn{&Index::parent, entries, position});
        visit(FindColumn{&Index::size32, entries});
        visit(FindColumn{&Index::mtime, entries});
        visit(FindColumn{&Index::flags, entries});
        visit(FindColumn{&Index::kind, entries});
        visit(FindColumn{&Index::depth, entries, position});
        visit(FindColumn{&Index::firstChild, entries, position});
    }
    /// Calls `visit` with each column that is made from the stored ones.
    template <class Visit>
    static constexpr void visitFoldedColumns(const Visit& visit) {
        using Index = FindIndexColumns;
        using enum FindColumnLength;
        using enum FindColumnMeaning;
        visit(FindColumn{&Index::foldedEntries, entries, position});
        visit(FindColumn{&Index::foldedStart, starts, position});
        visit(FindColumn{&Index::foldedNames, foldedBytes});
    }
    template <class Visit>
    static constexpr void visitColumns(const Visit& visit) {
        visitStoredColumns(visit);
        visitFoldedColumns(visit);
    }
};

} // namespace tidyro

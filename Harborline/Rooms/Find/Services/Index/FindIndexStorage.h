#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Base/GrowingArray.h"
#include "Rooms/Find/Services/Index/FindDirectoryListing.h"
#include "Rooms/Find/Services/Index/FindKinds.h"

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
    fact,  ///< they tell of the entry itself: such a column is copied as it is
    place, ///< they tell where the entry or its name lies in this storage
};

/// One column of `Owner`, as a list of its columns names it.
template <class Owner, class T>
struct FindColumn {
    GrowingArray<T> Owner::* values;
    FindColumnLength length;
    FindColumnMeaning meaning = FindColumnMeaning::fact;
    static constexpr std::size_t width = sizeof(T); ///< of an element, in bytes
};

/// Every name below a root, in columns: a few dozen bytes for each entry, and its name twice, once
/// as it is and once folded for searching.
///
///     FindIndexStorage storage("/home/ada");
///     const auto root = storage.appendRoot("/home/ada", mtime);
///     const auto first = storage.appendBlock(root, listing);
///     storage.path(first)
///
/// An entry is a number, its place in each column. A folder has a smaller number than what it
/// holds. Children of a folder that were appended together are a block: they stand side by side,
/// and the last of them is marked. Any number of threads may read a storage; while one changes it,
/// no other may use it.
class FindIndexStorage {
  public:
    using Entry = std::uint32_t;
    static constexpr Entry none = 0xFFFFFFFF;            ///< no parent, no child, no entry
    static constexpr std::uint32_t bigSize = 0xFFFFFFFF; ///< the size itself is in `bigSizes`
    static constexpr std::uint8_t maxDepth = 255;

    /// A "/" at the end of a longer path is dropped. Without `marksSystemFolders` the system's
    /// folders are marked exactly when the root is "/".
    explicit FindIndexStorage(std::string rootPath,
                              std::optional<bool> marksSystemFolders = std::nullopt);

    // The stored form; see FindIndexPersistence for its file.
    std::string rootPath;
    bool marksSystemFolders;
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

    // Made from the names: the names as a search compares them, in the order of the entries.
    GrowingArray<std::uint32_t> foldedEntries; ///< the entry of each folded name
    GrowingArray<std::uint32_t> foldedStart;   ///< like `nameStart`, into `foldedNames`
    GrowingArray<char> foldedNames;
    std::uint32_t foldedThrough = 0; ///< the names of all entries below it are folded

    /// Calls `visit` with each column that a file holds, a `FindColumn`, in the order of the file.
    template <class Visit>
    static constexpr void visitStoredColumns(const Visit& visit) {
        using Index = FindIndexStorage;
        using enum FindColumnLength;
        using enum FindColumnMeaning;
        visit(FindColumn{&Index::names, nameBytes});
        visit(FindColumn{&Index::nameStart, starts, place});
        visit(FindColumn{&Index::parent, entries, place});
        visit(FindColumn{&Index::size32, entries});
        visit(FindColumn{&Index::mtime, entries});
        visit(FindColumn{&Index::flags, entries});
        visit(FindColumn{&Index::kind, entries});
        visit(FindColumn{&Index::depth, entries, place});
        visit(FindColumn{&Index::firstChild, entries, place});
    }
    /// Calls `visit` with each column that is made from the stored ones.
    template <class Visit>
    static constexpr void visitFoldedColumns(const Visit& visit) {
        using Index = FindIndexStorage;
        using enum FindColumnLength;
        using enum FindColumnMeaning;
        visit(FindColumn{&Index::foldedEntries, entries, place});
        visit(FindColumn{&Index::foldedStart, starts, place});
        visit(FindColumn{&Index::foldedNames, foldedBytes});
    }
    template <class Visit>
    static constexpr void visitColumns(const Visit& visit) {
        visitStoredColumns(visit);
        visitFoldedColumns(visit);
    }
    /// Makes room for this many bytes more in each column.
    void reserveColumns(std::size_t bytesEach);

    [[nodiscard]] Entry count() const { return static_cast<Entry>(parent.size()); }

    // Building. Folders have no size until `aggregateFolderSizes`. Appending a listing that there
    // is no room for is a programming fault: ask `hasRoomFor` first.

    /// Whether a listing fits. Entries and offsets have 32 bits.
    [[nodiscard]] bool hasRoomFor(const FindDirectoryListing& listing) const;
    /// Begins the storage with entry 0. The root is never hidden, a package or the system's,
    /// whatever its name, since somebody asked for it.
    Entry appendRoot(std::string_view path, std::uint32_t modified);
    /// Appends a folder's listing as the folder's one block. Returns the first entry, or `none` for
    /// an empty listing.
    Entry appendBlock(Entry folder, const FindDirectoryListing& listing);
    /// Gives each folder the sum of the sizes of what it holds, deleted entries left out.
    void aggregateFolderSizes();
    /// Folds the names that were appended since the last call. The functions that append call it.
    void extendFolded();

    // One entry

    [[nodiscard]] std::pair<std::uint32_t, std::uint32_t> nameRange(Entry entry) const {
        return {nameStart[entry], nameStart[entry + 1]};
    }
    [[nodiscard]] std::string_view name(Entry entry) const {
        return {names.data() + nameStart[entry], nameStart[entry + 1] - nameStart[entry]};
    }
    [[nodiscard]] std::string_view foldedName(Entry entry) const {
        return {foldedNames.data() + foldedStart[entry],
                foldedStart[entry + 1] - foldedStart[entry]};
    }
    [[nodiscard]] bool is(Entry entry, std::uint8_t flag) const {
        return (flags[entry] & flag) != 0;
    }
    [[nodiscard]] FindCategory category(Entry entry) const {
        return static_cast<FindCategory>(kind[entry] & findkind::categoryMask);
    }
    [[nodiscard]] std::uint64_t size(Entry entry) const {
        return size32[entry] != bigSize ? size32[entry] : sizeOfBig(entry);
    }
    void setSize(std::uint64_t size, Entry entry);
    [[nodiscard]] std::string path(Entry entry) const;
    [[nodiscard]] bool isDeletedOrInside(Entry entry) const;

    // Its folder and its children

    /// The entry of an absolute path that is not deleted.
    [[nodiscard]] std::optional<Entry> lookup(std::string_view path) const;
    [[nodiscard]] std::optional<Entry> child(Entry folder, std::string_view named) const;
    /// Calls `visit` with each child of a folder until it returns false: first the block, then the
    /// children that came later. Deleted ones are among them.
    template <class Visit>
    void visitChildren(Entry folder, const Visit& visit) const;
    /// The same children as a list.
    [[nodiscard]] std::vector<Entry> children(Entry folder) const;
    /// Adds a change of one entry's size, which was already made, to the folders above it, up to
    /// the first deleted one. Sizes stay within 0 and the largest number.
    void addToAncestors(Entry entry, std::int64_t delta);

    // Live updates. The sizes of the folders above follow at once. Listings need room here as well.

    /// Marks an entry and takes its bytes out of the folders above. Does nothing the second time.
    void markDeleted(Entry entry);
    /// Appends children to a folder, outside its block. Returns the first, or `none`.
    Entry appendLooseChildren(Entry folder, const FindDirectoryListing& listing);
    /// Makes a folder hold what a fresh listing says. Children that are not listed are deleted,
    /// changed ones take their new size and date, new ones are appended. The contents of a child
    /// that stays are left alone. A child that became a folder, or is none any more, is a new one.
    ///
    /// Returns the new folders, whose contents are not known yet, without those that something is
    /// mounted on.
    std::vector<Entry> replaceChildren(Entry folder, const FindDirectoryListing& listing);
    /// A copy without deleted entries and what lies in them. Its entries have other numbers.
    [[nodiscard]] FindIndexStorage compacted() const;

    /// The eleven names of the system's folders at the top of a disk.
    [[nodiscard]] static bool isSystemTopLevelName(std::string_view name);

  private:
    enum class Change : std::uint8_t { growth, loss };

    [[nodiscard]] std::uint64_t sizeOfBig(Entry entry) const;
    Entry appendEntries(Entry folder, const FindDirectoryListing& listing);
    void foldPlainNames(Entry from, Entry to);
    void changeAncestors(Entry entry, Change change, std::uint64_t bytes);
    void takeListed(Entry entry, const FindDirectoryListing& listing, std::size_t at);
    void setHiddenItself(Entry entry, bool isHidden);
};

template <class Visit>
void FindIndexStorage::visitChildren(Entry folder, const Visit& visit) const {
    Entry child = firstChild[folder];
    while (child != none) {
        if (!visit(child)) return;
        const bool isLast = (kind[child] & findkind::lastOfBlock) != 0;
        child = isLast ? none : child + 1;
    }
    // Few folders have any, and most indexes none at all.
    if (extraChildren.empty()) return;
    const auto extra = extraChildren.find(folder);
    if (extra == extraChildren.end()) return;
    for (const Entry later : extra->second) {
        if (!visit(later)) return;
    }
}

} // namespace tidyro

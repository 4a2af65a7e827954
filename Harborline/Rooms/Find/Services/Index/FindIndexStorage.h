#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Rooms/Find/Services/Index/FindDirectoryListing.h"
#include "Rooms/Find/Services/Index/FindIndexColumns.h"
#include "Rooms/Find/Services/Index/FindKinds.h"

namespace tidyro {

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
class FindIndexStorage : public FindIndexColumns {
  public:
    /// A "/" at the end of a longer path is dropped. Without `marksSystemFolders` the system's
    /// folders are marked exactly when the root is "/".
    explicit FindIndexStorage(std::string rootPath,
                              std::optional<bool> marksSystemFolders = std::nullopt);

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
    /// Rates the places of the entries that were appended since the last call. An index that
    /// searches use has been rated as a whole; see `FindIndex`.
    void extendPlaces();

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
    /// How unlikely it is that the entry is meant, by its place and by whether it can be run; from
    /// 0 to `maxFindPlaceCost`. Its place has to be rated.
    [[nodiscard]] std::uint8_t placeCost(Entry entry) const { return place[entry] & 0xFU; }
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

    /// Whether one of the system's folders at the top of a disk has this name.
    [[nodiscard]] static bool isSystemTopLevelName(std::string_view name);

  private:
    enum class Change : std::uint8_t { growth, loss };

    [[nodiscard]] std::uint64_t sizeOfBig(Entry entry) const;
    Entry appendEntries(Entry folder, const FindDirectoryListing& listing);
    void foldPlainNames(Entry from, Entry to);
    void changeAncestors(Entry entry, Change change, std::uint64_t bytes);
    void takeListed(Entry entry, const FindDirectoryListing& listing, std::size_t at);
    void setHiddenItself(Entry entry, bool isHidden);
    void setProgram(Entry entry, bool isProgram);
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

#include "Rooms/Find/Services/Building/FindIndexBlock.h"

#include <limits>

namespace tidyro {

namespace {

using Entry = FindIndexStorage::Entry;

/// How many elements of a column are those of the root.
std::size_t elementsOfRoot(const FindIndexStorage& storage, FindColumnLength length) {
    switch (length) {
    case FindColumnLength::starts: return 2;
    case FindColumnLength::nameBytes: return storage.nameStart[1];
    case FindColumnLength::foldedBytes: return storage.foldedStart[1];
    default: return 1;
    }
}

/// Copies what stands behind a column's first `own` elements. A column that one huge folder blew
/// up goes back to the system at once: two full sets of columns must not stand side by side.
/// Whether it did.
template <class T>
bool moveColumn(GrowingArray<T>& target, GrowingArray<T>& column, std::size_t own) {
    constexpr std::size_t keptBetweenFolders = 65'536;
    target.append(column.span().subspan(own));
    if (column.capacityBytes() <= keptBetweenFolders) return false;
    column.release();
    return true;
}

/// The same for offsets: they begin where the target's end.
void moveOffsets(GrowingArray<std::uint32_t>& target, const GrowingArray<std::uint32_t>& column) {
    constexpr std::size_t own = 2; // where the folder's own name begins and ends
    const std::uint32_t shift = target[target.size() - 1] - column[own - 1];
    const std::size_t before = target.size();
    target.append(column.span().subspan(own));
    for (std::size_t i = before; i < target.size(); ++i) target[i] += shift;
}

bool hasRoomBehind(std::size_t bytes, std::size_t more) {
    return more <= std::numeric_limits<std::uint32_t>::max() - bytes;
}

} // namespace

FindIndexStorage FindIndexBlock::emptied() {
    FindIndexStorage storage("/");
    storage.appendRoot("/", 0);
    return storage;
}

void FindIndexBlock::begin(Folder folder) {
    FindIndexStorage::visitColumns([&](auto column) {
        (prepared_.*column.values).resize(elementsOfRoot(prepared_, column.length));
    });
    prepared_.foldedThrough = 1;
    prepared_.bigSizes.clear();
    isOverflowing_ = false;
    prepared_.flags[0] = folder.flags;
    prepared_.marksSystemFolders = folder.marksSystemFolders;
}

void FindIndexBlock::add(const FindDirectoryListing& listing) {
    if (listing.count() == 0) return;
    isOverflowing_ = isOverflowing_ || !prepared_.hasRoomFor(listing);
    if (isOverflowing_) return;
    // All parts become one block: only the last entry of the last part ends it.
    if (count() > 0) {
        prepared_.kind[count()] &= static_cast<std::uint8_t>(~findkind::lastOfBlock);
    }
    prepared_.firstChild[0] = FindIndexStorage::none;
    prepared_.appendBlock(0, listing);
}

bool FindIndexBlock::hasRoomIn(const FindIndexStorage& storage) const {
    return !isOverflowing_ && count() < FindIndexStorage::none - storage.count() &&
           hasRoomBehind(storage.names.size(), prepared_.names.size() - prepared_.nameStart[1]) &&
           hasRoomBehind(storage.foldedNames.size(),
                         prepared_.foldedNames.size() - prepared_.foldedStart[1]);
}

Entry FindIndexBlock::moveInto(FindIndexStorage& storage, Entry folder) {
    const std::uint32_t added = count();
    if (added == 0) return FindIndexStorage::none;
    const Entry first = storage.count();
    const std::uint8_t above = storage.depth[folder];
    const std::uint8_t depth =
        above == FindIndexStorage::maxDepth ? above : static_cast<std::uint8_t>(above + 1);
    storage.firstChild[folder] = first;
    for (const auto& [entry, size] : prepared_.bigSizes) {
        storage.bigSizes.emplace_hint(storage.bigSizes.end(), first + entry - 1, size);
    }
    storage.parent.append(added, folder);
    storage.firstChild.append(added, FindIndexStorage::none);
    storage.depth.append(added, depth);
    moveOffsets(storage.nameStart, prepared_.nameStart);
    moveOffsets(storage.foldedStart, prepared_.foldedStart);
    storage.foldedEntries.reserveMore(added);
    for (Entry entry = first; entry < first + added; ++entry) storage.foldedEntries.push(entry);
    storage.foldedThrough = first + added;

    bool isTornApart = false;
    FindIndexStorage::visitColumns([&](auto column) {
        if (column.meaning != FindColumnMeaning::fact) return;
        const std::size_t own = elementsOfRoot(prepared_, column.length);
        isTornApart |= moveColumn(storage.*column.values, prepared_.*column.values, own);
    });
    if (isTornApart) prepared_ = emptied();
    return first;
}

} // namespace tidyro

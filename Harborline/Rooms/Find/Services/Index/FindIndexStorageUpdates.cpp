// What changes while the index is in use.
#include <unordered_map>
#include <vector>

#include "Base/Saturating.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"
#include "Rooms/Find/Services/Index/FindPlaces.h"

namespace tidyro {

namespace {

/// The entries of a listing by name, each name once: a folder that changes while it is read may
/// tell one twice.
class ListedNames {
  public:
    explicit ListedNames(const FindDirectoryListing& listing) : isDone_(listing.count(), false) {
        byName_.reserve(listing.count());
        for (std::size_t i = 0; i < listing.count(); ++i) {
            if (!byName_.emplace(listing.name(i), i).second) isDone_[i] = true;
        }
    }
    /// The place of a name that an entry may go on with; it is given once.
    [[nodiscard]] std::optional<std::size_t> take(std::string_view name, bool isFolder,
                                                  const FindDirectoryListing& listing) {
        const auto found = byName_.find(name);
        if (found == byName_.end()) return std::nullopt;
        const std::size_t at = found->second;
        const bool isListedFolder = listing.types[at] == FindObjectType::directory;
        if (isDone_[at] || isListedFolder != isFolder) return std::nullopt;
        isDone_[at] = true;
        return at;
    }
    [[nodiscard]] bool isDone(std::size_t at) const { return isDone_[at]; }

  private:
    std::unordered_map<std::string_view, std::size_t> byName_;
    std::vector<bool> isDone_;
};

FindDirectoryListing remaining(const FindDirectoryListing& listing, const ListedNames& names) {
    FindDirectoryListing left;
    for (std::size_t i = 0; i < listing.count(); ++i) {
        if (!names.isDone(i)) left.append(listing.entry(i));
    }
    return left;
}

std::uint64_t totalSize(const FindDirectoryListing& listing) {
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < listing.count(); ++i) {
        if (listing.types[i] != FindObjectType::directory) {
            sum = saturatingAdd(sum, listing.sizes[i]);
        }
    }
    return sum;
}

} // namespace

void FindIndexStorage::markDeleted(Entry entry) {
    if (is(entry, findflag::deleted)) return;
    flags[entry] |= findflag::deleted;
    ++deletedCount;
    changeAncestors(entry, Change::loss, size(entry));
}

FindIndexStorage::Entry FindIndexStorage::appendLooseChildren(Entry folder,
                                                              const FindDirectoryListing& listing) {
    const Entry first = appendEntries(folder, listing);
    if (first == none) return none;
    std::vector<Entry>& later = extraChildren[folder];
    for (Entry child = first; child < count(); ++child) later.push_back(child);
    changeAncestors(first, Change::growth, totalSize(listing));
    return first;
}

void FindIndexStorage::setHiddenItself(Entry entry, bool isHidden) {
    const auto bit = static_cast<std::uint8_t>(isHidden ? findkind::hiddenItself : 0);
    kind[entry] = static_cast<std::uint8_t>((kind[entry] & ~findkind::hiddenItself) | bit);
    std::vector<Entry> changed{entry};
    while (!changed.empty()) {
        const Entry at = changed.back();
        changed.pop_back();
        const bool hides = (kind[at] & findkind::hiddenItself) != 0 ||
                           (parent[at] != none && is(parent[at], findflag::hidden));
        if (hides == is(at, findflag::hidden)) continue; // so is what it holds
        flags[at] ^= findflag::hidden;
        visitChildren(at, [&](Entry child) {
            changed.push_back(child);
            return true;
        });
    }
}

void FindIndexStorage::setProgram(Entry entry, bool isProgram) {
    if (is(entry, findflag::program) == isProgram) return;
    flags[entry] ^= findflag::program;
    if (entry >= place.size()) return; // not rated yet
    const unsigned before = place[entry];
    place[entry] =
        static_cast<std::uint8_t>(isProgram ? before - findProgramGain : before + findProgramGain);
}

void FindIndexStorage::takeListed(Entry entry, const FindDirectoryListing& listing,
                                  std::size_t at) {
    mtime[entry] = listing.mtimes[at];
    const bool isHidden = listing.name(at).starts_with('.') ||
                          (listing.bsdFlags[at] & FindDirectoryListing::hiddenFlag) != 0;
    if (isHidden != ((kind[entry] & findkind::hiddenItself) != 0)) {
        setHiddenItself(entry, isHidden);
    }
    if (is(entry, findflag::folder)) return;
    const bool isLink = listing.types[at] == FindObjectType::symlink;
    if (isLink != is(entry, findflag::symlink)) flags[entry] ^= findflag::symlink;
    setProgram(entry, listing.types[at] == FindObjectType::file &&
                          (listing.bsdFlags[at] & FindDirectoryListing::programFlag) != 0);
    const std::uint64_t before = size(entry);
    const std::uint64_t now = listing.sizes[at];
    setSize(now, entry);
    if (now > before) changeAncestors(entry, Change::growth, now - before);
    if (now < before) changeAncestors(entry, Change::loss, before - now);
}

std::vector<FindIndexStorage::Entry>
FindIndexStorage::replaceChildren(Entry folder, const FindDirectoryListing& listing) {
    ListedNames listed(listing);
    flags[folder] &= static_cast<std::uint8_t>(~findflag::unread);
    for (const Entry child : children(folder)) {
        if (is(child, findflag::deleted)) continue;
        if (const auto at = listed.take(name(child), is(child, findflag::folder), listing)) {
            takeListed(child, listing, *at);
        } else {
            markDeleted(child);
        }
    }
    const FindDirectoryListing left = remaining(listing, listed);
    Entry first = none;
    if (firstChild[folder] == none) {
        first = appendBlock(folder, left);
        if (first != none) changeAncestors(first, Change::growth, totalSize(left));
    } else {
        first = appendLooseChildren(folder, left);
    }
    std::vector<Entry> folders;
    for (std::size_t i = 0; i < left.count(); ++i) {
        if (left.types[i] == FindObjectType::directory && !left.mountPoints[i]) {
            folders.push_back(first + static_cast<Entry>(i));
        }
    }
    return folders;
}

/// Folder by folder from the top: deleted entries are never reached, nor is what lies in them. The
/// children of a folder, its block and those that came later, become one block.
FindIndexStorage FindIndexStorage::compacted() const {
    FindIndexStorage made(rootPath, marksSystemFolders);
    made.deniedCount = deniedCount;
    std::vector<Entry> kept; // by the new number
    const auto keep = [&](Entry entry, Entry folder) {
        kept.push_back(entry);
        const Entry number = made.count();
        visitStoredColumns([&](auto column) {
            if (column.length != FindColumnLength::entries) return;
            (made.*column.values).push((this->*column.values)[entry]);
        });
        made.names.append(name(entry));
        made.nameStart.push(static_cast<std::uint32_t>(made.names.size()));
        made.parent[number] = folder;
        made.firstChild[number] = none;
        made.kind[number] &= static_cast<std::uint8_t>(~findkind::lastOfBlock);
        if (size32[entry] == bigSize) made.bigSizes[number] = size(entry);
    };
    if (count() != 0 && !is(0, findflag::deleted)) keep(0, none);
    for (Entry folder = 0; folder < made.count(); ++folder) {
        const Entry first = made.count();
        visitChildren(kept[folder], [&](Entry child) {
            if (!is(child, findflag::deleted)) keep(child, folder);
            return true;
        });
        if (made.count() == first) continue;
        made.firstChild[folder] = first;
        made.kind[made.count() - 1] |= findkind::lastOfBlock;
    }
    made.folderStamps = folderStamps.renumbered(kept);
    made.extendFolded();
    return made;
}

} // namespace tidyro

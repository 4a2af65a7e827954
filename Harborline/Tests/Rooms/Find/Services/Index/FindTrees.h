#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Base/PathText.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"

namespace tidyro::testing {

using Listed = FindDirectoryListing::Entry;

inline FindDirectoryListing listing(const std::vector<Listed>& entries) {
    FindDirectoryListing made;
    for (const Listed& entry : entries) made.append(entry);
    return made;
}

inline Listed file(std::string_view name, std::uint64_t size = 1) {
    return {.name = name, .type = FindObjectType::file, .size = size, .mtime = 7};
}
inline Listed folder(std::string_view name) {
    return {.name = name, .type = FindObjectType::directory, .size = 4'096};
}

/// An entry of a made tree.
struct Item {
    std::string_view path; ///< below the root; folders end in "/" and stand before what they hold
    std::uint64_t size = 10;
    std::uint32_t mtime = 1'000;
};

inline FindIndexStorage indexOf(const std::vector<Item>& items,
                                std::string_view root = "/home/ada") {
    std::vector<std::string> folders{""}; // in the order of the items
    std::map<std::string, FindDirectoryListing, std::less<>> listings;
    for (const Item& item : items) {
        const bool isFolder = item.path.ends_with('/');
        const std::string_view path = item.path.substr(0, item.path.size() - (isFolder ? 1 : 0));
        const std::size_t slash = path.rfind('/');
        const bool isTop = slash == std::string_view::npos;
        listings[std::string(isTop ? "" : path.substr(0, slash))].append(
            {.name = isTop ? path : path.substr(slash + 1),
             .type = isFolder ? FindObjectType::directory : FindObjectType::file,
             .size = item.size,
             .mtime = item.mtime});
        if (isFolder) folders.emplace_back(path);
    }
    FindIndexStorage storage{std::string(root)};
    storage.marksSystemFolders = true;
    storage.appendRoot(root, 0);
    for (const std::string& folder : folders) {
        const auto entry = storage.lookup(path::joined(root, folder));
        if (entry && listings.contains(folder)) storage.appendBlock(*entry, listings[folder]);
    }
    storage.aggregateFolderSizes();
    return storage;
}

/// A small index in which everything occurs that is stored: several blocks, a big file, children
/// that came later, something deleted, names that are no text.
inline FindIndexStorage everythingOnce() {
    FindIndexStorage storage("/home/ada");
    const auto root = storage.appendRoot("/home/ada", 5);
    const auto first = storage.appendBlock(
        root, listing({folder("Mail.app"), folder(".cache"), file("R\u00E9sum\u00E9.PDF", 12)}));
    storage.appendBlock(first, listing({file("big.mov", 0x1'2345'6789), file("\xFFx", 3)}));
    storage.appendBlock(first + 1, listing({file("old"), folder("deep")}));
    storage.aggregateFolderSizes();
    storage.appendLooseChildren(root, listing({file("later.txt", 9), folder("new")}));
    storage.markDeleted(6); // .cache/old
    storage.deniedCount = 2;
    return storage;
}

/// Goes wherever a search or an update may go; ends, and stays inside, for a sound storage.
inline std::size_t walkEverything(const FindIndexStorage& storage) {
    std::size_t seen = 0;
    for (FindIndexStorage::Entry entry = 0; entry < storage.count(); ++entry) {
        seen += storage.path(entry).size() + storage.foldedName(entry).size();
        seen += storage.children(entry).size() + rawValue(storage.category(entry)).size();
        seen += storage.isDeletedOrInside(entry) ? 1U : 0U;
        seen += storage.size(entry) != 0 ? 1U : 0U;
    }
    FindIndexStorage changed = storage.compacted();
    if (changed.count() > 0) changed.replaceChildren(0, listing({folder(".x"), file("y", 3)}));
    return seen + changed.count();
}

} // namespace tidyro::testing

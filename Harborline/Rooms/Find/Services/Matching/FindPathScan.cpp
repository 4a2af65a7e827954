#include "Rooms/Find/Services/Matching/FindPathScan.h"

#include <cstddef>
#include <vector>

#include "Rooms/Find/Services/Index/FindIndexStorage.h"

namespace tidyro {

namespace {

/// "lib/python" in "lib", "python"; "/usr/" in "", "usr", "".
std::vector<std::string_view> partsOf(std::string_view text) {
    std::vector<std::string_view> parts;
    for (std::size_t slash = text.find('/'); slash != std::string_view::npos;
         slash = text.find('/')) {
        parts.push_back(text.substr(0, slash));
        text.remove_prefix(slash + 1);
    }
    parts.push_back(text);
    return parts;
}

} // namespace

FindEntrySet FindPathScan::holding(std::string_view text) const {
    const std::vector<std::string_view> parts = partsOf(text);
    const std::string_view last = parts.back();
    const auto above = std::span(parts).first(parts.size() - 1);
    FindEntrySet found;
    if (above.empty()) {
        found = inNames(last);
    } else if (last.empty()) {
        found = insideFolders(above);
    } else {
        found = candidates(last);
        found.remove(0);
        found.keepWhere([&](Entry entry) {
            return component(entry).starts_with(last) &&
                   hasPathEnding(storage_.parent[entry], above);
        });
    }
    addContents(found);
    return found;
}

FindEntrySet FindPathScan::candidates(std::string_view text) const {
    return options_.isCaseSensitive ? names_.candidatesForOwn(text) : names_.holding(text);
}

FindEntrySet FindPathScan::inNames(std::string_view text) const {
    FindEntrySet found = candidates(text);
    found.remove(0); // its name is no part of the paths
    if (options_.isCaseSensitive) {
        found.keepWhere(
            [&](Entry entry) { return component(entry).find(text) != std::string_view::npos; });
    }
    return found;
}

/// What lies directly in folders whose path ends with these parts.
FindEntrySet FindPathScan::insideFolders(std::span<const std::string_view> above) const {
    FindEntrySet found(storage_.count());
    const auto addChildren = [&](Entry folder) {
        storage_.visitChildren(folder, [&found](Entry child) {
            found.add(child);
            return true;
        });
    };
    if (above.size() == 1 && above.front().empty()) {
        addChildren(0); // a single "/" stands in every path
        return found;
    }
    FindEntrySet folders = above.back().empty() ? withoutLetters() : candidates(above.back());
    folders.remove(0);
    folders.keepWhere([&](Entry folder) { return hasPathEnding(folder, above); });
    folders.forEach(addChildren);
    return found;
}

/// The entries of whose name nothing is left when it is folded: it has nothing but marks.
FindEntrySet FindPathScan::withoutLetters() const {
    FindEntrySet found(storage_.count());
    for (Entry entry = 0; entry < storage_.count(); ++entry) {
        if (component(entry).empty()) found.add(entry);
    }
    return found;
}

/// Whether the path of a folder ends with these parts, of which the first need not be a whole
/// component.
bool FindPathScan::hasPathEnding(Entry folder, std::span<const std::string_view> above) const {
    for (; above.size() > 1; above = above.first(above.size() - 1)) {
        if (folder == 0 || component(folder) != above.back()) return false;
        folder = storage_.parent[folder];
    }
    if (options_.isFromRoot) return folder == 0;
    return above.front().empty() || (folder != 0 && component(folder).ends_with(above.front()));
}

/// Goes through the entries found, which are few mostly.
void FindPathScan::addContents(FindEntrySet& found) const {
    std::vector<Entry> open;
    found.forEach([&](Entry entry) {
        if (storage_.firstChild[entry] != FindIndexStorage::none ||
            storage_.extraChildren.contains(entry)) {
            open.push_back(entry);
        }
    });
    while (!open.empty()) {
        const Entry folder = open.back();
        open.pop_back();
        storage_.visitChildren(folder, [&](Entry child) {
            if (found.has(child)) return true; // it is open already, or was
            found.add(child);
            if (storage_.is(child, findflag::folder)) open.push_back(child);
            return true;
        });
    }
}

} // namespace tidyro

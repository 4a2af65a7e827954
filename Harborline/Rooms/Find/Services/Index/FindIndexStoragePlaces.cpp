// Where entries are: paths, children, what was deleted around them.
#include "Base/PathText.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"

namespace tidyro {

std::string FindIndexStorage::path(Entry entry) const {
    std::vector<Entry> below; // the root itself stands in rootPath
    std::size_t length = rootPath.size();
    for (Entry at = entry; parent[at] != none; at = parent[at]) {
        below.push_back(at);
        length += 1 + name(at).size();
    }
    std::string text;
    text.reserve(length);
    text = rootPath;
    while (!below.empty()) {
        if (!text.ends_with('/')) text += '/';
        text += name(below.back());
        below.pop_back();
    }
    return text;
}

bool FindIndexStorage::isDeletedOrInside(Entry entry) const {
    for (Entry at = entry; at != none; at = parent[at]) {
        if (is(at, findflag::deleted)) return true;
    }
    return false;
}

std::optional<FindIndexStorage::Entry> FindIndexStorage::child(Entry folder,
                                                               std::string_view named) const {
    std::optional<Entry> found;
    visitChildren(folder, [&](Entry candidate) {
        if (name(candidate) == named && !is(candidate, findflag::deleted)) found = candidate;
        return !found;
    });
    return found;
}

std::optional<FindIndexStorage::Entry> FindIndexStorage::lookup(std::string_view path) const {
    if (count() == 0 || is(0, findflag::deleted) || !path::isInsideOrEqual(path, rootPath)) {
        return std::nullopt;
    }
    Entry at = 0;
    for (const std::string_view named : path::components(path::below(path, rootPath))) {
        const auto next = child(at, named);
        if (!next) return std::nullopt;
        at = *next;
    }
    return at;
}

std::vector<FindIndexStorage::Entry> FindIndexStorage::children(Entry folder) const {
    std::vector<Entry> found;
    visitChildren(folder, [&](Entry child) {
        found.push_back(child);
        return true;
    });
    return found;
}

} // namespace tidyro

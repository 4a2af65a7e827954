#include "StorageEngine/DiskTree/DiskTree.h"

#include <algorithm>
#include <utility>

#include "Base/Fault.h"
#include "Base/PathText.h"
#include "Base/UnicodeText.h"

namespace tidyro {

DiskTree::DiskTree(Columns columns) : columns_(std::move(columns)) {
    const std::size_t count = columns_.parent.size();
    require(count > 0 && count <= std::numeric_limits<NodeNumber>::max(), "a tree has a root");
    for (const std::size_t length :
         {columns_.childStart.size(), columns_.childCount.size(), columns_.nameStart.size(),
          columns_.nameLength.size(), columns_.logicalSize.size(), columns_.allocatedSize.size(),
          columns_.modified.size(), columns_.accessed.size(), columns_.kind.size(),
          columns_.flags.size(), columns_.fileCount.size(), columns_.folderCount.size()}) {
        require(length == count, "a column of a tree is shorter or longer than the others");
    }
}

std::size_t DiskTree::at(NodeNumber node) const {
    require(node >= 0 && node < count(), "a node number is not in its tree");
    return static_cast<std::size_t>(node);
}

std::uint64_t DiskTree::size(NodeNumber node, Measure measure) const {
    return sizes(measure)[at(node)];
}

std::string_view DiskTree::nameBytes(NodeNumber node) const {
    const std::size_t i = at(node);
    return {columns_.nameBytes.data() + columns_.nameStart[i], columns_.nameLength[i]};
}

std::string DiskTree::name(NodeNumber node) const { return repairedUTF8(nameBytes(node)); }

std::string DiskTree::path(NodeNumber node) const {
    std::size_t length = columns_.rootURL.path().size();
    for (NodeNumber up = node; up != root; up = parent(up)) length += 1 + nameBytes(up).size();
    std::string text;
    text.resize(length);
    // From the end: names are met from the leaf upwards.
    std::size_t end = length;
    for (NodeNumber up = node; up != root; up = parent(up)) {
        const std::string_view name = nameBytes(up);
        end -= name.size();
        name.copy(text.data() + end, name.size());
        text[--end] = '/';
    }
    columns_.rootURL.path().copy(text.data(), end);
    if (columns_.rootURL.path() == "/" && node != root) text.erase(0, 1);
    return text;
}

FileURL DiskTree::url(NodeNumber node) const {
    return isDirectory(node) ? FileURL::folder(path(node)) : FileURL::file(path(node));
}

Timestamp DiskTree::modifiedDate(NodeNumber node) const {
    return Timestamp::since1970(static_cast<double>(columns_.modified[at(node)]));
}

std::uint32_t DiskTree::lastUsedSeconds(NodeNumber node) const {
    const std::size_t i = at(node);
    return std::max(columns_.modified[i], columns_.accessed[i]);
}

Timestamp DiskTree::lastUsedDate(NodeNumber node) const {
    return Timestamp::since1970(static_cast<double>(lastUsedSeconds(node)));
}

std::ranges::iota_view<NodeNumber, NodeNumber> DiskTree::children(NodeNumber node) const {
    const std::size_t i = at(node);
    return std::views::iota(columns_.childStart[i],
                            columns_.childStart[i] + columns_.childCount[i]);
}

std::vector<NodeNumber> DiskTree::ancestors(NodeNumber node) const {
    std::vector<NodeNumber> chain;
    for (NodeNumber up = parent(node); up >= 0; up = parent(up)) chain.push_back(up);
    return chain;
}

std::vector<NodeNumber> DiskTree::sortedChildren(NodeNumber node, Measure measure) const {
    const auto range = children(node);
    std::vector<NodeNumber> sorted(range.begin(), range.end());
    std::ranges::sort(sorted, std::ranges::greater{},
                      [&](NodeNumber child) { return size(child, measure); });
    return sorted;
}

double DiskTree::shareOfParent(NodeNumber node, Measure measure) const {
    const NodeNumber above = parent(node);
    if (above < 0 || size(above, measure) == 0) return 0;
    return static_cast<double>(size(node, measure)) / static_cast<double>(size(above, measure));
}

std::optional<NodeNumber> DiskTree::child(NodeNumber folder, std::string_view name) const {
    for (const NodeNumber node : children(folder)) {
        if (nameBytes(node) == name) return node;
    }
    return std::nullopt;
}

std::optional<NodeNumber> DiskTree::index(std::string_view path) const {
    const std::string wanted = path::standardized(path);
    if (!path::isInsideOrEqual(wanted, columns_.rootURL.path())) return std::nullopt;
    NodeNumber node = root;
    for (const std::string_view component :
         path::components(path::below(wanted, columns_.rootURL.path()))) {
        const auto next = child(node, component);
        if (!next) return std::nullopt;
        node = *next;
    }
    return node;
}

void DiskTree::forEachDescendant(NodeNumber node, Visit visit,
                                 const std::function<void(NodeNumber)>& body) const {
    if (visit.includingSelf) body(node);
    std::vector<NodeNumber> folders{node};
    while (!folders.empty()) {
        const NodeNumber folder = folders.back();
        folders.pop_back();
        for (const NodeNumber child : children(folder)) {
            body(child);
            if (columns_.childCount[at(child)] > 0) folders.push_back(child);
        }
    }
}

bool DiskTree::isGone(NodeNumber node) const {
    for (NodeNumber up = node; up >= 0; up = parent(up)) {
        if (flags(up).contains(Flags::movedAway)) return true;
    }
    return false;
}

bool DiskTree::isInGitWorkingCopy(NodeNumber node, std::optional<NodeNumber> below) const {
    if (node < 0 || node >= count()) return false;
    for (NodeNumber folder = isDirectory(node) ? node : parent(node); folder >= 0;
         folder = parent(folder)) {
        if (child(folder, ".git")) return true;
        if (folder == below) return false;
    }
    return false;
}

} // namespace tidyro

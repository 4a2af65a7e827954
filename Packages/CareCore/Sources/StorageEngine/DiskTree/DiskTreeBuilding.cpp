// Trees made from other trees and by hand.
#include <map>
#include <unordered_map>
#include <utility>

#include "Base/PathText.h"
#include "Base/Saturating.h"
#include "StorageEngine/DiskTree/DiskTree.h"

namespace tidyro {

namespace {

/// Finds children by name in a tree. The folder that was asked last is remembered by its names,
/// because many items tend to go from one large folder.
class ChildFinder {
  public:
    explicit ChildFinder(const DiskTree& tree) : tree_(tree) {}

    [[nodiscard]] std::optional<NodeNumber> node(const std::string& path) {
        const std::string wanted = path::standardized(path);
        const std::string folder(path::parent(wanted));
        const auto parent = folder == folder_ ? parent_ : tree_.index(folder);
        if (!parent || wanted == tree_.rootURL().path()) return tree_.index(wanted);
        if (folder != folder_) remember(folder, *parent);
        const auto found = children_.find(path::lastComponent(wanted));
        if (found == children_.end()) return std::nullopt;
        return found->second;
    }

  private:
    void remember(const std::string& folder, NodeNumber parent) {
        folder_ = folder;
        parent_ = parent;
        children_.clear();
        for (const NodeNumber child : tree_.children(parent)) {
            children_.emplace(tree_.nameBytes(child), child);
        }
    }

    const DiskTree& tree_;
    std::string folder_;
    std::optional<NodeNumber> parent_;
    std::unordered_map<std::string_view, NodeNumber> children_;
};

} // namespace

DiskTree DiskTree::removing(const std::set<std::string>& paths) const {
    DiskTree changed = *this;
    Columns& columns = changed.columns_;
    ChildFinder finder(*this);
    // Ascending, so a folder goes before anything in it, and what is in it then went with it.
    for (const std::string& path : paths) {
        const auto found = finder.node(path);
        if (!found || changed.isGone(*found)) continue;
        const std::size_t i = changed.at(*found);
        const std::uint32_t asFolder = columns.flags[i].contains(Flags::directory) ? 1 : 0;
        columns.flags[i].insert(Flags::movedAway);
        const auto take = [&](auto& column, std::size_t ancestor, auto amount) {
            column[ancestor] = saturatingSubtract(column[ancestor], amount);
        };
        for (const NodeNumber up : changed.ancestors(*found)) {
            const std::size_t ancestor = changed.at(up);
            take(columns.logicalSize, ancestor, columns.logicalSize[i]);
            take(columns.allocatedSize, ancestor, columns.allocatedSize[i]);
            take(columns.fileCount, ancestor, columns.fileCount[i] + (1 - asFolder));
            take(columns.folderCount, ancestor, columns.folderCount[i] + asFolder);
        }
    }
    return changed;
}

namespace {

struct ExampleNode {
    std::string name;
    const DiskTree::ExampleFile* file = nullptr; ///< none: a folder
    std::map<std::string, std::size_t, std::less<>> children = {};
    std::optional<ContentKind> context = std::nullopt; ///< a folder's
};

std::uint32_t compact(Timestamp moment) {
    return compactSeconds(static_cast<std::int64_t>(moment.secondsSince1970()));
}

void place(std::vector<ExampleNode>& nodes, const DiskTree::ExampleFile& file,
           std::string_view relativePath, bool atStartupDiskRoot) {
    const auto names = path::components(relativePath);
    std::size_t folder = 0;
    for (std::size_t depth = 0; depth < names.size(); ++depth) {
        if (nodes[folder].file != nullptr) return; // the path runs through a file
        const auto found = nodes[folder].children.find(names[depth]);
        if (found != nodes[folder].children.end()) {
            folder = found->second;
        } else {
            const bool topLevel = atStartupDiskRoot && depth == 0;
            const auto context =
                contentKindContext(names[depth], nodes[folder].context,
                                   topLevel && isSystemTopLevelFolder(names[depth]));
            nodes[folder].children.emplace(names[depth], nodes.size());
            folder = nodes.size();
            nodes.push_back({.name = std::string(names[depth]), .context = context});
        }
    }
    if (folder != 0 && nodes[folder].children.empty()) nodes[folder].file = &file;
}

void append(DiskTreeColumns& columns, const ExampleNode& node, NodeNumber parent,
            std::optional<ContentKind> parentContext) {
    columns.parent.push(parent);
    columns.childStart.push(0);
    columns.childCount.push(static_cast<std::int32_t>(node.children.size()));
    columns.nameStart.push(static_cast<std::uint32_t>(columns.nameBytes.size()));
    columns.nameLength.push(static_cast<std::uint16_t>(node.name.size()));
    columns.nameBytes.append(node.name);
    const DiskTree::ExampleFile* file = node.file;
    columns.logicalSize.push(file != nullptr ? file->bytes : 0);
    columns.allocatedSize.push(file != nullptr ? file->allocatedBytes.value_or(file->bytes) : 0);
    columns.modified.push(file != nullptr ? compact(file->modified) : 0);
    columns.accessed.push(file != nullptr ? compact(file->accessed.value_or(file->modified)) : 0);
    DiskTreeFlags flags;
    if (file == nullptr) flags.insert(DiskTreeFlags::directory);
    if (file == nullptr && isPackageFolder(node.name)) flags.insert(DiskTreeFlags::package);
    if (node.name.starts_with('.')) flags.insert(DiskTreeFlags::hidden);
    columns.kind.push(file != nullptr ? parentContext.value_or(contentKindForFile(node.name))
                                      : node.context.value_or(ContentKind::other));
    columns.flags.push(flags);
}

} // namespace

DiskTree DiskTree::example(const FileURL& rootURL, const std::vector<ExampleFile>& files) {
    std::vector<ExampleNode> nodes{{.name = std::string(rootURL.lastComponent()),
                                    .context = contentKindContextOfPath(rootURL.path())}};
    for (const ExampleFile& file : files) {
        std::string_view relative = file.path;
        if (path::isInsideOrEqual(relative, rootURL.path())) {
            relative = path::below(relative, rootURL.path());
        }
        place(nodes, file, relative, rootURL.path() == "/");
    }

    // Folder by folder, so that the children of each stand together behind it.
    Columns columns;
    columns.rootURL = rootURL;
    columns.finishedAt = Timestamp::now();
    append(columns, nodes[0], -1, std::nullopt);
    std::vector<std::size_t> order{0};
    for (std::size_t at = 0; at < order.size(); ++at) {
        const ExampleNode& folder = nodes[order[at]];
        columns.childStart[at] = static_cast<NodeNumber>(order.size());
        for (const auto& [name, child] : folder.children) {
            append(columns, nodes[child], static_cast<NodeNumber>(at), folder.context);
            order.push_back(child);
        }
    }
    totalSubtrees(columns);
    return DiskTree(std::move(columns));
}

} // namespace tidyro

#include "Rooms/Duplicates/Search/ListedFileOpener.h"

#include <cerrno>
#include <ranges>
#include <string>
#include <utility>
#include <vector>

#include "Base/PathText.h"

namespace tidyro {

using platform::FolderDescriptor;

std::expected<FolderDescriptor, SystemError> ListedFileOpener::openFolder(NodeNumber folder) const {
    if (folder == DiskTree::root) return root_.open(".");
    const std::string path = tree_->path(folder);
    auto found = root_.openBelow(std::string(path::below(path, tree_->rootURL().path())));
    if (found || (found.error().code != ENAMETOOLONG && found.error().code != ENOSYS)) return found;
    // The path may be too long for the system. Going down name by name has no such bound.
    std::vector<NodeNumber> way = tree_->ancestors(folder); // nearest first, the root last
    way.insert(way.begin(), folder);
    found = root_.open(".");
    for (const NodeNumber next : way | std::views::reverse | std::views::drop(1)) {
        if (!found) return found;
        found = found->open(std::string(tree_->nameBytes(next)).c_str());
    }
    return found;
}

bool ListedFileOpener::enterFolder(const DiskTree& tree, NodeNumber node) {
    if (tree_ == &tree && node_ == node) return folder_.isOpen();
    if (tree_ != &tree) {
        auto root = FolderDescriptor::openRoot(tree.rootURL().path());
        if (!root) listing_.noteShortage(root.error());
        root_ = root ? *std::move(root) : FolderDescriptor();
        mayShareBlocks_ = root_.isOpen() && platform::mayShareBlocks(root_);
        tree_ = &tree;
    }
    node_ = node;
    folder_ = FolderDescriptor();
    owners_ = {};
    if (!root_.isOpen()) return false;
    auto folder = openFolder(node);
    if (folder) {
        folder_ = *std::move(folder);
    } else {
        listing_.noteShortage(folder.error());
    }
    return folder_.isOpen();
}

bool ListedFileOpener::reach(const ListedFile& file) {
    const DiskTree& tree = listing_.tree(file);
    const NodeNumber parent = tree.parent(file.node);
    if (parent < 0 || !enterFolder(tree, parent)) return false;
    name_.assign(tree.nameBytes(file.node));
    return true;
}

std::optional<platform::FileContents> ListedFileOpener::open(const ListedFile& file) {
    if (!reach(file)) return std::nullopt;
    auto contents = platform::FileContents::open(folder_, name_.c_str(), owners_);
    if (contents) return *std::move(contents);
    listing_.noteShortage(contents.error());
    // A link in its place is another item; the listed file has vanished then, too.
    if (!platform::hasVanished(contents.error()) && contents.error().code != ELOOP) {
        listing_.noteUnread();
    }
    return std::nullopt;
}

std::optional<platform::FileMetadata> ListedFileOpener::look(const ListedFile& file) {
    if (!reach(file)) return std::nullopt;
    const auto seen = platform::fileMetadata(folder_, name_.c_str());
    if (!seen) return std::nullopt;
    return *seen;
}

platform::FileUse ListedFileOpener::use(const ListedFile& file) {
    return reach(file) ? platform::fileUse(folder_, name_.c_str()) : platform::FileUse::unknown;
}

std::optional<ListedFileOpener::Opened> ListedFileOpener::openAndLook(const ListedFile& file) {
    auto contents = open(file);
    if (!contents) return std::nullopt;
    const auto seen = contents->metadata();
    if (!seen || seen->kind != platform::ItemKind::regularFile || seen->isDataless ||
        seen->byteCount != file.bytes) {
        return std::nullopt;
    }
    return Opened{
        .contents = *std::move(contents), .seen = *seen, .mayShareBlocks = mayShareBlocks_};
}

} // namespace tidyro

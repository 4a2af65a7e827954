#include "Rooms/Duplicates/Search/DuplicateListing.h"

#include <algorithm>
#include <cerrno>
#include <set>
#include <utility>

#include "Base/Fault.h"
#include "Base/PathText.h"
#include "Base/UnicodeText.h"
#include "Platform/Files/FileMetadata.h"
#include "Rooms/Duplicates/Search/CopyPlaces.h"

namespace tidyro {

namespace {

using Flags = DiskTree::Flags;

std::set<NodeNumber> nodesAt(const DiskTree& tree, const std::set<std::string>& paths) {
    std::set<NodeNumber> nodes;
    for (const std::string& path : paths) {
        if (const auto node = tree.index(path)) nodes.insert(*node);
    }
    return nodes;
}

/// A tree counts the bytes of a file at its first name only, so the others are asked of the disk.
std::uint64_t sizeOf(const DiskTree& tree, NodeNumber node, Flags flags) {
    if (!flags.contains(Flags::extraHardLink)) return tree.size(node, {.onDisk = false});
    const auto seen = platform::fileMetadata(tree.path(node));
    return seen ? seen->byteCount : tree.size(node, {.onDisk = false});
}

/// Asks for the whole path only where the name may be that of a Trash.
bool isTrash(const DiskTree& tree, NodeNumber folder, const FileURL& home) {
    const std::string_view name = tree.nameBytes(folder);
    if (isNameOfTrash(name)) return true;
    return folded(name) == "trash" && isInTrash(tree.path(folder), home);
}

bool liesInPackage(std::string_view path) {
    return std::ranges::any_of(path::components(path), isPackageFolder);
}

} // namespace

bool DuplicateListing::hasReached(const FileURL& folder) const {
    return std::ranges::any_of(trees_, [&](const DiskTree* tree) {
        auto node = tree->index(folder.path());
        if (!node) return false;
        for (NodeNumber at = *node; at >= 0; at = tree->parent(at)) {
            const Flags flags = tree->flags(at);
            if (flags.contains(Flags::denied) || flags.contains(Flags::symlink) ||
                (flags.contains(Flags::mountPoint) && at != DiskTree::root)) {
                return false;
            }
        }
        return tree->isDirectory(*node);
    });
}

void DuplicateListing::noteShortage(SystemError error) const {
    const bool isShortage = error.code == EMFILE || error.code == ENFILE || error.code == ENOMEM;
    if (isShortage) shortage_ = error.code;
}

std::optional<SystemError> DuplicateListing::shortage() const {
    const int code = shortage_;
    if (code == 0) return std::nullopt;
    return SystemError{code};
}

void DuplicateListing::add(const DiskTree& tree, const DuplicateSearchOptions& options) {
    require(trees_.size() < UINT16_MAX, "more roots than a search can tell apart");
    const auto number = static_cast<std::uint16_t>(trees_.size());
    trees_.push_back(&tree);
    denied_ += tree.deniedCount();
    const std::set<NodeNumber> skipped = nodesAt(tree, options.skipping);
    const std::set<NodeNumber> notEntered = nodesAt(tree, options.skippingContentsOf);
    const std::string& written = tree.rootURL().path();
    if (isInTrash(written, options.home) ||
        isInTrash(platform::realPath(written).value_or(written), options.home)) {
        return;
    }

    struct Folder {
        NodeNumber node;
        bool insidePackage;
    };
    std::vector<Folder> folders{
        {.node = DiskTree::root, .insidePackage = liesInPackage(tree.rootURL().path())}};
    while (!folders.empty()) {
        const Folder folder = folders.back();
        folders.pop_back();
        const bool insidePackage =
            folder.insidePackage || tree.flags(folder.node).contains(Flags::package);
        for (const NodeNumber node : tree.children(folder.node)) {
            const Flags flags = tree.flags(node);
            if (flags.contains(Flags::movedAway) || flags.contains(Flags::symlink)) continue;
            if (flags.contains(Flags::directory)) {
                if (flags.contains(Flags::denied) || flags.contains(Flags::mountPoint)) continue;
                if (skipped.contains(node) || notEntered.contains(node)) continue;
                if (isTrash(tree, node, options.home)) continue;
                folders.push_back({.node = node, .insidePackage = insidePackage});
                continue;
            }
            if (flags.contains(Flags::dataless) || skipped.contains(node)) continue;
            const std::uint64_t bytes = sizeOf(tree, node, flags);
            if (bytes == 0 || bytes < options.minimumBytes) continue;
            files_.push_back(
                {.bytes = bytes, .node = node, .tree = number, .insidePackage = insidePackage});
        }
    }
}

std::expected<void, DiskTreeScanner::ScanError> DuplicateListing::read(
    const FileURL& root, IfUnreadable ifUnreadable, const DuplicateSearchOptions& options,
    const std::function<void(const std::string&)>& progress, const CancelToken& cancel) {
    DiskTreeScanner scanner;
    scanner.skipping = options.skipping;
    scanner.skippingContentsOf = options.skippingContentsOf;
    auto tree = scanner.scan(
        root, [&](const DiskTreeScanner::Progress& state) { progress(state.currentPath); }, cancel);
    if (!tree) {
        const bool isCancelled = std::holds_alternative<CancellationError>(tree.error());
        if (ifUnreadable == IfUnreadable::skip && !isCancelled) return {};
        return std::unexpected(tree.error());
    }
    own_.push_back(*std::move(tree));
    add(own_.back(), options);
    return {};
}

} // namespace tidyro

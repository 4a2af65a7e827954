#include "StorageEngine/DeveloperStores/StoreUnits.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <tuple>
#include <utility>

#include "Base/Saturating.h"
#include "Base/UnicodeText.h"
#include "Platform/Folders/FolderFiles.h"
#include "StorageEngine/DeveloperStores/StoreManifests.h"
#include "StorageEngine/DeveloperStores/StoreTrees.h"
#include "StorageEngine/DiskTree/DiskTreeScanner.h"

namespace tidyro {

std::vector<DeveloperStoreUnit> UnitSums::largest() const {
    std::vector<DeveloperStoreUnit> units;
    for (const auto& [name, bytes] : sums_) {
        if (bytes > 0) units.push_back({.name = repairedUTF8(name), .byteCount = bytes});
    }
    const auto isBefore = [](const DeveloperStoreUnit& a, const DeveloperStoreUnit& b) {
        return std::tie(b.byteCount, a.name) < std::tie(a.byteCount, b.name);
    };
    const std::size_t count = std::min(units.size(), maxShownStoreUnits);
    std::ranges::partial_sort(units, units.begin() + static_cast<std::ptrdiff_t>(count), isBefore);
    units.resize(count);
    return units;
}

std::string pathBelow(const DiskTree& tree, NodeNumber node, NodeNumber top) {
    std::vector<std::string_view> names;
    for (; node != top; node = tree.parent(node)) names.push_back(tree.nameBytes(node));
    std::string path;
    for (auto name = names.rbegin(); name != names.rend(); ++name) {
        if (!path.empty()) path += '/';
        path += *name;
    }
    return path;
}

std::optional<std::string> StoreFiles::read(NodeNumber file) {
    if (tree_.size(file, {.onDisk = false}) > maxStoreManifestBytes) return std::nullopt;
    const platform::FolderDescriptor* folder = folderOf(tree_.parent(file));
    if (folder == nullptr) return std::nullopt;
    const std::string name(tree_.nameBytes(file));
    auto bytes = platform::readFileIn({.folder = *folder, .name = name}, maxStoreManifestBytes);
    return bytes ? std::optional(*std::move(bytes)) : std::nullopt;
}

const platform::FolderDescriptor* StoreFiles::folderOf(NodeNumber folder) {
    if (!store_) return nullptr;
    if (folder == DiskTree::root) return &*store_;
    if (folder != last_) {
        auto opened = store_->openBelow(pathBelow(tree_, folder, DiskTree::root));
        lastFolder_ = opened ? std::optional(*std::move(opened)) : std::nullopt;
        last_ = folder;
    }
    return lastFolder_ ? &*lastFolder_ : nullptr;
}

namespace {

/// The folders directly in a store, which bear the names that their owner gave them.
void addFolders(const DiskTree& tree, NodeNumber folder, std::string_view before, UnitSums& sums) {
    for (const NodeNumber child : tree.children(folder)) {
        if (!tree.isDirectory(child)) continue;
        sums.add(tree, child, std::string(before).append(tree.nameBytes(child)));
    }
}

/// Containers keep layers that only their owner can name, and volumes that people named.
void addContainerUnits(const DiskTree& tree, UnitSums& sums) {
    for (const NodeNumber child : tree.children(DiskTree::root)) {
        if (!tree.isDirectory(child)) continue;
        if (tree.nameBytes(child) == "volumes") {
            addFolders(tree, child, "volume ", sums);
        } else {
            sums.add(tree, child, tree.nameBytes(child));
        }
    }
}

/// Flatpak's own store shares every file with the applications and runtimes that are installed from
/// it. In a scan of everything the smallest path carries a file, which may be the store's. So what
/// is installed is scanned once more without the store.
void addFlatpakUnits(const DiskTree& tree, UnitSums& sums, const CancelToken& cancel) {
    DiskTreeScanner scanner;
    scanner.skipping.insert(tree.rootURL().appendingFolder("repo").path());
    const auto installed = scanner.scan(tree.rootURL(), nullptr, cancel);
    if (!installed) return;
    for (const NodeNumber child : installed->children(DiskTree::root)) {
        if (!installed->isDirectory(child)) continue;
        const std::string_view name = installed->nameBytes(child);
        if (name != "app" && name != "runtime") {
            sums.add(*installed, child, name);
            continue;
        }
        for (const NodeNumber id : installed->children(child)) {
            for (const NodeNumber architecture : installed->children(id)) {
                for (const NodeNumber branch : installed->children(architecture)) {
                    sums.add(*installed, branch, pathBelow(*installed, branch, child));
                }
            }
        }
    }
    sums.add("repo", saturatingSubtract(tree.size(DiskTree::root, unitsOnDisk),
                                        installed->size(DiskTree::root, unitsOnDisk)));
}

} // namespace

std::vector<DeveloperStoreUnit> largestStoreUnits(DeveloperStoreKind kind, const DiskTree& tree,
                                                  const CancelToken& cancel) {
    UnitSums sums;
    switch (kind) {
        using enum DeveloperStoreKind;
    case uvCache:
    case preCommit:
    case nixStore: addFolders(tree, DiskTree::root, "", sums); break;
    case huggingFaceHub: addHuggingFaceUnits(tree, sums, cancel); break;
    case torchHub: addTorchUnits(tree, sums); break;
    case ollamaModels: addOllamaUnits(tree, sums, cancel); break;
    case pnpmStore: addPnpmUnits(tree, sums, cancel); break;
    case condaPackages: addCondaUnits(tree, sums); break;
    case goModules: addGoUnits(tree, sums); break;
    case podmanStorage:
    case rootlessDocker: addContainerUnits(tree, sums); break;
    case flatpakUser: addFlatpakUnits(tree, sums, cancel); break;
    case dockerDiskImage: // one file, which only its owner can look into
    case ccache: break;   // thousands of results without a name
    }
    return sums.largest();
}

} // namespace tidyro

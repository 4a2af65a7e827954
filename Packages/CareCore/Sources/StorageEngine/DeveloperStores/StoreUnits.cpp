#include "StorageEngine/DeveloperStores/StoreUnits.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <string_view>
#include <tuple>
#include <utility>

#include "FolderWalk/WalkThreads.h"
#include "Platform/Folders/FolderFiles.h"
#include "StorageEngine/DeveloperStores/StoreManifests.h"
#include "StorageEngine/DeveloperStores/StoreTrees.h"

namespace tidyro {

std::vector<DeveloperStoreUnit> UnitSums::largest() const {
    using Sum = std::pair<const std::string, std::uint64_t>;
    std::vector<const Sum*> sums; // there may be many, with long names
    for (const Sum& sum : sums_) {
        if (sum.second > 0) sums.push_back(&sum);
    }
    const auto isBefore = [](const Sum* a, const Sum* b) {
        return std::tie(b->second, a->first) < std::tie(a->second, b->first);
    };
    const std::size_t count = std::min(sums.size(), maxShownStoreUnits);
    std::ranges::partial_sort(sums, sums.begin() + static_cast<std::ptrdiff_t>(count), isBefore);
    std::vector<DeveloperStoreUnit> units;
    units.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        units.push_back({.name = sums[i]->first, .byteCount = sums[i]->second});
    }
    return units;
}

bool UnitSums::areAllShownLargerThan(std::uint64_t bytes) const {
    std::size_t larger = 0;
    for (const auto& [_, sum] : sums_) larger += sum > bytes ? 1 : 0;
    return larger >= maxShownStoreUnits;
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

std::optional<std::string> StoreFiles::linkTarget(NodeNumber link) {
    const platform::FolderDescriptor* folder = folderOf(tree_.parent(link));
    if (folder == nullptr) return std::nullopt;
    const std::string name(tree_.nameBytes(link));
    auto target = platform::linkTargetIn({.folder = *folder, .name = name});
    return target ? std::optional(*std::move(target)) : std::nullopt;
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

void readEach(const DiskTree& tree, std::size_t count, const CancelToken& cancel,
              const std::function<void(StoreFiles& files, std::size_t number)>& read) {
    constexpr std::size_t workers = 4;
    constexpr std::size_t worthThreads = 64;
    constexpr std::size_t atOnce = 16; // they mostly lie in one folder
    std::atomic<std::size_t> next = 0;
    const auto work = [&] {
        StoreFiles files(tree);
        for (std::size_t first = 0; (first = next.fetch_add(atOnce)) < count;) {
            for (std::size_t i = first; i < std::min(first + atOnce, count); ++i) {
                if (cancel.stop_requested()) return;
                read(files, i);
            }
        }
    };
    if (count < worthThreads) {
        work();
    } else {
        WalkThreads({.name = "Tidyro stores", .workers = workers, .work = work}).run();
    }
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

/// Applications and runtimes are what people know. Their files are counted for them, though
/// Flatpak's own store has a name for each as well (`carryingLastOf`).
void addFlatpakUnits(const DiskTree& tree, UnitSums& sums) {
    for (const NodeNumber child : tree.children(DiskTree::root)) {
        if (!tree.isDirectory(child)) continue;
        const std::string_view name = tree.nameBytes(child);
        if (name != "app" && name != "runtime") {
            sums.add(tree, child, name);
            continue;
        }
        for (const NodeNumber id : tree.children(child)) {
            for (const NodeNumber architecture : tree.children(id)) {
                for (const NodeNumber branch : tree.children(architecture)) {
                    sums.add(tree, branch, pathBelow(tree, branch, child));
                }
            }
        }
    }
}

} // namespace

std::string_view carryingLastOf(DeveloperStoreKind kind) {
    return kind == DeveloperStoreKind::flatpakUser ? "repo" : "";
}

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
    case flatpakUser: addFlatpakUnits(tree, sums); break;
    case dockerDiskImage: // one file, which only its owner can look into
    case ccache: break;   // thousands of results without a name
    }
    return sums.largest();
}

} // namespace tidyro

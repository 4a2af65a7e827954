#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <iterator>
#include <mutex>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "Base/PathText.h"
#include "Base/Saturating.h"
#include "FolderWalk/WalkThreads.h"
#include "StorageEngine/DeveloperStores/StoreManifests.h"
#include "StorageEngine/DeveloperStores/StoreTrees.h"

namespace tidyro {

namespace {

/// The packages of one version of pnpm's store. It keeps each file under the digest of its contents
/// and an index for each package, of which there are many: several threads read them.
class PnpmPackages {
  public:
    PnpmPackages(const DiskTree& tree, NodeNumber version) : tree_(tree) {
        const auto files = tree.child(version, "files");
        if (!files) return;
        for (const NodeNumber folder : tree.children(*files)) {
            for (const NodeNumber file : tree.children(folder)) {
                const std::string_view name = tree.nameBytes(file);
                if (!isPlainFile(tree, file)) continue;
                if (name.ends_with("-index.json")) {
                    indexes_.push_back(file);
                } else {
                    byName_.emplace(name, file);
                }
            }
        }
        const auto index = tree.child(version, "index");
        if (!index) return;
        for (const NodeNumber folder : tree.children(*index)) {
            for (const NodeNumber file : tree.children(folder)) {
                if (isPlainFile(tree, file)) indexes_.push_back(file);
            }
        }
    }

    void addTo(UnitSums& sums, CountedNodes& counted, const CancelToken& cancel) {
        constexpr std::size_t workers = 4;
        constexpr std::size_t worthThreads = 64;
        const auto work = [&] { readIndexes(cancel); };
        if (indexes_.size() < worthThreads) {
            work();
        } else {
            WalkThreads({.name = "Tidyro packages", .workers = workers, .work = work}).run();
        }
        std::ranges::sort(packages_, {}, [](const Package& package) {
            return std::pair(std::string_view(package.name), package.index);
        });
        for (const Package& package : packages_) {
            std::uint64_t bytes = counted.take(package.index);
            for (const NodeNumber file : package.files) {
                bytes = saturatingAdd(bytes, counted.take(file));
            }
            sums.add(package.name, bytes);
        }
    }

  private:
    struct Package {
        std::string name;
        NodeNumber index;
        std::vector<NodeNumber> files;
    };

    void readIndexes(const CancelToken& cancel) {
        StoreFiles files(tree_);
        std::vector<Package> found;
        for (;;) {
            const std::size_t next = next_++;
            if (next >= indexes_.size() || cancel.stop_requested()) break;
            const auto bytes = files.read(indexes_[next]);
            const auto read = bytes ? pnpmPackage(*bytes) : std::nullopt;
            if (!read) continue;
            Package package{.name = read->name, .index = indexes_[next], .files = {}};
            for (const PnpmPackage::File& file : read->files) {
                if (const auto node = nodeOf(file)) package.files.push_back(*node);
            }
            found.push_back(std::move(package));
        }
        const std::scoped_lock lock(mutex_);
        std::ranges::move(found, std::back_inserter(packages_));
    }
    [[nodiscard]] std::optional<NodeNumber> nodeOf(const PnpmPackage::File& file) const {
        const auto found = byName_.find(file.name);
        if (found == byName_.end()) return std::nullopt;
        const bool isThere = tree_.nameBytes(tree_.parent(found->second)) == file.folder;
        return isThere ? std::optional(found->second) : std::nullopt;
    }

    const DiskTree& tree_;
    std::unordered_map<std::string_view, NodeNumber> byName_;
    std::vector<NodeNumber> indexes_;
    std::atomic<std::size_t> next_ = 0;
    std::mutex mutex_;
    std::vector<Package> packages_;
};

/// What Go downloaded of one version of a module.
void addGoDownloads(const DiskTree& tree, NodeNumber versions, std::string_view module,
                    UnitSums& sums) {
    for (const NodeNumber file : tree.children(versions)) {
        const std::string_view name = tree.nameBytes(file);
        const std::string_view extension = path::extensionOf(name);
        constexpr auto known =
            std::to_array<std::string_view>({"info", "lock", "mod", "zip", "ziphash"});
        if (std::ranges::find(known, extension) == known.end()) continue;
        const std::string_view version = name.substr(0, name.size() - extension.size() - 1);
        sums.add(tree, file, goModuleName(std::string(module).append("@").append(version)));
    }
}

} // namespace

void addPnpmUnits(const DiskTree& tree, UnitSums& sums, const CancelToken& cancel) {
    CountedNodes counted(tree);
    for (const NodeNumber version : tree.children(DiskTree::root)) {
        PnpmPackages(tree, version).addTo(sums, counted, cancel);
    }
}

/// conda keeps the archive of a package beside the folder that it unpacked it to.
void addCondaUnits(const DiskTree& tree, UnitSums& sums) {
    for (const NodeNumber child : tree.children(DiskTree::root)) {
        std::string_view name = tree.nameBytes(child);
        bool isPackage = tree.isDirectory(child);
        for (const std::string_view ending : {".conda", ".tar.bz2"}) {
            if (isPackage || !name.ends_with(ending)) continue;
            name.remove_suffix(ending.size());
            isPackage = true;
        }
        if (isPackage) sums.add(tree, child, name);
    }
}

/// Go unpacks each version of a module to a folder, and keeps what it downloaded in another one.
/// The folder's path below the store is the module's name.
void addGoUnits(const DiskTree& tree, UnitSums& sums) {
    const auto cache = tree.child(DiskTree::root, "cache");
    const auto download = cache ? tree.child(*cache, "download") : std::nullopt;
    if (cache) {
        for (const NodeNumber part : tree.children(*cache)) {
            if (part == download || !tree.isDirectory(part)) continue;
            sums.add(tree, part, std::string("cache/").append(tree.nameBytes(part)));
        }
    }
    std::vector<std::pair<NodeNumber, std::string>> folders{{DiskTree::root, ""}};
    if (download) folders.emplace_back(*download, "");
    while (!folders.empty()) {
        const auto [folder, above] = std::move(folders.back());
        folders.pop_back();
        for (const NodeNumber child : tree.children(folder)) {
            const std::string_view name = tree.nameBytes(child);
            if (!tree.isDirectory(child) || child == cache) continue;
            const std::string path = above.empty() ? std::string(name) : path::joined(above, name);
            if (name == "@v") {
                addGoDownloads(tree, child, above, sums);
            } else if (name.find('@') != std::string_view::npos) {
                sums.add(tree, child, goModuleName(path));
            } else {
                folders.emplace_back(child, path);
            }
        }
    }
}

} // namespace tidyro

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

#include "Base/PathText.h"
#include "Base/Saturating.h"
#include "StorageEngine/DeveloperStores/StoreManifests.h"
#include "StorageEngine/DeveloperStores/StoreTrees.h"

namespace tidyro {

namespace {

/// Files of pnpm's store by their keys: open addressing over plain numbers. There are as many files
/// as the store has, each is looked for about once, and what is small stays near the processor.
class PnpmFiles {
  public:
    explicit PnpmFiles(std::size_t maxCount)
        : slots_(std::bit_ceil(maxCount + maxCount / 2 + 1), none) {
        files_.reserve(maxCount);
    }
    void add(PnpmFileKey key, NodeNumber node) {
        std::uint32_t& slot = slots_[slotOf(key)];
        if (slot != none) return;
        slot = static_cast<std::uint32_t>(files_.size());
        files_.push_back({.key = key, .node = node});
    }
    [[nodiscard]] std::optional<NodeNumber> find(PnpmFileKey key) const {
        const std::uint32_t file = slots_[slotOf(key)];
        return file == none ? std::nullopt : std::optional(files_[file].node);
    }

  private:
    struct File {
        PnpmFileKey key;
        NodeNumber node;
    };
    static constexpr auto none = static_cast<std::uint32_t>(-1);

    /// The key's own, or the one that it would get.
    [[nodiscard]] std::size_t slotOf(PnpmFileKey key) const {
        const std::size_t mask = slots_.size() - 1;
        // Digests are spread evenly, but somebody could make names up.
        std::uint64_t hash = key * 0x9E3779B97F4A7C15U;
        hash ^= hash >> 32U;
        std::size_t at = static_cast<std::size_t>(hash) & mask;
        while (slots_[at] != none && files_[slots_[at]].key != key) at = (at + 1) & mask;
        return at;
    }

    std::vector<File> files_;
    std::vector<std::uint32_t> slots_;
};

/// The packages of one version of pnpm's store. It keeps each file under the digest of its contents
/// and an index for each package.
class PnpmPackages {
  public:
    PnpmPackages(const DiskTree& tree, NodeNumber version)
        : tree_(tree), files_(tree.fileCount(version)) {
        if (const auto files = tree.child(version, "files")) {
            for (const NodeNumber folder : tree.children(*files)) addFolder(folder);
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
        std::vector<Package> packages(indexes_.size());
        readEach(tree_, indexes_.size(), cancel, [&](StoreFiles& files, std::size_t number) {
            packages[number] = packageOf(files, indexes_[number]);
        });
        if (cancel.stop_requested()) return;
        std::ranges::sort(packages, {}, [](const Package& package) {
            return std::pair(std::string_view(package.name), package.index);
        });
        for (const Package& package : packages) {
            if (package.name.empty()) continue;
            std::uint64_t bytes = counted.take(package.index);
            for (const NodeNumber file : package.files) {
                bytes = saturatingAdd(bytes, counted.take(file));
            }
            sums.add(package.name, bytes);
        }
    }

  private:
    struct Package {
        std::string name; ///< empty: there was none
        NodeNumber index = 0;
        std::vector<NodeNumber> files;
    };

    [[nodiscard]] Package packageOf(StoreFiles& files, NodeNumber index) const {
        const auto bytes = files.read(index);
        auto read = bytes ? pnpmPackage(*bytes) : std::nullopt;
        if (!read) return {};
        Package package{.name = std::move(read->name), .index = index, .files = {}};
        package.files.reserve(read->files.size());
        for (const PnpmFileKey key : read->files) {
            if (const auto node = files_.find(key)) package.files.push_back(*node);
        }
        return package;
    }
    void addFolder(NodeNumber folder) {
        const std::string_view folderName = tree_.nameBytes(folder);
        for (const NodeNumber file : tree_.children(folder)) {
            if (!isPlainFile(tree_, file)) continue;
            const std::string_view name = tree_.nameBytes(file);
            if (const auto key = pnpmFileKey(folderName, name)) {
                files_.add(*key, file);
            } else if (name.ends_with("-index.json")) {
                indexes_.push_back(file);
            }
        }
    }

    const DiskTree& tree_;
    PnpmFiles files_;
    std::vector<NodeNumber> indexes_;
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

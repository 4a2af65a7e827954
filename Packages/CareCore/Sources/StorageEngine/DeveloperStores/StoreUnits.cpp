#include "StorageEngine/DeveloperStores/StoreUnits.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <expected>
#include <filesystem>
#include <iterator>
#include <mutex>
#include <optional>
#include <string_view>
#include <system_error>
#include <tuple>
#include <unordered_map>
#include <utility>

#include "Base/PathText.h"
#include "Base/Saturating.h"
#include "Base/StringTable.h"
#include "Base/UnicodeText.h"
#include "FolderWalk/WalkThreads.h"
#include "Platform/Folders/FolderFiles.h"
#include "Platform/Folders/FolderReading.h"
#include "StorageEngine/DeveloperStores/StoreManifests.h"
#include "StorageEngine/DiskTree/DiskTreeScanner.h"

namespace tidyro {

namespace {

constexpr DiskTree::Measure unitsOnDisk{.onDisk = true};

/// Adds up units by name.
class UnitSums {
  public:
    void add(std::string_view name, std::uint64_t bytes) {
        std::uint64_t& sum = sums_[std::string(name)];
        sum = saturatingAdd(sum, bytes);
    }
    void add(const DiskTree& tree, NodeNumber node, std::string_view name) {
        add(name, tree.size(node, unitsOnDisk));
    }

    [[nodiscard]] std::vector<DeveloperStoreUnit> largest() const {
        std::vector<DeveloperStoreUnit> units;
        for (const auto& [name, bytes] : sums_) {
            if (bytes > 0) units.push_back({.name = repairedUTF8(name), .byteCount = bytes});
        }
        const auto isBefore = [](const DeveloperStoreUnit& a, const DeveloperStoreUnit& b) {
            return std::tie(b.byteCount, a.name) < std::tie(a.byteCount, b.name);
        };
        const std::size_t count = std::min(units.size(), maxShownStoreUnits);
        std::ranges::partial_sort(units, units.begin() + static_cast<std::ptrdiff_t>(count),
                                  isBefore);
        units.resize(count);
        return units;
    }

  private:
    StringMap<std::uint64_t> sums_;
};

/// Nodes whose bytes a unit already has.
class CountedNodes {
  public:
    explicit CountedNodes(const DiskTree& tree)
        : tree_(tree), counted_(static_cast<std::size_t>(tree.count())) {}
    /// The bytes of a node for the first that asks; 0 from then on.
    [[nodiscard]] std::uint64_t take(NodeNumber node) {
        auto isCounted = counted_[static_cast<std::size_t>(node)];
        if (isCounted) return 0;
        isCounted = true;
        return tree_.size(node, unitsOnDisk);
    }

  private:
    const DiskTree& tree_;
    std::vector<bool> counted_;
};

bool isPlainFile(const DiskTree& tree, NodeNumber node) {
    return !tree.isDirectory(node) && !tree.flags(node).contains(DiskTreeFlags::symlink);
}

/// The path of a node below another one.
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

std::optional<NodeNumber> nodeBelow(const DiskTree& tree, std::string_view path) {
    NodeNumber node = DiskTree::root;
    for (const std::string_view name : path::components(path)) {
        const auto next = tree.child(node, name);
        if (!next) return std::nullopt;
        node = *next;
    }
    return node;
}

/// Reads files of a store that was scanned. It remembers the folder of the last one, since the next
/// mostly lies there too. Used by one thread.
class StoreFiles {
  public:
    explicit StoreFiles(const DiskTree& tree)
        : tree_(tree), store_(platform::FolderDescriptor::openRoot(tree.rootURL().path())) {}

    /// The whole file; none when it cannot be read, or is longer than a list ever is. No link is
    /// followed below the store.
    [[nodiscard]] std::optional<std::string> read(NodeNumber file) {
        if (tree_.size(file, {.onDisk = false}) > maxStoreManifestBytes) return std::nullopt;
        const platform::FolderDescriptor* folder = folderOf(tree_.parent(file));
        if (folder == nullptr) return std::nullopt;
        const std::string name(tree_.nameBytes(file));
        auto bytes = platform::readFileIn({.folder = *folder, .name = name}, maxStoreManifestBytes);
        return bytes ? std::optional(*std::move(bytes)) : std::nullopt;
    }

  private:
    const platform::FolderDescriptor* folderOf(NodeNumber folder) {
        if (!store_) return nullptr;
        if (folder == DiskTree::root) return &*store_;
        if (folder != last_) {
            auto opened = store_->openBelow(pathBelow(tree_, folder, DiskTree::root));
            lastFolder_ = opened ? std::optional(*std::move(opened)) : std::nullopt;
            last_ = folder;
        }
        return lastFolder_ ? &*lastFolder_ : nullptr;
    }

    const DiskTree& tree_;
    std::expected<platform::FolderDescriptor, SystemError> store_;
    std::optional<platform::FolderDescriptor> lastFolder_;
    NodeNumber last_ = -1;
};

/// The folders directly in a store, which bear the names that their owner gave them.
void addFolders(const DiskTree& tree, NodeNumber folder, std::string_view before, UnitSums& sums) {
    for (const NodeNumber child : tree.children(folder)) {
        if (!tree.isDirectory(child)) continue;
        sums.add(tree, child, std::string(before).append(tree.nameBytes(child)));
    }
}

/// Checkpoints are files, and code from repositories lies in folders beside theirs.
void addTorchUnits(const DiskTree& tree, UnitSums& sums) {
    for (const NodeNumber child : tree.children(DiskTree::root)) {
        if (tree.nameBytes(child) != "hub") {
            sums.add(tree, child, tree.nameBytes(child));
            continue;
        }
        for (const NodeNumber part : tree.children(child)) {
            if (tree.nameBytes(part) != "checkpoints") {
                sums.add(tree, part, tree.nameBytes(part));
                continue;
            }
            for (const NodeNumber file : tree.children(part)) {
                sums.add(tree, file, tree.nameBytes(file));
            }
        }
    }
}

/// A repository keeps each file once among its blobs. Its revisions are folders of links to them.
class HuggingFaceRepositoryUnits {
  public:
    HuggingFaceRepositoryUnits(const DiskTree& tree, NodeNumber repository, CountedNodes& counted,
                               StoreFiles& files)
        : tree_(tree), repository_(repository), counted_(counted) {
        const auto blobs = tree.child(repository, "blobs");
        if (blobs) {
            for (const NodeNumber blob : tree.children(*blobs)) {
                blobs_.emplace(tree.nameBytes(blob), blob);
            }
        }
        const auto refs = tree.child(repository, "refs");
        const auto main = refs ? tree.child(*refs, "main") : std::nullopt;
        if (!main) return;
        current_ = files.read(*main).value_or("");
        while (current_.ends_with('\n')) current_.pop_back();
    }

    void addTo(UnitSums& sums, const std::string& name, const CancelToken& cancel) {
        for (const NodeNumber revision : revisions()) {
            std::uint64_t bytes = 0;
            tree_.forEachDescendant(revision, {.includingSelf = false}, [&](NodeNumber node) {
                if (tree_.isDirectory(node) || cancel.stop_requested()) return;
                const auto file = isPlainFile(tree_, node) ? node : blobOf(node);
                if (file) bytes = saturatingAdd(bytes, counted_.take(*file));
            });
            sums.add(name + "@" + std::string(tree_.nameBytes(revision)), bytes);
        }
        std::uint64_t rest = 0;
        for (const auto& [_, blob] : blobs_) rest = saturatingAdd(rest, counted_.take(blob));
        sums.add(name + ", in no revision", rest);
    }

  private:
    /// The current one first, since it is the last that a person would remove.
    [[nodiscard]] std::vector<NodeNumber> revisions() const {
        const auto snapshots = tree_.child(repository_, "snapshots");
        if (!snapshots) return {};
        std::vector<NodeNumber> found;
        for (const NodeNumber revision : tree_.children(*snapshots)) {
            if (tree_.isDirectory(revision)) found.push_back(revision);
        }
        std::ranges::sort(found, {}, [&](NodeNumber revision) {
            const std::string_view name = tree_.nameBytes(revision);
            return std::pair(name != current_, name);
        });
        return found;
    }
    [[nodiscard]] std::optional<NodeNumber> blobOf(NodeNumber link) const {
        std::size_t depth = 0;
        for (NodeNumber up = tree_.parent(link); up != repository_; up = tree_.parent(up)) ++depth;
        std::error_code failed;
        const std::string target = std::filesystem::read_symlink(tree_.path(link), failed).string();
        const auto name = failed ? std::nullopt : huggingFaceBlob(target, depth);
        if (!name) return std::nullopt;
        const auto blob = blobs_.find(*name);
        return blob == blobs_.end() ? std::nullopt : std::optional(blob->second);
    }

    const DiskTree& tree_;
    NodeNumber repository_;
    CountedNodes& counted_;
    std::unordered_map<std::string_view, NodeNumber> blobs_;
    std::string current_;
};

void addHuggingFaceUnits(const DiskTree& tree, UnitSums& sums, const CancelToken& cancel) {
    CountedNodes counted(tree);
    StoreFiles files(tree);
    for (const NodeNumber child : tree.children(DiskTree::root)) {
        const auto name = huggingFaceRepository(tree.nameBytes(child));
        if (!name || !tree.isDirectory(child)) continue;
        HuggingFaceRepositoryUnits(tree, child, counted, files).addTo(sums, *name, cancel);
    }
}

/// The models in a folder that has "manifests" and "blobs".
void addOllamaUnitsOf(const DiskTree& tree, NodeNumber manifests, NodeNumber blobs, UnitSums& sums,
                      const CancelToken& cancel) {
    std::unordered_map<std::string_view, NodeNumber> blobsByName;
    for (const NodeNumber blob : tree.children(blobs)) {
        blobsByName.emplace(tree.nameBytes(blob), blob);
    }
    std::vector<std::pair<std::string, NodeNumber>> models;
    tree.forEachDescendant(manifests, {.includingSelf = false}, [&](NodeNumber node) {
        if (!isPlainFile(tree, node)) return;
        if (auto name = ollamaModelName(pathBelow(tree, node, manifests))) {
            models.emplace_back(*std::move(name), node);
        }
    });
    std::ranges::sort(models);
    CountedNodes counted(tree);
    StoreFiles files(tree);
    for (const auto& [name, manifest] : models) {
        if (cancel.stop_requested()) return;
        const auto bytes = files.read(manifest);
        const auto listed = bytes ? ollamaBlobNames(*bytes) : std::nullopt;
        if (!listed) continue;
        for (const std::string& blob : *listed) {
            const auto found = blobsByName.find(blob);
            if (found != blobsByName.end()) sums.add(name, counted.take(found->second));
        }
    }
}

void addOllamaUnits(const DiskTree& tree, UnitSums& sums, const CancelToken& cancel) {
    // A service of the system has its models further down, below the home of its own user.
    for (const std::string_view models : {"", "models", ".ollama/models"}) {
        const auto folder = nodeBelow(tree, models);
        if (!folder) continue;
        const auto manifests = tree.child(*folder, "manifests");
        const auto blobs = tree.child(*folder, "blobs");
        if (manifests && blobs) addOllamaUnitsOf(tree, *manifests, *blobs, sums, cancel);
    }
}

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

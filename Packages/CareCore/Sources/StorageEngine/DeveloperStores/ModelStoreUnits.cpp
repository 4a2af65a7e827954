#include <algorithm>
#include <bit>
#include <cstddef>
#include <functional>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "Base/PathText.h"
#include "Base/Saturating.h"
#include "StorageEngine/DeveloperStores/StoreManifests.h"
#include "StorageEngine/DeveloperStores/StoreTrees.h"

namespace tidyro {

namespace {

std::optional<NodeNumber> nodeBelow(const DiskTree& tree, std::string_view path) {
    NodeNumber node = DiskTree::root;
    for (const std::string_view name : path::components(path)) {
        const auto next = tree.child(node, name);
        if (!next) return std::nullopt;
        node = *next;
    }
    return node;
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
        struct Listed {
            std::size_t revision;
            NodeNumber node;
            std::optional<NodeNumber> file = std::nullopt;
        };
        const std::vector<NodeNumber> revisions = this->revisions();
        std::vector<Listed> listed;
        for (std::size_t i = 0; i < revisions.size(); ++i) {
            tree_.forEachDescendant(revisions[i], {.includingSelf = false}, [&](NodeNumber node) {
                if (!tree_.isDirectory(node)) listed.push_back({.revision = i, .node = node});
            });
        }
        readEach(tree_, listed.size(), cancel, [&](StoreFiles& files, std::size_t number) {
            Listed& one = listed[number];
            one.file = isPlainFile(tree_, one.node) ? one.node : blobOf(files, one.node);
        });
        std::vector<std::uint64_t> bytes(revisions.size());
        for (const Listed& one : listed) { // each counts for the first revision that has it
            if (!one.file) continue;
            bytes[one.revision] = saturatingAdd(bytes[one.revision], counted_.take(*one.file));
        }
        for (std::size_t i = 0; i < revisions.size(); ++i) {
            sums.add(name + "@" + std::string(tree_.nameBytes(revisions[i])), bytes[i]);
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
    [[nodiscard]] std::optional<NodeNumber> blobOf(StoreFiles& files, NodeNumber link) const {
        std::size_t depth = 0;
        for (NodeNumber up = tree_.parent(link); up != repository_; up = tree_.parent(up)) ++depth;
        const auto target = files.linkTarget(link);
        const auto name = target ? huggingFaceBlob(*target, depth) : std::nullopt;
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
    std::vector<std::vector<NodeNumber>> blobsOf(models.size());
    readEach(tree, models.size(), cancel, [&](StoreFiles& files, std::size_t number) {
        const auto bytes = files.read(models[number].second);
        const auto listed = bytes ? ollamaBlobNames(*bytes) : std::nullopt;
        if (!listed) return;
        for (const std::string& blob : *listed) {
            const auto found = blobsByName.find(blob);
            if (found != blobsByName.end()) blobsOf[number].push_back(found->second);
        }
    });
    CountedNodes counted(tree);
    for (std::size_t i = 0; i < models.size(); ++i) {
        for (const NodeNumber blob : blobsOf[i]) sums.add(models[i].first, counted.take(blob));
    }
}

} // namespace

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

void addHuggingFaceUnits(const DiskTree& tree, UnitSums& sums, const CancelToken& cancel) {
    struct Repository {
        std::uint64_t bytes;
        NodeNumber node;
        std::string name;
    };
    std::vector<Repository> repositories;
    for (const NodeNumber child : tree.children(DiskTree::root)) {
        auto name = huggingFaceRepository(tree.nameBytes(child));
        if (!name || !tree.isDirectory(child)) continue;
        repositories.push_back(
            {.bytes = tree.size(child, unitsOnDisk), .node = child, .name = *std::move(name)});
    }
    // Reading its links takes longer than finding them did, and no unit is larger than its
    // repository: the small ones need not be read.
    std::ranges::sort(repositories, std::ranges::greater{}, &Repository::bytes);
    CountedNodes counted(tree);
    StoreFiles files(tree);
    std::size_t done = 0; // to ask after each would take long where there are many
    for (const Repository& repository : repositories) {
        if (cancel.stop_requested()) return;
        if (std::has_single_bit(++done) && sums.areAllShownLargerThan(repository.bytes)) return;
        HuggingFaceRepositoryUnits(tree, repository.node, counted, files)
            .addTo(sums, repository.name, cancel);
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

} // namespace tidyro

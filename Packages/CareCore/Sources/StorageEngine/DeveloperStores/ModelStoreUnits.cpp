#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>
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
    CountedNodes counted(tree);
    StoreFiles files(tree);
    for (const NodeNumber child : tree.children(DiskTree::root)) {
        const auto name = huggingFaceRepository(tree.nameBytes(child));
        if (!name || !tree.isDirectory(child)) continue;
        HuggingFaceRepositoryUnits(tree, child, counted, files).addTo(sums, *name, cancel);
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

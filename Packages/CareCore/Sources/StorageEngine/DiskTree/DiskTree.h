#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <ranges>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Base/FileURL.h"
#include "Base/Timestamp.h"
#include "StorageEngine/DiskTree/ContentKind.h"
#include "StorageEngine/DiskTree/DiskTreeColumns.h"

namespace tidyro {

/// The result of reading one folder or volume: every file, folder, package and link below a root
/// with its sizes, dates, kind and flags.
///
///     std::string list;
///     for (const NodeNumber node : tree.largestFiles({.limit = 10, .onDisk = true})) {
///         list += RoomText::bytes(tree.size(node, {.onDisk = true})) + " ";
///         list += tree.path(node) + "\n";
///     }
///
/// A disk holds millions of items, so the tree is a set of parallel columns and an item is a
/// number: `bytesPerNode` and its name. The root is node 0, and the children of a node are
/// consecutive; beyond that the order of nodes means nothing.
///
/// Sizes are bytes, allocated ones with `onDisk` and logical ones without. The size of a folder is
/// the total of its subtree: folders themselves count nothing, a link counts its own few bytes, and
/// a file with several hard links counts once. A tree does not change, so any number of threads may
/// read it. A number that is no node of the tree is a programming fault and stops the program.
class DiskTree {
  public:
    using Flags = DiskTreeFlags;
    using Columns = DiskTreeColumns;

    /// Takes complete columns: those of nodes are equally long, and `totalSubtrees` has run.
    explicit DiskTree(Columns columns);

    static constexpr NodeNumber root = 0;

    [[nodiscard]] NodeNumber count() const noexcept {
        return static_cast<NodeNumber>(columns_.parent.size());
    }
    [[nodiscard]] const Columns& columns() const noexcept { return columns_; }
    [[nodiscard]] const FileURL& rootURL() const noexcept { return columns_.rootURL; }
    [[nodiscard]] double duration() const noexcept { return columns_.duration; } ///< seconds
    [[nodiscard]] Timestamp finishedAt() const noexcept { return columns_.finishedAt; }
    /// Folders that could not be read.
    [[nodiscard]] std::int64_t deniedCount() const noexcept { return columns_.deniedCount; }

    /// Which sizes a query goes by.
    struct Measure {
        bool onDisk; ///< true: allocated bytes, false: logical ones
    };

    // One node -------------------------------------------------------------------------------

    [[nodiscard]] std::uint64_t size(NodeNumber node, Measure measure) const;
    [[nodiscard]] ContentKind kind(NodeNumber node) const { return columns_.kind[at(node)]; }
    [[nodiscard]] Flags flags(NodeNumber node) const { return columns_.flags[at(node)]; }
    [[nodiscard]] bool isDirectory(NodeNumber node) const {
        return flags(node).contains(Flags::directory);
    }
    /// How many nodes below this one are no folders.
    [[nodiscard]] std::uint32_t fileCount(NodeNumber node) const {
        return columns_.fileCount[at(node)];
    }
    /// How many nodes below this one are folders.
    [[nodiscard]] std::uint32_t folderCount(NodeNumber node) const {
        return columns_.folderCount[at(node)];
    }
    /// The name's bytes as they are on disk; valid as long as the tree.
    [[nodiscard]] std::string_view nameBytes(NodeNumber node) const;
    /// The name as text, invalid UTF-8 replaced.
    [[nodiscard]] std::string name(NodeNumber node) const;
    /// The absolute path, its bytes as they are on disk, built on demand.
    [[nodiscard]] std::string path(NodeNumber node) const;
    [[nodiscard]] FileURL url(NodeNumber node) const;
    [[nodiscard]] Timestamp modifiedDate(NodeNumber node) const;
    /// The later of the last modification and the last access, seconds since 1970.
    [[nodiscard]] std::uint32_t lastUsedSeconds(NodeNumber node) const;
    [[nodiscard]] Timestamp lastUsedDate(NodeNumber node) const;

    // The nodes above and below it ------------------------------------------------------------

    /// Negative for the root.
    [[nodiscard]] NodeNumber parent(NodeNumber node) const { return columns_.parent[at(node)]; }
    [[nodiscard]] std::ranges::iota_view<NodeNumber, NodeNumber> children(NodeNumber node) const;
    /// The chain of parents up to the root, nearest first.
    [[nodiscard]] std::vector<NodeNumber> ancestors(NodeNumber node) const;
    /// Children by size, largest first; equal sizes in no particular order.
    [[nodiscard]] std::vector<NodeNumber> sortedChildren(NodeNumber node, Measure measure) const;
    /// Size divided by the parent's; 0 for the root and below a parent of size 0.
    [[nodiscard]] double shareOfParent(NodeNumber node, Measure measure) const;
    /// The node of an absolute path, none when the path is not in the tree.
    [[nodiscard]] std::optional<NodeNumber> index(std::string_view path) const;
    /// The child of this name.
    [[nodiscard]] std::optional<NodeNumber> child(NodeNumber folder, std::string_view name) const;
    struct Visit {
        bool includingSelf;
    };
    /// Visits every node of the subtree once, those that were moved away too.
    void forEachDescendant(NodeNumber node, Visit visit,
                           const std::function<void(NodeNumber)>& body) const;
    /// Whether the node's folder or one above it, but none above `below`, holds a ".git". False
    /// for a number that is no node.
    [[nodiscard]] bool isInGitWorkingCopy(NodeNumber node,
                                          std::optional<NodeNumber> below = std::nullopt) const;

    // Rankings: largest first, nothing that was moved away -------------------------------------

    struct Ranking {
        NodeNumber under = root;
        std::int64_t limit;
        bool onDisk;
    };
    using Accept = std::function<bool(NodeNumber)>;

    /// Nodes that are no folders; with `where`, only those for which it is true.
    [[nodiscard]] std::vector<NodeNumber> largestFiles(const Ranking& ranking,
                                                       const Accept& where = nullptr) const;
    [[nodiscard]] std::vector<NodeNumber> largestFolders(const Ranking& ranking) const;
    /// Files of at least `minimumBytes` whose last use lies before `since` (seconds since 1970).
    [[nodiscard]] std::vector<NodeNumber>
    untouchedFiles(const Ranking& ranking, std::uint32_t since, std::uint64_t minimumBytes) const;
    /// Nodes whose lower-cased name contains the lower-cased text.
    [[nodiscard]] std::vector<NodeNumber> matching(std::string_view name,
                                                   const Ranking& ranking) const;

    // Sums over a subtree, the node itself included, nothing that was moved away ---------------

    /// Bytes of files by kind, indexed by the kind's raw value.
    [[nodiscard]] std::array<std::uint64_t, contentKindCount> bytesByKind(NodeNumber under,
                                                                          Measure measure) const;
    /// The bytes that the file system saves by compressing files: logical minus allocated ones.
    [[nodiscard]] std::uint64_t compressionSavings(NodeNumber node) const;
    /// What further clones would take in addition, in whole blocks of 4 KiB, if each had all of its
    /// blocks for itself.
    [[nodiscard]] std::uint64_t cloneSavings(NodeNumber node) const;
    [[nodiscard]] bool hasSharedStorage() const;
    [[nodiscard]] std::uint64_t sharedStorageBytes(NodeNumber node, Measure measure) const;

    // Other trees ------------------------------------------------------------------------------

    /// A copy of the tree without the items at these paths: they stay as nodes, are flagged
    /// `movedAway` and leave every total above them. Paths that are not in the tree change
    /// nothing.
    [[nodiscard]] DiskTree removing(const std::set<std::string>& paths) const;

    struct ExampleFile {
        std::string path; ///< relative to the root, or absolute inside it
        std::uint64_t bytes;
        std::optional<std::uint64_t> allocatedBytes = std::nullopt; ///< `bytes` when absent
        Timestamp modified = Timestamp::since1970(0);
        std::optional<Timestamp> accessed = std::nullopt;
    };
    /// A small tree made by hand, with the folders that the paths name. When two files have one
    /// path the later counts. A path that runs through a file is passed over.
    [[nodiscard]] static DiskTree example(const FileURL& rootURL,
                                          const std::vector<ExampleFile>& files);

  private:
    [[nodiscard]] std::size_t at(NodeNumber node) const;
    [[nodiscard]] const GrowingArray<std::uint64_t>& sizes(Measure measure) const {
        return measure.onDisk ? columns_.allocatedSize : columns_.logicalSize;
    }
    /// Whether it was moved away, by itself or with a folder above it.
    [[nodiscard]] bool isGone(NodeNumber node) const;
    template <class Body>
    void forEachPresent(NodeNumber node, Body body) const;
    template <class AcceptNode>
    [[nodiscard]] std::vector<NodeNumber> largest(const Ranking& ranking, AcceptNode accept) const;
    template <class Amount>
    [[nodiscard]] std::uint64_t summed(NodeNumber node, Amount amount) const;

    Columns columns_;
};

} // namespace tidyro

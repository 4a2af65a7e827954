#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/Cancellation.h"
#include "Base/Saturating.h"
#include "Base/StringTable.h"
#include "Base/SystemError.h"
#include "Platform/Folders/FolderReading.h"
#include "StorageEngine/DeveloperStores/StoreUnits.h"
#include "StorageEngine/DiskTree/DiskTree.h"

/// What the units of all kinds of stores are found with. Only this room uses it.
namespace tidyro {

inline constexpr DiskTree::Measure unitsOnDisk{.onDisk = true};

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

    /// Those that people are shown, as `largestStoreUnits` orders them.
    [[nodiscard]] std::vector<DeveloperStoreUnit> largest() const;
    /// Whether a unit of so many bytes would not be shown, nor any smaller one.
    [[nodiscard]] bool areAllShownLargerThan(std::uint64_t bytes) const;

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

/// Whether a node is neither a folder nor a link.
[[nodiscard]] inline bool isPlainFile(const DiskTree& tree, NodeNumber node) {
    return !tree.isDirectory(node) && !tree.flags(node).contains(DiskTreeFlags::symlink);
}

/// The path of a node below another one.
[[nodiscard]] std::string pathBelow(const DiskTree& tree, NodeNumber node, NodeNumber top);

/// Reads files of a store that was scanned. It remembers the folder of the last one, since the next
/// mostly lies there too. Used by one thread.
class StoreFiles {
  public:
    explicit StoreFiles(const DiskTree& tree)
        : tree_(tree), store_(platform::FolderDescriptor::openRoot(tree.rootURL().path())) {}

    /// The whole file; none when it cannot be read, or is longer than a list ever is. No link is
    /// followed below the store.
    [[nodiscard]] std::optional<std::string> read(NodeNumber file);
    /// Where a symbolic link leads, as it was written.
    [[nodiscard]] std::optional<std::string> linkTarget(NodeNumber link);

  private:
    [[nodiscard]] const platform::FolderDescriptor* folderOf(NodeNumber folder);

    const DiskTree& tree_;
    std::expected<platform::FolderDescriptor, SystemError> store_;
    std::optional<platform::FolderDescriptor> lastFolder_;
    NodeNumber last_ = -1;
};

/// Calls `read` for each number below `count`, unless it is cancelled before: on several threads
/// when there are many, since reading a small file or a link mostly waits for the system.
void readEach(const DiskTree& tree, std::size_t count, const CancelToken& cancel,
              const std::function<void(StoreFiles& files, std::size_t number)>& read);

// One function for each kind of store whose units are more than folders. Each adds what it finds.

void addTorchUnits(const DiskTree& tree, UnitSums& sums);
void addHuggingFaceUnits(const DiskTree& tree, UnitSums& sums, const CancelToken& cancel);
void addOllamaUnits(const DiskTree& tree, UnitSums& sums, const CancelToken& cancel);
void addPnpmUnits(const DiskTree& tree, UnitSums& sums, const CancelToken& cancel);
void addCondaUnits(const DiskTree& tree, UnitSums& sums);
void addGoUnits(const DiskTree& tree, UnitSums& sums);

} // namespace tidyro

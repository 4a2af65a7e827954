#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "Base/FileURL.h"
#include "Base/Timestamp.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "StorageEngine/DiskTree/DiskTree.h"
#include "StorageEngine/Sorting/DiskGroup.h"
#include "StorageEngine/Sorting/ProjectFolderJudge.h"

namespace tidyro {

/// Sorts the items of a tree into the groups of Cleanup.
///
///     const auto options = DiskSorting::Options::current();
///     const DiskSorting sorting(tree, ProjectFolderJudge::live(), options);
///     for (const DiskGroup group : allCases<DiskGroup>()) {
///         report += std::string(title(group)) + ": ";
///         report += RoomText::bytes(sorting.bytes(group)) + "\n";
///     }
///
/// The sorting goes down from the root and places an item in the first group that takes it. Nothing
/// inside a placed item is placed again, so each byte counts once, and nothing that was moved away
/// is placed at all. The result holds node numbers of the tree and does not keep the tree.
class DiskSorting {
  public:
    struct Options {
        FileURL home;
        Timestamp now;
        platform::TrashPlaces trash;
        /// This user's home and Trash, now.
        [[nodiscard]] static Options current();
    };

    DiskSorting(const DiskTree& tree, const ProjectFolderJudge& judge, const Options& options);

    [[nodiscard]] std::span<const NodeNumber> items(DiskGroup group) const {
        return items_[static_cast<std::size_t>(group)];
    }
    /// Bytes on disk of the group's items.
    [[nodiscard]] std::uint64_t bytes(DiskGroup group) const {
        return bytes_[static_cast<std::size_t>(group)];
    }

  private:
    std::array<std::vector<NodeNumber>, diskGroupCount> items_;
    std::array<std::uint64_t, diskGroupCount> bytes_{};
};

} // namespace tidyro

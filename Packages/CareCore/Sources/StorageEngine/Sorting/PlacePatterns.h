#pragma once

#include <functional>
#include <span>
#include <string_view>
#include <vector>

#include "StorageEngine/DiskTree/DiskTree.h"
#include "StorageEngine/Sorting/KnownPlaces.h"

namespace tidyro {

/// Finds the items of places in a tree. A place is a pattern below a base folder, which is the home
/// or the top of a volume. The tree may hold the base, begin at it, or begin somewhere inside it.
/// Keeps a reference to the tree.
class PlacePatterns {
  public:
    PlacePatterns(const DiskTree& tree, std::string_view base);

    /// Calls `found` with each folder of the tree that the pattern stands for or, with `eachChild`,
    /// with each child of these folders. The root of the tree may be such a folder or child.
    void forEachItem(std::string_view pattern, KnownPlace::Unit unit,
                     const std::function<void(NodeNumber)>& found) const;

  private:
    void descend(NodeNumber from, std::span<const std::string_view> pattern, KnownPlace::Unit unit,
                 const std::function<void(NodeNumber)>& found) const;

    const DiskTree& tree_;
    std::optional<NodeNumber> base_; ///< the base's node, where the tree holds it
    /// The root's components below the base, where the tree lies inside it.
    std::optional<std::vector<std::string_view>> inside_;
};

} // namespace tidyro

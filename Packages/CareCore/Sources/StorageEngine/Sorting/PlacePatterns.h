#pragma once

#include <functional>
#include <span>
#include <string_view>
#include <vector>

#include "StorageEngine/DiskTree/DiskTree.h"
#include "StorageEngine/Sorting/KnownPlaces.h"

namespace tidyro {

/// Where patterns of places below one folder (the home, the top of a volume) meet a tree, whether
/// the tree holds that folder, is it, or lies somewhere inside it.
class PlacePatterns {
  public:
    PlacePatterns(const DiskTree& tree, std::string_view base);

    /// Calls `found` with each folder of the tree at the pattern (whole place) or with each child
    /// of such folders (each child). A root that is itself such a place or child counts.
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

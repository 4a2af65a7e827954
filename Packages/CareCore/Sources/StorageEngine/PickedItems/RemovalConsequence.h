#pragma once

#include <optional>
#include <string_view>

#include "CareDomain/CleanupCategory.h"
#include "StorageEngine/Sorting/DiskGroup.h"

namespace tidyro {

/// What removing an item loses, in one plain sentence.
struct RemovalConsequence {
    /// By the disk group where there is one, because it is told from the item's own place, else by
    /// the category.
    [[nodiscard]] static std::string_view sentence(std::optional<DiskGroup> forSpaceSort,
                                                   CleanupCategory category);
};

} // namespace tidyro

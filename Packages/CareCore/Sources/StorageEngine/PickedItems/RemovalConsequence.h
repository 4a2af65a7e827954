#pragma once

#include <optional>
#include <string_view>

#include "CareDomain/CleanupCategory.h"
#include "StorageEngine/Sorting/DiskGroup.h"

namespace tidyro {

/// Tells in one plain sentence what is lost when an item is removed.
struct RemovalConsequence {
    /// The group that the item was sorted into decides where there is one, because it follows from
    /// the item's own place; otherwise the category does.
    [[nodiscard]] static std::string_view sentence(std::optional<DiskGroup> group,
                                                   CleanupCategory category);
};

} // namespace tidyro

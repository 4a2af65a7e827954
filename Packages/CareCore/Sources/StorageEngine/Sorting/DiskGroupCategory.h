#pragma once

#include "CareDomain/CleanupCategory.h"
#include "StorageEngine/Sorting/DiskGroup.h"

namespace tidyro {

/// What a plan calls the items of a group.
[[nodiscard]] CleanupCategory categoryOf(DiskGroup group);

} // namespace tidyro

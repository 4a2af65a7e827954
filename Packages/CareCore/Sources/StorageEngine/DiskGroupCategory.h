#pragma once

#include "CareDomain/CleanupCategory.h"
#include "StorageEngine/DiskTree/DiskGroup.h"

namespace tidyro {

/// What a plan calls the items of a group.
[[nodiscard]] CleanupCategory categoryOf(DiskGroup group);

} // namespace tidyro

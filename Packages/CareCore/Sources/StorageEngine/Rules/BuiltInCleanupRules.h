#pragma once

#include <vector>

#include "Base/FileURL.h"
#include "StorageEngine/Rules/CleanupAgeFloor.h"
#include "StorageEngine/Rules/CleanupRule.h"

namespace tidyro {

/// The shipped rules bound to a home, in the registry's order, with the person's age floor applied.
/// One whose folder is reached from the home through a link grants nothing.
struct BuiltInCleanupRules {
    /// All 89, whether their folders exist or not.
    [[nodiscard]] static std::vector<CleanupRule>
    allLocations(const FileURL& home, CleanupAgeFloor ageFloor = CleanupAgeFloor::recommended);

    /// Those whose root is a folder, or may be one that is closed to us, for a scan to walk.
    [[nodiscard]] static std::vector<CleanupRule>
    scannableLocations(const FileURL& home,
                       CleanupAgeFloor ageFloor = CleanupAgeFloor::recommended);

    /// The list by which authorizations of this person are verified.
    [[nodiscard]] static std::vector<CleanupRule>
    currentUser(const FileURL& home, CleanupAgeFloor ageFloor = CleanupAgeFloor::recommended) {
        return allLocations(home, ageFloor);
    }
};

} // namespace tidyro

#pragma once

#include <vector>

#include "Base/FileURL.h"
#include "Base/SystemTexts.h"
#include "Platform/Machine/OperatingSystem.h"
#include "StorageEngine/Rules/CleanupAgeFloor.h"
#include "StorageEngine/Rules/CleanupRule.h"

namespace tidyro {

/// The shipped rules bound to a home, in the registry's order, with the person's age floor applied.
/// A rule grants nothing when its folder is reached from the home through a link. Making the rules
/// asks the disk where their folders really lie.
///
///     for (const CleanupRule& location : BuiltInCleanupRules::scannableLocations(home)) {
///         roots.push_back(location.rootPath());
///     }
struct BuiltInCleanupRules {
    /// All of them, whether their folders exist or not. A row with a "*" gives one for each folder
    /// that is there now.
    [[nodiscard]] static std::vector<CleanupRule>
    allLocations(const FileURL& home, CleanupAgeFloor ageFloor = CleanupAgeFloor::recommended,
                 OperatingSystem system = platform::operatingSystem());

    /// Those that a scan walks: their root is a folder, or the system does not say what it is.
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

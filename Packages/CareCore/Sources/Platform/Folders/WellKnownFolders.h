#pragma once

#include <string>
#include <vector>

#include "Base/FileURL.h"

namespace tidyro::platform {

/// The home of the person who runs the program.
[[nodiscard]] FileURL homeFolder();

/// Where applications keep their own files: "Library/Application Support" below the home on macOS,
/// $XDG_DATA_HOME or ".local/share" below the home on Linux. It need not exist.
[[nodiscard]] FileURL applicationSupportFolder();

/// The folders whose children are the items in the Trash.
struct TrashPlaces {
    FileURL home;                         ///< this person's
    std::vector<std::string> belowVolume; ///< paths below the top of each volume, for this user
};
[[nodiscard]] TrashPlaces trashPlaces();

} // namespace tidyro::platform

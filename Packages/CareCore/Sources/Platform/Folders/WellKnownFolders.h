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

/// Where the Trash keeps what was moved there: the children of these folders are its items.
struct TrashPlaces {
    FileURL home;                         ///< this person's
    std::vector<std::string> belowVolume; ///< from the top of each volume, for this user
};
[[nodiscard]] TrashPlaces trashPlaces();

} // namespace tidyro::platform

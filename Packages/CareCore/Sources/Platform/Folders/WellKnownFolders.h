#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Base/FileURL.h"

namespace tidyro::platform {

/// The home of the person who runs the program.
[[nodiscard]] FileURL homeFolder();

/// Where applications keep their own files: "Library/Application Support" below the home on macOS,
/// $XDG_DATA_HOME or ".local/share" below the home on Linux. It need not exist.
[[nodiscard]] FileURL applicationSupportFolder();

/// The folder that a variable of the environment names. None when it is not set, or when what it
/// says is no absolute path.
[[nodiscard]] std::optional<std::string> folderNamedBy(const char* variable);

/// Where the environment puts the folders for programs' files, when it moves them from their usual
/// places in the home. Only desktops of Linux know such a thing. Nothing is said of what they name:
/// it may be any absolute path.
struct MovedFolders {
    std::optional<std::string> caches = std::nullopt;   ///< usually ".cache"
    std::optional<std::string> settings = std::nullopt; ///< usually ".config"
    std::optional<std::string> data = std::nullopt;     ///< usually ".local/share"

    bool operator==(const MovedFolders&) const = default;
};
[[nodiscard]] MovedFolders movedFolders();

/// The folders whose children are the items in the Trash.
struct TrashPlaces {
    FileURL home;                         ///< this person's
    std::vector<std::string> belowVolume; ///< paths below the top of each volume, for this user
};
[[nodiscard]] TrashPlaces trashPlaces();

} // namespace tidyro::platform

#include "Platform/Folders/WellKnownFolders.h"

#include <unistd.h>

namespace tidyro::platform {

FileURL applicationSupportFolder() {
    return homeFolder().appendingFolder("Library/Application Support");
}

MovedFolders movedFolders() { return {}; }

TrashPlaces trashPlaces() {
    return {.home = homeFolder().appendingFolder(".Trash"),
            .belowVolume = {".Trashes/" + std::to_string(::getuid())}};
}

} // namespace tidyro::platform

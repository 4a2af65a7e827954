#include "Platform/Folders/WellKnownFolders.h"

#include <unistd.h>

namespace tidyro::platform {

MovedFolders movedFolders() {
    return {.caches = folderNamedBy("XDG_CACHE_HOME"),
            .settings = folderNamedBy("XDG_CONFIG_HOME"),
            .data = folderNamedBy("XDG_DATA_HOME")};
}

FileURL applicationSupportFolder() {
    if (const auto data = folderNamedBy("XDG_DATA_HOME")) return FileURL::folder(*data);
    return homeFolder().appendingFolder(".local/share");
}

TrashPlaces trashPlaces() {
    const std::string user = std::to_string(::getuid());
    return {.home = applicationSupportFolder().appendingFolder("Trash/files"),
            .belowVolume = {".Trash/" + user + "/files", ".Trash-" + user + "/files"}};
}

} // namespace tidyro::platform

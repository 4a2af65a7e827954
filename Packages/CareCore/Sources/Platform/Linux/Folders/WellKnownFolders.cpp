#include "Platform/Folders/WellKnownFolders.h"

#include <unistd.h>

#include "Base/PathText.h"

namespace tidyro::platform {

MovedFolders movedFolders() {
    return {.caches = folderNamedBy("XDG_CACHE_HOME"),
            .settings = folderNamedBy("XDG_CONFIG_HOME"),
            .data = folderNamedBy("XDG_DATA_HOME")};
}

FileURL applicationSupportFolder() {
    FileURL usual = homeFolder().appendingFolder(".local/share");
    const auto data = folderNamedBy("XDG_DATA_HOME");
    if (!data) return usual;
    // The terminal of a packaged editor hands on the folder that its package has for itself. What
    // would be put there goes with the package, and no desktop looks for a Trash in it.
    FileURL given = FileURL::folder(*data);
    for (const char* packages : {"snap", ".var/app"}) {
        if (path::isInsideOrEqual(given.path(), homeFolder().appending(packages).path())) {
            return usual;
        }
    }
    return given;
}

TrashPlaces trashPlaces() {
    const std::string user = std::to_string(::getuid());
    return {.home = applicationSupportFolder().appendingFolder("Trash/files"),
            .belowVolume = {".Trash/" + user + "/files", ".Trash-" + user + "/files"}};
}

} // namespace tidyro::platform

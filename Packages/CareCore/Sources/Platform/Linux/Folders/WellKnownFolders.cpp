#include "Platform/Folders/WellKnownFolders.h"

#include <cstdlib>

#include <unistd.h>

namespace tidyro::platform {

FileURL applicationSupportFolder() {
    // XDG Base Directory: a relative path there is to be ignored.
    const char* data = std::getenv("XDG_DATA_HOME"); // NOLINT(concurrency-mt-unsafe)
    if (data != nullptr && data[0] == '/') return FileURL::folder(data);
    return homeFolder().appendingFolder(".local/share");
}

TrashPlaces trashPlaces() {
    const std::string user = std::to_string(::getuid());
    return {.home = applicationSupportFolder().appendingFolder("Trash/files"),
            .belowVolume = {".Trash/" + user + "/files", ".Trash-" + user + "/files"}};
}

} // namespace tidyro::platform

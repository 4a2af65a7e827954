#include "Rooms/Duplicates/Choosing/CleanupQueue.h"

#include "Base/PathText.h"

namespace tidyro {

bool covers(const PathSet& paths, std::string_view path) {
    if (paths.empty()) return false;
    while (!paths.contains(path)) {
        if (path == "/") return false;
        path = path::parent(path);
    }
    return true;
}

} // namespace tidyro

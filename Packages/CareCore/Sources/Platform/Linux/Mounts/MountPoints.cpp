#include "Platform/Mounts/MountPoints.h"

#include <filesystem>
#include <system_error>

#include "Base/PathText.h"
#include "Platform/Linux/Mounts/MountTable.h"

namespace tidyro::platform {

std::set<std::string> mountPointsBelow(const FolderDescriptor& folder) {
    // The kernel's own name of the folder: its table has no links in its paths.
    std::error_code failed;
    const std::string root =
        std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(folder.fd()), failed)
            .string();
    const auto mounts = mountTable();
    std::set<std::string> places;
    if (failed || !mounts) return places;
    for (const MountTableEntry& mount : *mounts) {
        if (mount.path != root && path::isInsideOrEqual(mount.path, root)) {
            places.emplace(path::below(mount.path, root));
        }
    }
    return places;
}

} // namespace tidyro::platform

#include "Platform/Mounts/MountPoints.h"

#include <filesystem>
#include <map>
#include <system_error>
#include <utility>
#include <vector>

#include "Base/PathText.h"
#include "Platform/Linux/Mounts/MountTable.h"

namespace tidyro::platform {

namespace {

/// The mounts below a folder by their paths relative to it, the lower of two on one point first.
using Below = std::vector<std::pair<std::string, MountTableEntry>>;

Below mountEntriesBelow(const FolderDescriptor& folder, std::vector<MountTableEntry> mounts) {
    // The kernel's own name of the folder: its table has no links in its paths.
    std::error_code failed;
    const std::string root =
        std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(folder.fd()), failed)
            .string();
    Below below;
    if (failed) return below;
    for (MountTableEntry& mount : mounts) {
        if (mount.path == root || !path::isInsideOrEqual(mount.path, root)) continue;
        std::string place(path::below(mount.path, root));
        below.emplace_back(std::move(place), std::move(mount));
    }
    return below;
}

/// Whether a mount shows the very folder that it covers.
bool isOntoItself(const MountTableEntry& mount, const MountTableEntry& above) {
    if (mount.major != above.major || mount.minor != above.minor) return false;
    const std::string_view place = path::below(mount.path, above.path);
    return path::isInsideOrEqual(mount.path, above.path) &&
           mount.root == (place.empty() ? above.root : path::joined(above.root, place));
}

} // namespace

std::set<std::string> mountPointsBelow(const FolderDescriptor& folder) {
    std::set<std::string> places;
    auto mounts = mountTable();
    if (!mounts) return places;
    for (auto& [place, mount] : mountEntriesBelow(folder, *std::move(mounts))) {
        places.insert(std::move(place));
    }
    return places;
}

MountsBelow mountsBelow(const FolderDescriptor& folder, std::uint64_t volume) {
    MountsBelow found;
    const auto mounts = mountTable();
    if (!mounts) return found;
    // Those of the folder's own volume that were met, beginning with the one that it lies on.
    std::map<std::uint64_t, const MountTableEntry*> own;
    for (const MountTableEntry& mount : *mounts) {
        if (mount.number == volume) own[volume] = &mount;
    }
    // What is mounted later stands later, and covers what was mounted there before.
    const Below below = mountEntriesBelow(folder, *mounts);
    for (const auto& [place, mount] : below) {
        const auto above = own.find(mount.above);
        if (above != own.end() && isOntoItself(mount, *above->second)) {
            own[mount.number] = &mount;
            found.ontoThemselves.insert(mount.number);
            found.elsewhere.erase(place);
        } else {
            found.elsewhere.insert(place);
        }
    }
    return found;
}

} // namespace tidyro::platform

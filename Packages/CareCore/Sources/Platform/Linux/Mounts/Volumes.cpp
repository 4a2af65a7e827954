#include "Platform/Mounts/Volumes.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <string_view>
#include <utility>

#include <sys/sysmacros.h>

#include "Platform/Linux/Mounts/BlockDevices.h"
#include "Platform/Linux/Mounts/MountTable.h"

namespace tidyro::platform {

namespace {

/// Disks that other machines write to as well.
constexpr std::array<std::string_view, 3> sharedDisks{"gfs2", "ocfs2", "ocfs2_dlmfs"};

/// What is known of a file system, however often it is mounted.
struct Facts {
    bool isInternal;
    std::string identifier;
};

Facts volumeFactsOf(const MountTableEntry& entry, const BlockDevices& devices) {
    const bool isBtrfs = entry.fileSystem == "btrfs";
    // Major number 0 is for file systems without a block device; btrfs has one and hides it.
    std::optional<BlockDeviceNumber> device;
    if (entry.major != 0) {
        device = {.major = entry.major, .minor = entry.minor};
    } else if (isBtrfs) {
        device = blockDeviceAt(entry.source);
    }
    Facts facts{.isInternal = false,
                .identifier = std::to_string(entry.major) + ":" + std::to_string(entry.minor) +
                              ":" + entry.fileSystem};
    if (!device) return facts;
    facts.isInternal =
        isBtrfs ? devices.isInternalBtrfs(entry.source)
                : devices.isInternal(device->major, device->minor) &&
                      std::ranges::find(sharedDisks, entry.fileSystem) == sharedDisks.end();
    // Asking the mounted file system opens it, which a server that is gone never answers: only a
    // disk of this machine is asked.
    auto uuid = devices.listedUUID(device->major, device->minor);
    if (!uuid && facts.isInternal) uuid = mountedUUID(entry.path);
    if (uuid) facts.identifier = *std::move(uuid);
    return facts;
}

} // namespace

std::expected<std::vector<Volume>, SystemError> LiveVolumes::mounted() const {
    auto table = mountTable();
    if (!table) return std::unexpected(table.error());
    const BlockDevices devices;
    std::map<std::pair<std::uint64_t, std::string>, Facts> known;
    std::vector<Volume> volumes;
    volumes.reserve(table->size());
    for (MountTableEntry& entry : *table) {
        const std::uint64_t device = makedev(entry.major, entry.minor);
        const auto key = std::pair(device, entry.fileSystem);
        auto found = known.find(key);
        if (found == known.end()) found = known.emplace(key, volumeFactsOf(entry, devices)).first;
        volumes.push_back(
            {.mountPath = std::move(entry.path),
             .mount = entry.number,
             .device = device,
             // Subvolumes of btrfs and the layers of an overlay have devices of their own.
             .hasOneDevice = entry.fileSystem != "btrfs" && entry.fileSystem != "overlay",
             .identifier = found->second.identifier,
             .fileSystem = std::move(entry.fileSystem),
             .isInternalLocal = found->second.isInternal,
             .mountedFolder = std::move(entry.root)});
    }
    tellApart(volumes);
    return volumes;
}

} // namespace tidyro::platform

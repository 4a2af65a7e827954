#include "Platform/Mounts/Volumes.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include <sys/sysmacros.h>

#include "Base/PathText.h"
#include "Platform/Linux/Mounts/BlockDevices.h"
#include "Platform/Linux/Mounts/MountTable.h"

namespace tidyro::platform {

namespace {

/// Disks that other machines write to as well.
constexpr std::array<std::string_view, 3> sharedDisks{"gfs2", "ocfs2", "ocfs2_dlmfs"};

/// File systems on disks of this machine that hide them from the table of mounts.
constexpr std::array<std::string_view, 2> diskManagers{"zfs", "bcachefs"};

/// File systems without a disk that never wait for anybody.
constexpr std::array<std::string_view, 4> withoutDisk{"tmpfs", "ramfs", "devtmpfs", "overlay"};

bool isAmong(std::string_view name, std::span<const std::string_view> names) {
    return std::ranges::find(names, name) != names.end();
}

/// What is known of a file system, however often it is mounted.
struct Facts {
    bool isInternal;
    std::string identifier;
    bool isAttached = false;
};

/// Whether an image lies where no server has to be asked for it.
bool isOnThisMachine(const std::string& image, std::span<const MountTableEntry> table) {
    const MountTableEntry* around = nullptr;
    for (const MountTableEntry& entry : table) {
        if (!path::isInsideOrEqual(image, entry.path)) continue;
        if (around == nullptr || entry.path.size() >= around->path.size()) around = &entry;
    }
    return around != nullptr &&
           (around->major != 0 || around->fileSystem == "btrfs" ||
            isAmong(around->fileSystem, diskManagers) || isAmong(around->fileSystem, withoutDisk));
}

Facts volumeFactsOf(const MountTableEntry& entry, const BlockDevices& devices,
                    std::span<const MountTableEntry> table) {
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
                              ":" + entry.fileSystem,
                .isAttached = isAmong(entry.fileSystem, diskManagers)};
    if (!device) return facts;
    const bool isShared = isAmong(entry.fileSystem, sharedDisks);
    std::vector<std::string> images;
    facts.isAttached =
        !isShared && devices.isAttached(device->major, device->minor, images) &&
        std::ranges::all_of(images, [&](const auto& one) { return isOnThisMachine(one, table); });
    facts.isInternal = isBtrfs ? devices.isInternalBtrfs(entry.source)
                               : devices.isInternal(device->major, device->minor) && !isShared;
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
    for (const MountTableEntry& entry : *table) {
        const std::uint64_t device = makedev(entry.major, entry.minor);
        const auto key = std::pair(device, entry.fileSystem);
        auto found = known.find(key);
        if (found == known.end()) {
            found = known.emplace(key, volumeFactsOf(entry, devices, *table)).first;
        }
        volumes.push_back(
            {.mountPath = entry.path,
             .mount = entry.number,
             .device = device,
             // Subvolumes of btrfs and the layers of an overlay have devices of their own.
             .hasOneDevice = entry.fileSystem != "btrfs" && entry.fileSystem != "overlay",
             .identifier = found->second.identifier,
             .fileSystem = entry.fileSystem,
             .isInternalLocal = found->second.isInternal,
             .mountedFolder = entry.root});
    }
    tellApart(volumes);
    for (std::size_t i = 0; i < volumes.size(); ++i) {
        const MountTableEntry& entry = (*table)[i];
        if (!known.at({volumes[i].device, entry.fileSystem}).isAttached) continue;
        // All that is mounted from a pool of ZFS has the pool's name before the first "/".
        volumes[i].spaceIdentifier = entry.fileSystem == "zfs"
                                         ? "zfs:" + entry.source.substr(0, entry.source.find('/'))
                                         : volumes[i].identifier;
    }
    return volumes;
}

} // namespace tidyro::platform

#pragma once

#include <cstdint>
#include <expected>
#include <span>
#include <string>
#include <vector>

#include "Base/SystemError.h"
#include "Platform/Files/FileMetadata.h"

/// The mounted volumes, and which of them are disks of this machine.
namespace tidyro::platform {

struct Volume {
    std::string mountPath;
    /// A number that no other mount has: the kernel's own on Linux, the device on macOS. Good until
    /// something is mounted or unmounted.
    std::uint64_t mount;
    /// The device of the items on it, as `ItemIdentity` has it.
    std::uint64_t device;
    /// False for a file system whose items have several devices, such as btrfs with its subvolumes.
    /// Then only the mount tells that an item lies on it.
    bool hasOneDevice = true;
    /// The file system's UUID in lower case. Without a UUID it is the device and the type. Where
    /// two mounted devices carry the same UUID, the device is added. No two volumes share an
    /// identifier; a volume with a UUID of its own keeps it from run to run.
    std::string identifier;
    std::string fileSystem; ///< its type as the system calls it ("ext4", "apfs")
    /// Whether the volume lies on a disk inside this machine and nowhere else. In doubt it does
    /// not:
    ///
    /// - The network, removable disks, disks on USB, loop devices, disk images, compressed memory
    ///   and block devices that another machine serves are not internal.
    /// - Partitions, RAID and device-mapper (encryption, logical volumes) are internal when all
    ///   disks below them are.
    /// - btrfs is internal when all devices of the file system are. ZFS and bcachefs span devices
    ///   in ways of their own, so they are not known to be.
    /// - FUSE is internal only as the driver of a real block device ("fuseblk"). Behind any other
    ///   may be a server or a folder, which does not show.
    /// - overlay is not internal: removing a file of a lower layer frees nothing, but adds a note
    ///   to the upper one. tmpfs is memory and no disk.
    /// - On macOS the disk that the running system started from is internal. Images, removable
    ///   and other disks are not.
    bool isInternalLocal;
    /// The folder of the file system that is mounted there: "/" for all of it, another one for a
    /// subvolume of btrfs or a folder that is shown in a second place.
    std::string mountedFolder = "/";
    /// Names the space on a disk that the volume shares with all others of the same: with its bind
    /// mounts, with the subvolumes of one btrfs, with the volumes of one ZFS pool or APFS
    /// container. The disk is attached to this machine, inside or outside, or is an image on one.
    /// Empty for what lies in memory, on a server, or behind a driver that may wait for one.
    std::string spaceIdentifier = {};
};

/// Handed in, so that tests decide what is mounted. Any thread may ask.
class Volumes {
  public:
    virtual ~Volumes() = default;
    /// Everything that is mounted, in the order of mounting; read anew by each call. An error
    /// means that nothing is known, never that nothing is mounted.
    [[nodiscard]] virtual std::expected<std::vector<Volume>, SystemError> mounted() const = 0;
};

/// The volumes of the running system.
class LiveVolumes final : public Volumes {
  public:
    [[nodiscard]] std::expected<std::vector<Volume>, SystemError> mounted() const override;
};

/// The volume that an item lies on; none when the list does not tell it for certain.
[[nodiscard]] const Volume* volumeOf(const FileMetadata& item, std::span<const Volume> volumes);

/// Adds the device to the identifiers of volumes that share one but lie on different devices.
void tellApart(std::vector<Volume>& volumes);

} // namespace tidyro::platform

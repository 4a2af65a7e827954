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
    /// What tells this mount from the others: the kernel's number of it on Linux, the device on
    /// macOS. Good until something is mounted or unmounted.
    std::uint64_t mount;
    /// The device of the items on it, as `ItemIdentity` has it.
    std::uint64_t device;
    /// False for a file system whose items have devices of their own, such as btrfs with its
    /// subvolumes: its items are told by their mount only.
    bool hasOneDevice = true;
    /// The file system's UUID in lower case; where it has none, or two devices that are mounted
    /// carry the same one, also or only the device and the type. A volume keeps it from run to run
    /// as far as it has a UUID; no two volumes share one.
    std::string identifier;
    std::string fileSystem; ///< its type as the system calls it ("ext4", "apfs")
    /// Whether the volume lies on a disk inside this machine and nowhere else. What cannot be
    /// shown to, does not:
    ///
    /// - not the network, not a removable disk or one on USB, not a loop device or disk image, not
    ///   compressed memory, not a block device that another machine serves;
    /// - device-mapper (encryption, logical volumes), RAID and partitions are what the disks below
    ///   them are: internal when all of them are;
    /// - btrfs counts as all devices of the file system; a file system that spans devices in a way
    ///   of its own (ZFS, bcachefs) is not known to be internal;
    /// - FUSE is internal only as the driver of a real block device ("fuseblk"): what stands behind
    ///   any other, a server or a folder, does not show;
    /// - overlay is not: removing a file of a lower layer frees nothing, it costs a note in the
    ///   upper one. tmpfs is memory, no disk;
    /// - on macOS internal is what shares the disk that the running system started from; images,
    ///   removable and other disks are not.
    bool isInternalLocal;
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

/// The volume that an item lies on; none when the list has none for it for certain.
[[nodiscard]] const Volume* volumeOf(const FileMetadata& item, std::span<const Volume> volumes);

/// Gives volumes that share an identifier but not a device one each, by their devices.
void tellApart(std::vector<Volume>& volumes);

} // namespace tidyro::platform

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidyro::platform {

/// Tells from the kernel's device tree on which disks a file system lies.
class BlockDevices {
  public:
    /// The folders are the system's own, except in tests.
    explicit BlockDevices(std::string sys = "/sys", std::string byUUID = "/dev/disk/by-uuid")
        : sys_(std::move(sys)), byUUID_(std::move(byUUID)) {}

    /// Whether a block device lies on disks inside this machine and on nothing else: see
    /// `Volume::isInternalLocal`. False for a device that is not in the tree.
    [[nodiscard]] bool isInternal(std::uint32_t major, std::uint32_t minor) const;

    /// The same for a btrfs, by one of its devices ("/dev/sda2"): all of its devices count.
    [[nodiscard]] bool isInternalBtrfs(const std::string& device) const;

    /// Whether a block device lies on disks that are attached to this machine, inside or outside,
    /// and on images, whose paths are added. False for one that another machine serves, for memory,
    /// and for a device that is not in the tree.
    [[nodiscard]] bool isAttached(std::uint32_t major, std::uint32_t minor,
                                  std::vector<std::string>& images) const;

    /// The file system's UUID from the system's list of them, in lower case; none when the device
    /// is not in it.
    [[nodiscard]] std::optional<std::string> listedUUID(std::uint32_t major,
                                                        std::uint32_t minor) const;

  private:
    [[nodiscard]] bool isInternalFolder(const std::string& folder, int depth) const;
    [[nodiscard]] bool isAttachedFolder(const std::string& folder, int depth,
                                        std::vector<std::string>& images) const;
    [[nodiscard]] bool isInternalDisk(const std::string& folder) const;

    std::string sys_;
    std::string byUUID_;
};

/// The UUID that the mounted file system itself tells, as 8-4-4-4-12 lower-case digits. None when
/// the kernel or the file system does not tell one, and for all zeros, which identify nothing.
[[nodiscard]] std::optional<std::string> mountedUUID(const std::string& mountPath);

struct BlockDeviceNumber {
    std::uint32_t major;
    std::uint32_t minor;
    bool operator==(const BlockDeviceNumber&) const = default;
};
/// The number of the block device at a path; none when none is there.
[[nodiscard]] std::optional<BlockDeviceNumber> blockDeviceAt(const std::string& path);

} // namespace tidyro::platform

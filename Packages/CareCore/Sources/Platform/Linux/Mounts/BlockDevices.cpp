#include "Platform/Linux/Mounts/BlockDevices.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "Base/PathText.h"
#include "Base/UUID.h"
#include "Base/UnicodeText.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Linux/Files/KernelText.h"

namespace tidyro::platform {

namespace {

namespace fs = std::filesystem;

constexpr int maxLayers = 16; // of devices upon devices

/// The names in a folder; none when it cannot be read to its end.
std::optional<std::vector<std::string>> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code failed;
    for (fs::directory_iterator at(folder, failed), end; !failed && at != end;
         at.increment(failed)) {
        names.push_back(at->path().filename().string());
    }
    if (failed) return std::nullopt;
    return names;
}

bool exists(const std::string& path) {
    std::error_code failed;
    return fs::exists(path, failed);
}

/// A namespace of NVMe disks that may be reached in several ways has a folder of its own; the
/// controllers, which know how they are attached, are linked beside it.
bool areNVMeControllersInside(const std::string& subsystem) {
    const auto names = namesIn(subsystem);
    if (!names) return false;
    bool hasOne = false;
    for (const std::string& name : *names) {
        const std::string transport = path::joined(path::joined(subsystem, name), "transport");
        if (!name.starts_with("nvme") || !exists(transport)) continue;
        if (kernelLine(transport) != "pcie") return false;
        hasOne = true;
    }
    return hasOne;
}

} // namespace

/// A disk with a device of its own below it.
bool BlockDevices::isInternalDisk(const std::string& folder) const {
    if (kernelLine(folder + "/removable") != "0") return false;
    const std::string devices = sys_ + "/devices";
    if (!path::isInsideOrEqual(folder, devices)) return false;
    const std::string_view name = path::lastComponent(folder);
    // A card in a slot is told from a chip on the board by its own kind alone.
    if (name.starts_with("mmcblk") && kernelLine(folder + "/device/type") != "MMC") return false;
    for (std::string at(folder); at.size() > devices.size(); at = path::parent(at)) {
        const std::string_view component = path::lastComponent(at);
        // USB in all its kinds; the session of a disk on the network (iSCSI); FireWire.
        if (component.starts_with("usb") || component.starts_with("session") ||
            component.starts_with("fw")) {
            return false;
        }
        // The ports that people plug things into are known to the firmware.
        if (kernelLine(at + "/removable") == "removable") return false;
    }
    return true;
}

bool BlockDevices::isInternalFolder(const std::string& folder, int depth) const {
    if (folder.empty() || depth > maxLayers) return false;
    if (exists(folder + "/partition")) {
        return isInternalFolder(std::string(path::parent(folder)), depth + 1);
    }
    const std::string virtualDevices = sys_ + "/devices/virtual";
    if (!path::isInsideOrEqual(folder, virtualDevices)) return isInternalDisk(folder);
    if (path::isInsideOrEqual(folder, virtualDevices + "/nvme-subsystem")) {
        return kernelLine(folder + "/removable") == "0" &&
               areNVMeControllersInside(std::string(path::parent(folder)));
    }
    // A device without hardware: what it is made of decides, and loop devices, network block
    // devices and memory are made of nothing that shows here.
    const auto below = namesIn(folder + "/slaves");
    if (!below || below->empty()) return false;
    return std::ranges::all_of(*below, [&](const std::string& name) {
        return isInternalFolder(realPath(folder + "/slaves/" + name).value_or(""), depth + 1);
    });
}

bool BlockDevices::isInternal(std::uint32_t major, std::uint32_t minor) const {
    return isInternalFolder(
        realPath(sys_ + "/dev/block/" + std::to_string(major) + ":" + std::to_string(minor))
            .value_or(""),
        0);
}

bool BlockDevices::isAttachedFolder(const std::string& folder, int depth,
                                    std::vector<std::string>& images) const {
    if (folder.empty() || depth > maxLayers) return false;
    if (exists(folder + "/partition")) {
        return isAttachedFolder(std::string(path::parent(folder)), depth + 1, images);
    }
    const std::string devices = sys_ + "/devices";
    if (!path::isInsideOrEqual(folder, devices + "/virtual")) {
        // The session of a disk on the network (iSCSI), and a block device of Ceph.
        return path::isInsideOrEqual(folder, devices) &&
               std::ranges::none_of(path::components(folder), [](std::string_view component) {
                   return component.starts_with("session") || component == "rbd";
               });
    }
    if (path::isInsideOrEqual(folder, devices + "/virtual/nvme-subsystem")) {
        return areNVMeControllersInside(std::string(path::parent(folder)));
    }
    if (path::lastComponent(folder).starts_with("loop")) {
        images.push_back(kernelLine(folder + "/loop/backing_file"));
        return true;
    }
    const auto below = namesIn(folder + "/slaves");
    if (!below || below->empty()) return false;
    return std::ranges::all_of(*below, [&](const std::string& name) {
        return isAttachedFolder(realPath(folder + "/slaves/" + name).value_or(""), depth + 1,
                                images);
    });
}

bool BlockDevices::isAttached(std::uint32_t major, std::uint32_t minor,
                              std::vector<std::string>& images) const {
    return isAttachedFolder(
        realPath(sys_ + "/dev/block/" + std::to_string(major) + ":" + std::to_string(minor))
            .value_or(""),
        0, images);
}

bool BlockDevices::isInternalBtrfs(const std::string& device) const {
    // Mounted by a name that leads to it, as logical volumes are; listed by the kernel's own.
    const std::string name(path::lastComponent(realPath(device).value_or("")));
    const auto fileSystems = namesIn(sys_ + "/fs/btrfs");
    if (name.empty() || !fileSystems) return false;
    for (const std::string& fileSystem : *fileSystems) {
        const std::string devices = sys_ + "/fs/btrfs/" + fileSystem + "/devices";
        if (!exists(devices)) continue; // "features", and a file system that is just going
        const auto names = namesIn(devices);
        if (!names) return false;
        if (std::ranges::find(*names, name) == names->end()) continue;
        return std::ranges::all_of(*names, [&](const std::string& one) {
            return isInternalFolder(realPath(path::joined(devices, one)).value_or(""), 0);
        });
    }
    return false;
}

std::optional<std::string> BlockDevices::listedUUID(std::uint32_t major,
                                                    std::uint32_t minor) const {
    const auto names = namesIn(byUUID_);
    if (!names) return std::nullopt;
    for (const std::string& name : *names) {
        if (blockDeviceAt(path::joined(byUUID_, name)) == BlockDeviceNumber{major, minor}) {
            return lowercased(name);
        }
    }
    return std::nullopt;
}

std::optional<std::string> mountedUUID(const std::string& mountPath) {
    /// As newer kernels define it; their headers may be younger than the ones at hand.
    struct Answer {
        std::uint8_t length;
        std::array<std::uint8_t, 16> bytes;
    };
    constexpr unsigned long question = _IOR(0x15, 0, Answer);
    const int folder =
        ::open(mountPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY);
    if (folder < 0) return std::nullopt;
    Answer answer{};
    const bool isAnswered = ::ioctl(folder, question, &answer) == 0;
    ::close(folder);
    if (!isAnswered || answer.length != answer.bytes.size()) return std::nullopt;
    const UUID uuid(answer.bytes);
    if (uuid == UUID()) return std::nullopt;
    return lowercased(uuid.text());
}

std::optional<BlockDeviceNumber> blockDeviceAt(const std::string& path) {
    struct stat status{};
    if (::stat(path.c_str(), &status) != 0 || !S_ISBLK(status.st_mode)) return std::nullopt;
    return BlockDeviceNumber{.major = major(status.st_rdev), .minor = minor(status.st_rdev)};
}

} // namespace tidyro::platform

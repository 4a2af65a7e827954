#include "SystemCare/SystemCare.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <map>
#include <span>
#include <string_view>
#include <tuple>

#include "Base/PathText.h"

namespace tidyro {

namespace {

using platform::Volume;

/// Nobody can put anything in there, and they are always full.
constexpr std::array<std::string_view, 4> packedImages{"squashfs", "erofs", "cramfs", "romfs"};

/// What lies in these and in the other rows of a path never waits for anybody.
constexpr std::array<std::string_view, 5> memoryFileSystems{"tmpfs", "ramfs", "devtmpfs", "overlay",
                                                            "rootfs"};

bool isListed(std::string_view name, std::span<const std::string_view> list) {
    return std::ranges::find(list, name) != list.end();
}

/// Whether the way to a volume's mount path leads over nothing but disks and memory, and ends at
/// the volume itself. What was mounted later may lie over it.
bool isReachable(std::span<const Volume> volumes, std::size_t own) {
    const std::string& path = volumes[own].mountPath;
    for (std::size_t i = 0; i < volumes.size(); ++i) {
        const Volume& other = volumes[i];
        if (i == own || !path::isInsideOrEqual(path, other.mountPath)) continue;
        if (i > own) return false;
        if (other.mountPath == path) continue; // it lies under this one
        if (other.spaceIdentifier.empty() && !isListed(other.fileSystem, memoryFileSystems)) {
            return false;
        }
    }
    return true;
}

/// By which of its mounts a person knows a disk; the smallest.
auto mountRank(const Volume& volume) {
    return std::tuple(volume.mountPath != "/", volume.mountedFolder != "/",
                      path::components(volume.mountPath).size(), volume.mountPath);
}

} // namespace

std::expected<std::vector<VolumeCapacity>, SystemError> SystemCare::capacities() const {
    const auto volumes = volumes_.mounted();
    if (!volumes) return std::unexpected(volumes.error());
    std::map<std::string_view, const Volume*> disks;
    for (std::size_t i = 0; i < volumes->size(); ++i) {
        const Volume& volume = (*volumes)[i];
        if (volume.spaceIdentifier.empty() || isListed(volume.fileSystem, packedImages) ||
            !isReachable(*volumes, i)) {
            continue;
        }
        const Volume*& best = disks[volume.spaceIdentifier];
        if (best == nullptr || mountRank(volume) < mountRank(*best)) best = &volume;
    }
    std::vector<VolumeCapacity> capacities;
    for (const auto& [identifier, volume] : disks) {
        const auto space = spaces_.space(*volume);
        if (!space || space->byteCount == 0) continue;
        capacities.push_back({.mountURL = FileURL::folder(volume->mountPath),
                              .fileSystem = volume->fileSystem,
                              .isInternal = volume->isInternalLocal,
                              .byteCount = space->byteCount,
                              .usedByteCount = space->usedByteCount,
                              .freeByteCount = space->freeByteCount});
    }
    std::ranges::sort(capacities, {}, [](const VolumeCapacity& one) {
        return std::tuple(!one.isInternal, one.mountURL);
    });
    return capacities;
}

} // namespace tidyro

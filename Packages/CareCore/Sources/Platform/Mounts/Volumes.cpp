#include "Platform/Mounts/Volumes.h"

#include <map>

namespace tidyro::platform {

const Volume* volumeOf(const FileMetadata& item, std::span<const Volume> volumes) {
    const Volume* byDevice = nullptr;
    for (const Volume& volume : volumes) {
        const bool isItsDevice = volume.device == item.identity.device;
        if (item.mount) {
            // A number is used again once its mount is gone, so the device has to agree.
            if (volume.mount == *item.mount) {
                return isItsDevice || !volume.hasOneDevice ? &volume : nullptr;
            }
        } else if (isItsDevice && byDevice == nullptr) {
            byDevice = &volume;
        }
    }
    return byDevice;
}

void tellApart(std::vector<Volume>& volumes) {
    struct Bearers {
        std::uint64_t device;
        bool areMany = false;
    };
    std::map<std::string, Bearers> bearers;
    for (const Volume& volume : volumes) {
        const auto [known, isNew] =
            bearers.try_emplace(volume.identifier, Bearers{.device = volume.device});
        if (!isNew && known->second.device != volume.device) known->second.areMany = true;
    }
    for (Volume& volume : volumes) {
        // A copy of a disk, in an image perhaps, must not pass for the disk.
        if (bearers.at(volume.identifier).areMany) {
            volume.identifier += "@" + std::to_string(volume.device);
        }
    }
}

} // namespace tidyro::platform

#pragma once

#include <cstdint>
#include <expected>
#include <string>
#include <vector>

#include "Base/FileURL.h"
#include "Base/Record.h"
#include "Base/SystemError.h"
#include "Platform/Mounts/VolumeSpaces.h"
#include "Platform/Mounts/Volumes.h"

namespace tidyro {

/// How full one disk of this machine is. A partition counts as a disk here.
struct VolumeCapacity {
    FileURL mountURL;
    std::string fileSystem; ///< its type as the system calls it
    bool isInternal;        ///< inside this machine for certain
    std::uint64_t byteCount;
    std::uint64_t usedByteCount;
    std::uint64_t freeByteCount; ///< what a person may still fill

    static constexpr auto fields() {
        using Self = VolumeCapacity;
        return fieldList<Self>(
            field("mountURL", &Self::mountURL), field("fileSystem", &Self::fileSystem),
            field("isInternal", &Self::isInternal), field("byteCount", &Self::byteCount),
            field("usedByteCount", &Self::usedByteCount),
            field("freeByteCount", &Self::freeByteCount));
    }
    bool operator==(const VolumeCapacity&) const = default;
};

/// Tells how full the disks of this machine are.
///
///     const platform::LiveVolumes volumes;
///     const platform::LiveVolumeSpaces spaces;
///     const auto capacities = SystemCare(volumes, spaces).capacities();
///     if (!capacities) return std::unexpected(capacities.error());
///     for (const VolumeCapacity& one : *capacities) show(one.mountURL, one.freeByteCount);
///
/// Space that several volumes share is told once: that of subvolumes, of bind mounts, of the
/// volumes in one APFS container or ZFS pool. Used and free are together less than the whole where
/// the file system keeps some space for the system itself.
///
/// Left out are servers, memory, other file systems without a disk, and packed images that are full
/// by their nature. A server that is gone is never waited for: nothing is asked of it, and nothing
/// that could only be reached through it. Any thread may ask.
class SystemCare {
  public:
    /// Both outlive it.
    SystemCare(const platform::Volumes& volumes, const platform::VolumeSpaces& spaces)
        : volumes_(volumes), spaces_(spaces) {}

    /// Those inside the machine first, then by where they are mounted. An error means that nothing
    /// is known of the volumes. A single one that does not answer is left out.
    [[nodiscard]] std::expected<std::vector<VolumeCapacity>, SystemError> capacities() const;

  private:
    const platform::Volumes& volumes_;
    const platform::VolumeSpaces& spaces_;
};

} // namespace tidyro

#pragma once

#include <cstdint>
#include <expected>

#include "Base/SystemError.h"
#include "Platform/Mounts/Volumes.h"

namespace tidyro::platform {

/// In bytes.
struct VolumeSpace {
    std::uint64_t byteCount; ///< of the whole file system
    /// What is not free. It holds what the file system needs for itself.
    std::uint64_t usedByteCount;
    /// What an ordinary person may still fill. Many file systems keep some space for the system
    /// beyond that, so used and free are together less than the whole.
    std::uint64_t freeByteCount;

    bool operator==(const VolumeSpace&) const = default;
};

/// Handed in, so that tests decide how full volumes are. Any thread may ask.
class VolumeSpaces {
  public:
    virtual ~VolumeSpaces() = default;
    /// Asks the file system at the volume's mount path. A server that is gone never answers, so
    /// only volumes with a `spaceIdentifier` are asked, and only where no other mount lies on the
    /// way. ESTALE when something else is mounted there by now.
    [[nodiscard]] virtual std::expected<VolumeSpace, SystemError>
    space(const Volume& volume) const = 0;
};

/// The spaces of the running system.
class LiveVolumeSpaces final : public VolumeSpaces {
  public:
    [[nodiscard]] std::expected<VolumeSpace, SystemError>
    space(const Volume& volume) const override;
};

} // namespace tidyro::platform

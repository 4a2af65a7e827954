#include "Platform/Mounts/VolumeSpaces.h"

#include <array>
#include <cerrno>

#include <sys/statvfs.h>

#include "Platform/Files/FileMetadata.h"

namespace tidyro::platform {

std::expected<VolumeSpace, SystemError> LiveVolumeSpaces::space(const Volume& volume) const {
    struct statvfs answer{};
    int asked = -1;
    do {
        asked = ::statvfs(volume.mountPath.c_str(), &answer);
    } while (asked != 0 && errno == EINTR);
    if (asked != 0) return std::unexpected(SystemError{errno});
    const auto seen = fileMetadata(volume.mountPath);
    if (!seen) return std::unexpected(seen.error());
    const std::array volumes{volume};
    if (volumeOf(*seen, volumes) == nullptr) return std::unexpected(SystemError{ESTALE});
    const std::uint64_t block = answer.f_frsize;
    return VolumeSpace{.byteCount = answer.f_blocks * block,
                       .usedByteCount = (answer.f_blocks - answer.f_bfree) * block,
                       .freeByteCount = answer.f_bavail * block};
}

} // namespace tidyro::platform

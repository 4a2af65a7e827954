#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "CareDomain/FileFingerprint.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Mounts/Volumes.h"

namespace tidyro {

/// How an item is told to be the one of a fingerprint, when somebody looks for it where it went or
/// asks whether it is still what it was.
///
///     const FingerprintComparison comparison(platform::LiveVolumes(),
///                                            FingerprintComparison::Volume::byUUID);
///     if (!comparison.isItem(*seen, entry.fingerprint)) return leaveAlone();
///
/// The volumes are read when it is made. It does not change, so any thread may ask.
class FingerprintComparison {
  public:
    enum class Volume : std::uint8_t {
        /// The device's number and the volume's identifier, both as they are written: within one
        /// start of the machine.
        byNumber,
        /// The UUID of the volume, since its device may have another number after the next start. A
        /// volume without a UUID is told by number.
        byUUID,
        /// The UUID where the fingerprint has one, otherwise nothing: for whoever replaces and
        /// removes nothing.
        byUUIDIfKnown,
    };

    FingerprintComparison(const platform::Volumes& volumes, Volume volume);

    /// Whether an item has the number, the date of its last modification and the volume of the
    /// fingerprint, and the size unless it is a folder. What is not known does not agree.
    [[nodiscard]] bool isItem(const platform::FileMetadata& seen,
                              const FileFingerprint& planned) const;

    /// Whether it lies on the volume of the fingerprint.
    [[nodiscard]] bool isOnItsVolume(const platform::FileMetadata& seen,
                                     const FileFingerprint& planned) const;

  private:
    std::vector<platform::Volume> volumes_;
    Volume volume_;
};

/// The identity in a fingerprint; none when it has none.
[[nodiscard]] std::optional<platform::ItemIdentity> identityIn(const FileFingerprint& fingerprint);

} // namespace tidyro

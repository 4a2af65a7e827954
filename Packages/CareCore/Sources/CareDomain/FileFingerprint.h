#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Base/Record.h"
#include "Base/Timestamp.h"
#include "CareDomain/FileObservation.h"

namespace tidyro {

/// Recognises a file right before it is touched. Plans keep the fingerprint of the file as it was
/// observed; another file in its place, or the same one changed, has a different one.
struct FileFingerprint {
    std::uint64_t byteCount;
    std::optional<Timestamp> modificationDate = std::nullopt;
    std::optional<std::string> volumeIdentifier = std::nullopt;
    std::optional<std::string> fileResourceIdentifier = std::nullopt;

    [[nodiscard]] static FileFingerprint fromObservation(const FileObservation& observation) {
        return {.byteCount = observation.byteCount,
                .modificationDate = observation.modificationDate,
                .volumeIdentifier = std::optional<std::string>(observation.volumeIdentifier),
                .fileResourceIdentifier = observation.fileResourceIdentifier};
    }

    /// Whether all four values agree exactly. A value that is absent on one side only does not
    /// match: what could not be read proves nothing.
    [[nodiscard]] bool matches(const FileObservation& observation) const {
        return *this == fromObservation(observation);
    }

    static constexpr auto fields() {
        using Self = FileFingerprint;
        return fieldList<Self>(field("byteCount", &Self::byteCount),
                               field("modificationDate", &Self::modificationDate),
                               field("volumeIdentifier", &Self::volumeIdentifier),
                               field("fileResourceIdentifier", &Self::fileResourceIdentifier));
    }
    bool operator==(const FileFingerprint&) const = default;
};

} // namespace tidyro

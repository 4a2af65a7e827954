#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Base/Record.h"
#include "Base/Timestamp.h"
#include "CareDomain/FileObservation.h"

namespace tidyro {

/// What tells a file apart from any that takes its place, as it was when it was observed. Plans
/// keep it, so that the file can be recognised again right before it is touched.
struct FileFingerprint {
    std::uint64_t byteCount;
    std::optional<Timestamp> modificationDate = std::nullopt;
    std::optional<std::string> volumeIdentifier = std::nullopt;
    std::optional<std::string> fileResourceIdentifier = std::nullopt;

    [[nodiscard]] static FileFingerprint fromObservation(const FileObservation& observation) {
        return {.byteCount = observation.byteCount,
                .modificationDate = observation.modificationDate,
                .volumeIdentifier = observation.volumeIdentifier,
                .fileResourceIdentifier = observation.fileResourceIdentifier};
    }

    /// Whether all four agree to the bit. What is absent on one side only does not match: a value
    /// that could not be read is no proof of sameness.
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

#include "CareDomain/FileFingerprint.h"

namespace tidyro {

FileFingerprint FileFingerprint::of(const FileObservation& observation) {
    return {.byteCount = observation.byteCount,
            .modificationDate = observation.modificationDate,
            .volumeIdentifier = observation.volumeIdentifier,
            .fileResourceIdentifier = observation.fileResourceIdentifier};
}

bool FileFingerprint::matches(const FileObservation& observation) const {
    return byteCount == observation.byteCount && modificationDate == observation.modificationDate &&
           volumeIdentifier == observation.volumeIdentifier &&
           fileResourceIdentifier == observation.fileResourceIdentifier;
}

} // namespace tidyro

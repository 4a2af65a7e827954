#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Base/FileURL.h"
#include "Base/Record.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"
#include "CareDomain/FileFingerprint.h"
#include "CareDomain/FileObservation.h"

namespace tidyro {

/// The copy that stays while another one of the same contents goes.
struct KeptCopy {
    FileURL url;
    FileFingerprint fingerprint;
    std::optional<Timestamp> statusChange = std::nullopt; ///< as in `CleanupSheetEntry`

    static constexpr auto fields() {
        return fieldList<KeptCopy>(field("url", &KeptCopy::url),
                                   field("fingerprint", &KeptCopy::fingerprint),
                                   field("statusChange", &KeptCopy::statusChange));
    }
    bool operator==(const KeptCopy&) const = default;
};

/// What was known of one item of a plan, beyond its entry, when the plan was made.
struct CleanupSheetEntry {
    LocalItemID candidateID;
    /// A file system may give the number of a file that is gone to the next one at once. The two
    /// have different dates of creation.
    std::optional<Timestamp> creationDate = std::nullopt;
    /// The last change of its contents or of anything that the system keeps about it.
    std::optional<Timestamp> statusChange = std::nullopt;
    /// Bytes that would be free when the item alone were gone: its blocks that no other file has.
    std::optional<std::uint64_t> unsharedByteCount = std::nullopt;
    std::optional<KeptCopy> keptCopy = std::nullopt; ///< for an extra copy, which goes only with it
    bool isReviewed = false; ///< whether a person let this very item through

    static constexpr auto fields() {
        using Self = CleanupSheetEntry;
        return fieldList<Self>(
            field("candidateID", &Self::candidateID), field("creationDate", &Self::creationDate),
            field("statusChange", &Self::statusChange),
            field("unsharedByteCount", &Self::unsharedByteCount),
            field("keptCopy", &Self::keptCopy), field("isReviewed", &Self::isReviewed));
    }
    bool operator==(const CleanupSheetEntry&) const = default;
};

/// A folder that items of a plan lie in, so that it can be made again when an item is put back.
struct CleanupSheetFolder {
    FileURL url;
    /// As `chmod` counts them: of the folder and of those above it, from the top of the disk down.
    std::vector<std::uint32_t> permissions;

    static constexpr auto fields() {
        using Self = CleanupSheetFolder;
        return fieldList<Self>(field("url", &Self::url), field("permissions", &Self::permissions));
    }
    bool operator==(const CleanupSheetFolder&) const = default;
};

/// Stands beside a plan and holds what the plan's own records leave out. Both have one digest,
/// which an approval names.
struct CleanupPlanSheet {
    UUID planID;
    std::vector<CleanupSheetEntry> entries; ///< one for each entry of the plan, in its order
    std::vector<CleanupSheetFolder> folders = {};

    static constexpr auto fields() {
        using Self = CleanupPlanSheet;
        return fieldList<Self>(field("planID", &Self::planID), field("entries", &Self::entries),
                               field("folders", &Self::folders));
    }
    bool operator==(const CleanupPlanSheet&) const = default;
};

} // namespace tidyro

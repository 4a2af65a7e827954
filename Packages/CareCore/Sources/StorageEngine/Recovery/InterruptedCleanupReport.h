#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Base/FileURL.h"
#include "Base/LocaleText.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"
#include "CareDomain/FileObservation.h"
#include "CareDomain/ProofCard.h"
#include "StorageEngine/Recovery/CleanupIntent.h"

namespace tidyro {

/// What is known of a cleanup that never ended: the program crashed or was killed, or the machine
/// lost power.
struct InterruptedCleanupReport {
    /// An item that went to the Trash and can be put back.
    struct MovedItem {
        FileURL originalURL;
        FileURL trashURL;
        /// The entry of the journal that tells it. Two cleanups may have moved an item of one name
        /// to one place in the Trash, one after the other; without these the later one is meant.
        std::optional<UUID> intentID = std::nullopt;
        std::optional<LocalItemID> candidateID = std::nullopt;
        bool operator==(const MovedItem&) const = default;
    };

    UUID intentID;
    UUID planID;
    Timestamp startedAt;
    CleanupExecutionMode mode;
    std::vector<CleanupIntentEntry> movedToTrash = {};
    std::vector<MovedItem> movedItems = {}; ///< of the same entries, in the same order
    std::uint64_t permanentlyRemovedCount = 0;
    std::vector<std::string> failureDescriptions = {};
    /// Entries without an outcome whose item is still at its place.
    std::vector<CleanupIntentEntry> untouched = {};
    /// Entries without an outcome whose item is gone from there.
    std::vector<CleanupIntentEntry> unaccountedFor = {};
    std::uint64_t restoredCount = 0;
    std::uint64_t noLongerInTrashCount = 0;
    /// Whether the cleanup did end, but its receipt is missing.
    bool isReceiptMissing = false;
    /// Lines of the log that could not be read: see `RecordedIntent`.
    std::uint64_t passedOverLineCount = 0;

    /// One line for people: "3 moved to Trash, 1 failed, 12 untouched."
    [[nodiscard]] std::string summary(const LocaleText& locale = LocaleText::current()) const;

    bool operator==(const InterruptedCleanupReport&) const = default;
};

} // namespace tidyro

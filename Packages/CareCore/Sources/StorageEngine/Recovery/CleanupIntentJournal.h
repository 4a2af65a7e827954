#pragma once

#include <cstddef>
#include <expected>
#include <string>
#include <variant>
#include <vector>

#include "Base/Timestamp.h"
#include "Base/UUID.h"
#include "CareDomain/CleanupReceipt.h"
#include "StorageEngine/Recovery/CleanupIntentLog.h"
#include "StorageEngine/Recovery/InterruptedCleanupReport.h"

namespace tidyro {

/// Why the journal did not take something.
struct CleanupIntentJournalError {
    /// A file could not be written, read or locked.
    struct CouldNotWrite {
        std::string reason;
        bool operator==(const CouldNotWrite&) const = default;
    };
    /// There is no such intent, or the candidate is none of its entries.
    struct UnknownIntent {
        UUID intentID;
        bool operator==(const UnknownIntent&) const = default;
    };
    /// No intent of the journal can hold these outcomes.
    struct ReceiptRecoveryUnsupported {
        bool operator==(const ReceiptRecoveryUnsupported&) const = default;
    };
    /// Another journal, here or in another process, has the lock. Nothing was begun.
    struct AnotherCleanupRuns {
        bool operator==(const AnotherCleanupRuns&) const = default;
    };
    std::variant<CouldNotWrite, UnknownIntent, ReceiptRecoveryUnsupported, AnotherCleanupRuns>
        value;

    /// For people. It leaves out the system's own reason.
    [[nodiscard]] std::string description() const;
    bool operator==(const CleanupIntentJournalError&) const = default;
};

/// The journal of cleanups, which the user-facing texts call the safety log. Before a cleanup
/// touches the first item it writes down what it intends, and after each item what happened.
/// Whoever finds an intent that was never closed knows which items to look for.
///
/// Any thread may call; the calls are carried out one after another.
class CleanupIntentJournaling {
  public:
    using Error = CleanupIntentJournalError;
    template <class T>
    using Result = std::expected<T, Error>;

    virtual ~CleanupIntentJournaling() = default;

    /// The intent is on the disk for good when this returns. With an error nothing may be touched.
    [[nodiscard]] virtual Result<void> begin(const CleanupIntent& intent) = 0;
    /// Called after each item, before the next one is touched. With an error the cleanup stops.
    [[nodiscard]] virtual Result<void> recordOutcome(const CleanupIntentEntry::Outcome& outcome,
                                                     const LocalItemID& candidateID,
                                                     const UUID& intentID) = 0;
    /// Brings everything that was recorded of an intent to the disk, and what it tells of before.
    /// Each record is flushed sooner or later; this is for whoever may go on only then.
    [[nodiscard]] virtual Result<void> flushRecords(const UUID& intentID) = 0;
    /// Gives back the space that is kept for a full disk. False when none is kept any more.
    [[nodiscard]] virtual bool giveSpaceBack() { return false; }
    /// The cleanup has ended, however it went. Everything recorded is on the disk for good when
    /// this returns. The receipt is stored before.
    [[nodiscard]] virtual Result<void> close(const UUID& intentID, Timestamp at) = 0;
    /// The receipt of a finished cleanup could not be stored: the intent takes its place. What the
    /// receipt tells and the intent does not is recorded.
    [[nodiscard]] virtual Result<void> requireReceiptRecovery(const CleanupReceipt& receipt) = 0;

    struct OpenIntents {
        /// Never closed, or closed without a receipt; oldest first.
        std::vector<RecordedIntent> intents;
        struct Unreadable {
            UUID intentID;
            std::string reason;
            bool operator==(const Unreadable&) const = default;
        };
        /// Intents whose files are there, but damaged or closed to us.
        std::vector<Unreadable> unreadable = {};
    };
    [[nodiscard]] virtual Result<OpenIntents> openIntents() = 0;

    struct RestoreOutcomes {
        std::vector<InterruptedCleanupReport::MovedItem> restored = {};
        std::vector<InterruptedCleanupReport::MovedItem> noLongerInTrash = {};
        /// Whether the cleanups that these are of have no receipt either.
        bool requireReceiptRecovery = false;
    };
    /// What recovery did with items that had gone to the Trash. All of them are known to the
    /// journal or nothing is recorded.
    [[nodiscard]] virtual Result<void> recordRestoreOutcomes(const RestoreOutcomes& outcomes) = 0;

    /// Removes an intent, and with it all that is known of its items. The caller has made sure that
    /// each of them is accounted for. An intent that is not there counts as forgotten.
    [[nodiscard]] virtual Result<void> forget(const UUID& intentID) = 0;
};

} // namespace tidyro

#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Base/JSONForward.h"
#include "CareDomain/CleanupReceipt.h"
#include "StorageEngine/Recovery/CleanupIntent.h"

/// The two files of an intent: a snapshot, written when it begins, and a log of what happened
/// since, one JSON document a line. docs/file-formats.md describes both.
namespace tidyro {

/// The outcome of one entry.
struct EntryOutcome {
    LocalItemID candidateID;
    CleanupIntentEntry::Outcome outcome;

    static constexpr std::string_view caseName = "outcome";
    static constexpr auto fields() {
        return fieldList<EntryOutcome>(field("candidateID", &EntryOutcome::candidateID),
                                       field("outcome", &EntryOutcome::outcome));
    }
    bool operator==(const EntryOutcome&) const = default;
};

/// The cases of `IntentLogRecord`, beside `EntryOutcome`.
namespace intent_log {

struct Closed {
    Timestamp at;

    static constexpr std::string_view caseName = "closed";
    static constexpr auto fields() { return fieldList<Closed>(field("at", &Closed::at)); }
    bool operator==(const Closed&) const = default;
};

/// What recovery did, for several entries at once. For none, and with a receipt that is not
/// missing: recovery has stored the receipt that was.
struct RestoreOutcomes {
    std::vector<EntryOutcome> outcomes;
    bool receiptMissing; ///< whether the cleanup has no receipt

    static constexpr std::string_view caseName = "restoreOutcomes";
    static constexpr auto fields() {
        return fieldList<RestoreOutcomes>(
            field("_0", &RestoreOutcomes::outcomes),
            field("receiptMissing", &RestoreOutcomes::receiptMissing));
    }
    bool operator==(const RestoreOutcomes&) const = default;
};

/// The receipt of the cleanup could not be stored.
struct ReceiptMissing {
    static constexpr std::string_view caseName = "receiptMissing";
    static constexpr auto fields() { return fieldList<ReceiptMissing>(); }
    bool operator==(const ReceiptMissing&) const = default;
};

} // namespace intent_log

/// One line of the log.
struct IntentLogRecord {
    using Cases = std::variant<EntryOutcome, intent_log::Closed, intent_log::RestoreOutcomes,
                               intent_log::ReceiptMissing>;
    Cases value;
    bool operator==(const IntentLogRecord&) const = default;
};

/// The line of a record, with its line break.
[[nodiscard]] std::string logLine(const IntentLogRecord& record);

/// An intent as its two files tell it.
struct RecordedIntent {
    CleanupIntent intent;
    /// Whether the log says that the cleanup has no receipt, and not that recovery has stored one
    /// since.
    bool isReceiptMissing = false;
    /// Whether the cleanup is going on right now, in this process or in another. What has no
    /// outcome yet is then not to be judged.
    bool isRunning = false;
    /// Lines of the log that say nothing about this intent: torn by a crash, or damaged since. What
    /// they may have told is lost; the items that they were about have no outcome.
    std::size_t passedOverLineCount = 0;
    bool operator==(const RecordedIntent&) const = default;
};

/// Reads an intent back. Bytes that are no snapshot give an error; a line of the log that is no
/// record is passed over and counted.
[[nodiscard]] Decoded<RecordedIntent> readIntent(std::string_view snapshot, std::string_view log);

/// Whether a receipt is the one of a cleanup: it is of the same plan, tells all that the intent
/// says was done, and nothing else.
[[nodiscard]] bool isReceiptOf(const CleanupReceipt& receipt, const CleanupIntent& intent);

/// Whether a log alone tells that its cleanup has ended and has its receipt, so that the snapshot
/// need not be read. False in doubt.
[[nodiscard]] bool isSettled(std::string_view log);

} // namespace tidyro

#pragma once

#include <string>
#include <variant>
#include <vector>

#include "Base/LocaleText.h"
#include "CareDomain/CleanupPlan.h"
#include "CareDomain/CleanupReceipt.h"
#include "StorageEngine/Cleanup/Revalidation/PlanRevalidation.h"
#include "StorageEngine/Recovery/CleanupIntentJournal.h"

namespace tidyro {

/// Why a cleanup did not begin, or did not come to its end. What it did until then stands in the
/// receipt of the error, which is stored like any other.
struct CleanupExecutionError {
    // Before anything was touched.
    struct PlanModeMismatch {
        CleanupExecutionMode expected;
        CleanupExecutionMode found;
        bool operator==(const PlanModeMismatch&) const = default;
    };
    struct PermanentCleanupRefusedItem {
        LocalItemID item;
        bool operator==(const PermanentCleanupRefusedItem&) const = default;
    };
    struct MissingPermanentAcknowledgement {
        bool operator==(const MissingPermanentAcknowledgement&) const = default;
    };
    struct PermanentAcknowledgementDoesNotMatchPlan {
        bool operator==(const PermanentAcknowledgementDoesNotMatchPlan&) const = default;
    };
    struct InvalidPlan {
        bool operator==(const InvalidPlan&) const = default;
    };
    struct ApprovalForDifferentPlan {
        bool operator==(const ApprovalForDifferentPlan&) const = default;
    };
    struct InvalidApprovalTimestamp {
        bool operator==(const InvalidApprovalTimestamp&) const = default;
    };
    struct ApprovalDoesNotMatchPlan {
        bool operator==(const ApprovalDoesNotMatchPlan&) const = default;
    };
    struct MissingItemLevelApproval {
        LocalItemID item;
        bool operator==(const MissingItemLevelApproval&) const = default;
    };
    struct RevalidationFailed {
        std::vector<EntryRevalidation> entries;
        bool operator==(const RevalidationFailed&) const = default;
    };
    struct JournalUnavailable {
        std::string reason;
        /// The reason says all: another cleanup has the journal.
        bool isAnotherRunning = false;
        bool operator==(const JournalUnavailable&) const = default;
    };
    // Afterwards. Of what failed, something may lie elsewhere or be gone in part; its entry in the
    // receipt tells.
    struct JournalStopped {
        CleanupIntentJournalError error;
        CleanupReceipt receipt;
        bool operator==(const JournalStopped&) const = default;
    };
    struct RevalidationFailedAfterPartial {
        std::vector<EntryRevalidation> entries;
        CleanupReceipt receipt;
        bool isSomethingElsewhere = false;
        CleanupExecutionMode mode = CleanupExecutionMode::recoverable;
        bool operator==(const RevalidationFailedAfterPartial&) const = default;
    };
    struct CancelledAfterPartialExecution {
        CleanupReceipt receipt;
        bool isSomethingElsewhere = false;
        bool operator==(const CancelledAfterPartialExecution&) const = default;
    };
    struct ReceiptPersistenceFailed {
        CleanupReceipt receipt;
        bool isSomethingElsewhere = false;
        CleanupExecutionMode mode = CleanupExecutionMode::recoverable;
        bool operator==(const ReceiptPersistenceFailed&) const = default;
    };
    using Cases =
        std::variant<PlanModeMismatch, PermanentCleanupRefusedItem, MissingPermanentAcknowledgement,
                     PermanentAcknowledgementDoesNotMatchPlan, InvalidPlan,
                     ApprovalForDifferentPlan, InvalidApprovalTimestamp, ApprovalDoesNotMatchPlan,
                     MissingItemLevelApproval, RevalidationFailed, JournalUnavailable,
                     JournalStopped, RevalidationFailedAfterPartial, CancelledAfterPartialExecution,
                     ReceiptPersistenceFailed>;
    Cases value;

    /// For people.
    [[nodiscard]] std::string description(const LocaleText& locale = LocaleText::current()) const;
    /// Why the journal did not begin a cleanup.
    [[nodiscard]] static CleanupExecutionError fromBegin(const CleanupIntentJournalError& error);
    /// What was done until then; null when nothing was begun.
    [[nodiscard]] const CleanupReceipt* receipt() const;

    bool operator==(const CleanupExecutionError&) const = default;
};

} // namespace tidyro

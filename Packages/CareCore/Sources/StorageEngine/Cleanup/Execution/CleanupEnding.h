#pragma once

#include <expected>
#include <optional>

#include "Base/Timestamp.h"
#include "Base/UUID.h"
#include "StorageEngine/Cleanup/Execution/CleanupExecutionError.h"
#include "StorageEngine/Recovery/CleanupIntentJournal.h"
#include "StorageEngine/Recovery/RecoveryLedger.h"

namespace tidyro {

/// How every cleanup ends, also one that stopped early: its receipt is stored, then its intent is
/// closed. What the receipt tells is on the disk already.
///
///     const CleanupEnding ending{.ledger = ledger, .journal = &journal, .intentID = intent.id,
///                                .at = now, .mode = plan.mode};
///     return ending.end(std::move(receipt), std::move(stop));
struct CleanupEnding {
    RecoveryLedger& ledger;
    CleanupIntentJournaling* journal; ///< none for a simulation that writes nothing down
    UUID intentID;
    Timestamp at;
    CleanupExecutionMode mode;
    bool isSomethingElsewhere = false; ///< as the receipt tells of items that failed

    /// `stop` tells why the cleanup ended before its last item; the error that is returned then has
    /// the receipt. Worse than any of it is a receipt that could not be stored.
    [[nodiscard]] std::expected<CleanupReceipt, CleanupExecutionError>
    end(CleanupReceipt receipt, std::optional<CleanupExecutionError::Cases> stop) const;
};

} // namespace tidyro

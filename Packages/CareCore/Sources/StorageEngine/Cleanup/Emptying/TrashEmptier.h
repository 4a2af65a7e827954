#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "Base/Cancellation.h"
#include "Base/FileURL.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"
#include "CareDomain/CleanupPlanSheet.h"
#include "CareDomain/CleanupReceipt.h"
#include "CareDomain/PermanentCleanupAcknowledgement.h"
#include "Platform/Folders/FolderChanges.h"
#include "Platform/Folders/FolderFlushes.h"
#include "Platform/Mounts/Volumes.h"
#include "StorageEngine/Cleanup/Execution/CleanupExecutionError.h"
#include "StorageEngine/Recovery/CleanupIntentJournal.h"
#include "StorageEngine/Recovery/RecoveryLedger.h"

namespace tidyro {

/// What a person is asked before the Trash is emptied: exactly these items, and no others of the
/// Trash.
struct TrashEmptyingPlan {
    /// An item that a cleanup moved to the Trash.
    struct Entry {
        UUID intentID; ///< of that cleanup
        LocalItemID candidateID;
        FileURL originalURL;
        FileURL trashURL;
        FileFingerprint fingerprint;
        std::uint64_t byteCount; ///< as it was planned then
        Timestamp wentAt;        ///< when that cleanup began
        std::optional<KeptCopy> keptCopy = std::nullopt;
        bool operator==(const Entry&) const = default;
    };

    UUID id; ///< new for every plan; an acknowledgement names it
    Timestamp createdAt;
    std::vector<Entry> entries;

    /// The bytes of all entries, saturating.
    [[nodiscard]] std::uint64_t byteCount() const;

    /// A cleanup, as the ledger and the journal tell it.
    struct Source {
        const CleanupReceipt& receipt;
        const CleanupIntent& intent; ///< of the same plan; it alone holds identities
        /// For extra copies, the ones that were kept.
        const std::map<LocalItemID, KeptCopy>* keptCopies = nullptr;
    };
    /// The items that the receipts put into the Trash and of which nothing tells that they left it.
    /// One without an identity is left out. Nothing is looked at.
    [[nodiscard]] static TrashEmptyingPlan make(std::span<const Source> sources, Timestamp at);

    bool operator==(const TrashEmptyingPlan&) const = default;
};

/// Removes for good what cleanups put into the Trash, files and whole folders, and nothing else
/// that lies there.
///
///     const auto plan = TrashEmptyingPlan::make(sources, Timestamp::now());
///     ... show plan.entries.size() and plan.byteCount(), and ask ...
///     TrashEmptier emptier({.volumes = volumes, .changes = changes, .flushes = flushes,
///                           .journal = journal, .ledger = ledger});
///     const auto receipt = emptier.empty(
///         {.plan = plan, .acknowledgement = told, .at = Timestamp::now()});
///     if (!receipt) show(receipt.error().description());
///
/// An item goes only when it is the very one, unchanged since it went to the Trash; nothing in a
/// folder may have changed later. While the clock stands before the moment in which an item went
/// there, it stays. An extra copy goes only while the kept one is there. What is not
/// so stays, with its reason in the receipt.
///
/// It is journaled like any other permanent cleanup, with the places in the Trash as the items'
/// own. Items are set aside in a private folder first, and only when it is on the disk for good
/// that they are to be removed they are. The Trash's note goes last. Used by one thread.
class TrashEmptier {
  public:
    static constexpr double day = 86'400;
    /// Items that are set aside together, which spares flushes.
    static constexpr std::size_t maxSetAside = 200;

    /// All of it outlives the emptier.
    struct Options {
        const platform::Volumes& volumes;
        platform::FolderChanges& changes;
        /// The same as the journal flushes through.
        platform::FolderFlushes& flushes;
        CleanupIntentJournaling& journal;
        RecoveryLedger& ledger;
        double receiptRetention = 90 * day; ///< seconds; less than 1 counts as 1
    };
    explicit TrashEmptier(Options options) : options_(options) {}

    struct Progress {
        std::size_t itemsCompleted; ///< however it went
        std::size_t itemsTotal;
        std::uint64_t freedBytes;
    };
    struct Request {
        const TrashEmptyingPlan& plan;
        std::optional<PermanentCleanupAcknowledgement> acknowledgement = std::nullopt;
        Timestamp at; ///< now
        std::function<void(const Progress&)> onProgress = nullptr;
        CancelToken cancel = {};
    };
    /// The receipt tells the places in the Trash, and as `actuallyReclaimedByteCount` the blocks
    /// that nothing else had. What was removed is recorded with the cleanups that had moved it.
    [[nodiscard]] std::expected<CleanupReceipt, CleanupExecutionError>
    empty(const Request& request);

  private:
    class Run;

    Options options_;
};

} // namespace tidyro

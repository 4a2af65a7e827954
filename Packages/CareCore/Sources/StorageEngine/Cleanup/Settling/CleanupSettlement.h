#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "Base/FileURL.h"
#include "Base/SystemError.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"
#include "CareDomain/ProofCard.h"
#include "Platform/Files/ChangeGate.h"
#include "Platform/Folders/FolderChanges.h"
#include "Platform/Folders/FolderFlushes.h"
#include "Platform/Mounts/Volumes.h"
#include "StorageEngine/Recovery/FileCleanupIntentJournal.h"
#include "StorageEngine/Recovery/RecoveryLedger.h"

namespace tidyro {

/// What an interrupted cleanup left behind, item by item, and what was done about it.
struct SettledCleanup {
    enum class Found : std::uint8_t {
        atPlace,    ///< where it always was
        putBack,    ///< back at its place, from a private folder of the cleanup
        inTrash,    ///< at `url`, with its note
        goneBefore, ///< the cleanup had not got to it, and it is gone: others took it
        stays,      ///< at `url`, in a private folder, since it could not be put back
        unaccounted,
    };
    /// An item of the plan of which the journal did not know what became, or knew it wrongly.
    struct Item {
        LocalItemID candidateID;
        FileURL originalURL;
        Found found;
        /// Where it lies, when that is not its place. Before a repair it is not known for an item
        /// that will go to the Trash.
        std::optional<FileURL> url = std::nullopt;
        std::string reason = {}; ///< for people, why it stays or is unaccounted for
        /// For one that is unaccounted for: the folders in which it was looked for.
        std::vector<std::string> foldersLookedInto = {};
    };
    /// Something that the cleanup moved by mistake: it had got an item's name in that very moment.
    struct Stranger {
        FileURL originalURL;
        Found found; ///< `putBack`, `inTrash` or `stays`
        std::optional<FileURL> url = std::nullopt;
        std::string reason = {};
    };

    UUID intentID;
    UUID planID;
    Timestamp startedAt;
    CleanupExecutionMode mode;
    std::vector<Item> items = {};
    std::vector<Stranger> strangers = {};
    /// For people: what else could not be put in order.
    std::vector<std::string> troubles = {};
    /// Whether every item is accounted for. After a repair the receipt is then stored and the
    /// intent closed, unless `troubles` tells why not.
    bool isAccountedFor = false;
    bool isClosed = false;

    /// For people, a few sentences for each item that is unaccounted for or lies in a private
    /// folder: what is known of it, where it was looked for, and what can be done. The cleanup
    /// stays open meanwhile, so that each later settling looks for it again.
    [[nodiscard]] std::vector<std::string> openQuestions() const;
};

struct CleanupSettlementError {
    struct CouldNotLook {
        SystemError cause;
        bool operator==(const CouldNotLook&) const = default;
    };
    /// Items were put in order, and a crash could undo it. The cleanup stays open.
    struct NotConfirmed {
        SystemError cause;
        bool operator==(const NotConfirmed&) const = default;
    };
    std::variant<CleanupIntentJournalError, CouldNotLook, NotConfirmed> value;

    /// For people.
    [[nodiscard]] std::string description() const;
    bool operator==(const CleanupSettlementError&) const = default;
};

/// Puts cleanups in order that were cut short: looks for each of their items by its identity,
/// repairs what was left half done, records what is so, and stores the receipt that they lack.
///
///     CleanupSettlement settlement({.journal = &journal, .ledger = &ledger,
///                                   .changes = &changes, .flushes = &flushes});
///     const auto told = settlement.tell();          // changes nothing
///     const auto settled = settlement.settle();
///     if (!settled) return show(settled.error().description());
///
/// What lies in a private folder of a cleanup always goes back to its place and never replaces
/// anything. When its place is taken it goes to the Trash, or stays and is told. An item that is
/// found in the Trash is recorded as moved there. An intent closes only when every item of it is
/// accounted for.
///
/// `settle` may be cut short at any moment and run again. Used by one thread.
class CleanupSettlement {
  public:
    template <class T>
    using Result = std::expected<T, CleanupSettlementError>;

    struct Options {
        FileCleanupIntentJournal* journal;
        RecoveryLedger* ledger;
        platform::FolderChanges* changes;
        /// Of the same changes. The journal may flush it as well.
        platform::FolderFlushes* flushes;
        platform::ChangeGate* gate = &platform::ChangeGate::open();
        /// None: those of the running system.
        const platform::Volumes* volumes = nullptr;
        /// The folder of the person's own Trash; none for the usual one.
        std::optional<FileURL> trashHome = std::nullopt;
        std::function<Timestamp()> now = [] { return Timestamp::now(); };
    };
    static constexpr double secondsReceiptsAreKept = 90 * 86'400.0;

    explicit CleanupSettlement(Options options) : options_(std::move(options)) {}

    struct Report {
        std::vector<SettledCleanup> cleanups = {}; ///< oldest first
        std::vector<CleanupIntentJournaling::OpenIntents::Unreadable> unreadable = {};
    };
    enum class Depth : std::uint8_t {
        interrupted, ///< cleanups that never ended, or that have no receipt
        everything,  ///< also what others left in a private folder; reads the whole journal
    };
    /// What `settle` would find and do. Nothing is changed.
    [[nodiscard]] Result<Report> tell(Depth depth = Depth::interrupted);
    [[nodiscard]] Result<Report> settle(Depth depth = Depth::interrupted);

    using StoredReceipts =
        std::function<std::expected<std::vector<CleanupReceipt>, RecoveryLedgerError>()>;
    /// Forgets the intents that are settled and whose receipts are gone, and tells how many. An
    /// intent stays while an item of it is unaccounted for or lies in a private folder, and while
    /// any receipt of its plan is stored: it alone holds the identities of that receipt's items.
    /// `stored` gives every receipt of the ledger, also those whose time is over; it is asked while
    /// no cleanup can run.
    [[nodiscard]] Result<std::size_t> forgetThoseWithoutReceipts(const StoredReceipts& stored);

  private:
    enum class Purpose : std::uint8_t { tell, repair };
    [[nodiscard]] Result<Report> lookAtAll(Purpose purpose, Depth depth);
    [[nodiscard]] Result<void> addClosedOnes(std::vector<RecordedIntent>& intents);
    [[nodiscard]] Result<void> finish(const RecordedIntent& recorded, SettledCleanup& told);

    Options options_;
};

/// The receipt of a cleanup that ended without one, from what the journal knows. Its id follows
/// from the intent's, so that another run of recovery replaces it. `outcomes` of all entries are
/// known.
[[nodiscard]] CleanupReceipt receiptOfSettledCleanup(const CleanupIntent& intent,
                                                     Timestamp retainUntil);

} // namespace tidyro

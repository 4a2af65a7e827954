#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Base/FileURL.h"
#include "Base/RawValues.h"
#include "Base/Record.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"
#include "CareDomain/CleanupReceipt.h"
#include "CareDomain/ProofCard.h"
#include "Platform/Files/ChangeGate.h"
#include "StorageEngine/Recovery/FileCleanupIntentJournal.h"
#include "StorageEngine/Recovery/RecoveryLedger.h"

namespace tidyro {

/// Items of a cleanup that had one outcome.
struct CleanupHistoryTally {
    std::uint64_t count = 0;
    std::uint64_t byteCount = 0; ///< as planned, saturating

    void add(std::uint64_t bytes);
    static constexpr auto fields() {
        using Self = CleanupHistoryTally;
        return fieldList<Self>(field("count", &Self::count), field("byteCount", &Self::byteCount));
    }
    bool operator==(const CleanupHistoryTally&) const = default;
};

enum class CleanupHistoryKind : std::uint8_t {
    receipt,
    openIntent, ///< of a cleanup that runs, or that was cut short, or whose receipt is missing
};

constexpr RawValueTable<CleanupHistoryKind, 2> rawValues(RawValueTag<CleanupHistoryKind>) {
    using enum CleanupHistoryKind;
    return {{{{receipt, "receipt"}, {openIntent, "openIntent"}}}};
}

/// One cleanup, without its items.
struct CleanupHistoryLine {
    CleanupHistoryKind kind;
    UUID id; ///< of the receipt, or of the intent
    UUID planID;
    Timestamp createdAt;
    std::optional<Timestamp> retainUntil = std::nullopt; ///< of a receipt
    /// Of a receipt that tells of nothing done it is taken for recoverable.
    CleanupExecutionMode mode;
    CleanupHistoryTally movedToTrash = {}; ///< also what was put back or is gone from there since
    CleanupHistoryTally permanentlyRemoved = {};
    CleanupHistoryTally simulated = {};
    CleanupHistoryTally failed = {}; ///< or refused
    CleanupHistoryTally unresolved = {};
    std::optional<std::uint64_t> actuallyReclaimedByteCount = std::nullopt;

    static constexpr auto fields() {
        using Self = CleanupHistoryLine;
        return fieldList<Self>(
            field("kind", &Self::kind), field("id", &Self::id), field("planID", &Self::planID),
            field("createdAt", &Self::createdAt), field("retainUntil", &Self::retainUntil),
            field("mode", &Self::mode), field("movedToTrash", &Self::movedToTrash),
            field("permanentlyRemoved", &Self::permanentlyRemoved),
            field("simulated", &Self::simulated), field("failed", &Self::failed),
            field("unresolved", &Self::unresolved),
            field("actuallyReclaimedByteCount", &Self::actuallyReclaimedByteCount));
    }
    bool operator==(const CleanupHistoryLine&) const = default;
};

/// The history of cleanups at a glance: a small file beside the ledger with one line for each
/// receipt and each open intent, so that a list of them is shown without decoding every item.
///
///     CleanupHistoryIndex index({.ledgerURL = defaultLedgerURL(),
///                                .journal = &journal,
///                                .storedReceipts = [&] { return ledger.storedReceipts(); }});
///     const auto history = index.history();
///     if (history) for (const auto& line : history->lines) show(line);
///
/// It is a cache. When it is missing, damaged, or made from another state of the ledger or of the
/// journal, it is made anew from them. No action is ever based on it. Used by one thread; of
/// several processes each makes the same.
class CleanupHistoryIndex {
  public:
    using Error = std::variant<CleanupIntentJournalError, RecoveryLedgerError>;
    struct Options {
        FileURL ledgerURL;
        FileCleanupIntentJournal* journal;
        /// Every receipt of the ledger. Asked only when the index has to be made anew, so that the
        /// key is not needed otherwise.
        std::function<std::expected<std::vector<CleanupReceipt>, RecoveryLedgerError>()>
            storedReceipts;
        platform::ChangeGate* gate = &platform::ChangeGate::open();
    };
    explicit CleanupHistoryIndex(Options options) : options_(std::move(options)) {}

    struct History {
        std::vector<CleanupHistoryLine> lines = {}; ///< oldest first
        /// Intents whose files are damaged; `openIntents` tells which.
        std::uint64_t unreadableIntentCount = 0;
        bool wasMadeAnew = false;
    };
    [[nodiscard]] std::expected<History, Error> history();

    /// "history-index-v1" beside the ledger.
    [[nodiscard]] FileURL indexURL() const;

    struct FileState; ///< for the index alone

  private:
    struct State;
    [[nodiscard]] std::expected<State, Error> state() const;
    [[nodiscard]] std::optional<History> read(const State& now) const;
    [[nodiscard]] std::expected<History, Error> make() const;

    Options options_;
};

} // namespace tidyro

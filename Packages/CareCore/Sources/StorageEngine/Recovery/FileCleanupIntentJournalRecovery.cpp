// What recovery records in the journal.
#include <algorithm>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "StorageEngine/Recovery/FileCleanupIntentJournalParts.h"

namespace tidyro {

namespace {

using MovedItem = InterruptedCleanupReport::MovedItem;
using Outcome = CleanupIntentEntry::Outcome;
using OutcomesOfEntries = std::vector<EntryOutcome>;

/// What a receipt tells of an entry; none when it moved to a place that it does not tell.
std::optional<Outcome> outcomeInReceipt(const CleanupReceiptEntry& entry) {
    switch (entry.disposition) {
    case CleanupMoveDisposition::movedToTrash:
        if (!entry.resultingTrashURL) return std::nullopt;
        return Outcome{intent_outcome::MovedToTrash{*entry.resultingTrashURL}};
    case CleanupMoveDisposition::permanentlyRemoved:
        return Outcome{intent_outcome::PermanentlyRemoved{}};
    case CleanupMoveDisposition::simulated: return Outcome{intent_outcome::Simulated{}};
    case CleanupMoveDisposition::failed:
    case CleanupMoveDisposition::refused: break;
    }
    return Outcome{intent_outcome::Failed{
        entry.failureDescription.value_or("Left alone by the final check.")}};
}

/// Whether the journal and the receipt may both be right about an entry.
bool mayAgree(const Outcome& recorded, const CleanupReceiptEntry& entry) {
    switch (entry.disposition) {
    case CleanupMoveDisposition::movedToTrash:
        if (const auto* moved = std::get_if<intent_outcome::MovedToTrash>(&recorded.value)) {
            return !entry.resultingTrashURL || moved->url == *entry.resultingTrashURL;
        }
        return std::holds_alternative<intent_outcome::RestoredFromTrash>(recorded.value) ||
               std::holds_alternative<intent_outcome::NoLongerInTrash>(recorded.value);
    case CleanupMoveDisposition::permanentlyRemoved:
        return std::holds_alternative<intent_outcome::PermanentlyRemoved>(recorded.value);
    case CleanupMoveDisposition::simulated:
        return std::holds_alternative<intent_outcome::Simulated>(recorded.value);
    case CleanupMoveDisposition::failed:
    case CleanupMoveDisposition::refused: break;
    }
    return std::holds_alternative<intent_outcome::Failed>(recorded.value);
}

/// What an intent lacks of a receipt; none when the two cannot be of one cleanup.
std::optional<OutcomesOfEntries> missingOutcomes(const CleanupIntent& intent,
                                                 const CleanupReceipt& receipt) {
    if (intent.planID != receipt.planID) return std::nullopt;
    std::unordered_map<std::string_view, const CleanupIntentEntry*> entries;
    for (const CleanupIntentEntry& entry : intent.entries) {
        entries.try_emplace(entry.candidateID.rawValue, &entry);
    }
    OutcomesOfEntries missing;
    for (const CleanupReceiptEntry& told : receipt.entries) {
        const auto found = entries.find(told.candidateID.rawValue);
        if (found == entries.end()) return std::nullopt;
        if (const auto& recorded = found->second->outcome) {
            if (!mayAgree(*recorded, told)) return std::nullopt;
            continue;
        }
        auto outcome = outcomeInReceipt(told);
        if (!outcome) return std::nullopt;
        missing.push_back({told.candidateID, *std::move(outcome)});
    }
    return missing;
}

/// Finds the entries that items in the Trash are of.
class MovedItemFinder {
  public:
    explicit MovedItemFinder(const std::vector<RecordedIntent>& oldestFirst) {
        for (const RecordedIntent& recorded : oldestFirst) {
            for (const CleanupIntentEntry& entry : recorded.intent.entries) {
                bySource_[entry.sourceURL.path()].push_back({recorded.intent.id, &entry});
            }
        }
    }

    /// The newest entry that fits: it went to the Trash, or `outcome` is recorded already.
    [[nodiscard]] const std::pair<UUID, const CleanupIntentEntry*>*
    find(const MovedItem& item, const Outcome& outcome) const {
        const auto found = bySource_.find(item.originalURL.path());
        if (found == bySource_.end()) return nullptr;
        const Outcome moved{intent_outcome::MovedToTrash{item.trashURL}};
        for (auto each = found->second.rbegin(); each != found->second.rend(); ++each) {
            const CleanupIntentEntry& entry = *each->second;
            if ((entry.outcome == moved || entry.outcome == outcome) &&
                (!item.intentID || *item.intentID == each->first) &&
                (!item.candidateID || *item.candidateID == entry.candidateID)) {
                return &*each;
            }
        }
        return nullptr;
    }

  private:
    std::unordered_map<std::string, std::vector<std::pair<UUID, const CleanupIntentEntry*>>>
        bySource_;
};

std::unexpected<CleanupIntentJournalError> receiptRecoveryUnsupported() {
    return std::unexpected(
        CleanupIntentJournalError{CleanupIntentJournalError::ReceiptRecoveryUnsupported{}});
}

} // namespace

bool isReceiptOf(const CleanupReceipt& receipt, const CleanupIntent& intent) {
    const auto missing = missingOutcomes(intent, receipt);
    if (!missing || !missing->empty()) return false;
    std::unordered_set<std::string_view> told;
    for (const CleanupReceiptEntry& entry : receipt.entries)
        told.insert(entry.candidateID.rawValue);
    return std::ranges::all_of(intent.entries, [&](const CleanupIntentEntry& entry) {
        const bool isNothing =
            !entry.outcome || std::holds_alternative<intent_outcome::Failed>(entry.outcome->value);
        return isNothing || told.contains(entry.candidateID.rawValue);
    });
}

CleanupIntentJournaling::Result<void>
FileCleanupIntentJournal::requireReceiptRecovery(const CleanupReceipt& receipt) {
    const Writing writing(*this);
    if (!writing.taken()) return std::unexpected(writing.taken().error());
    const auto all = readAll(Wanted::all);
    if (!all) return std::unexpected(all.error());
    const CleanupIntent* newest = nullptr;
    OutcomesOfEntries missing;
    bool isAmbiguous = false;
    for (const RecordedIntent& recorded : all->intents) {
        auto lacking = missingOutcomes(recorded.intent, receipt);
        if (!lacking) continue;
        isAmbiguous = newest != nullptr && newest->createdAt == recorded.intent.createdAt;
        newest = &recorded.intent;
        missing = *std::move(lacking);
    }
    if (newest == nullptr || isAmbiguous) return receiptRecoveryUnsupported();
    const auto log = appender(newest->id);
    if (!log) return std::unexpected(log.error());
    for (EntryOutcome& outcome : missing) {
        const auto added = append(**log, IntentLogRecord{std::move(outcome)});
        if (!added) return added;
    }
    const auto added = append(**log, IntentLogRecord{intent_log::ReceiptMissing{}});
    return added ? flushWhatWaits(**log) : added;
}

CleanupIntentJournaling::Result<void>
FileCleanupIntentJournal::recordRestoreOutcomes(const RestoreOutcomes& outcomes) {
    const Writing writing(*this);
    if (!writing.taken()) return std::unexpected(writing.taken().error());
    const auto all = readAll(Wanted::all);
    if (!all) return std::unexpected(all.error());
    const MovedItemFinder finder(all->intents);
    std::map<UUID, OutcomesOfEntries> byIntent;
    const auto gather = [&](const MovedItem& item, Outcome outcome) {
        const auto* found = finder.find(item, outcome);
        if (found == nullptr) return false;
        byIntent[found->first].push_back({found->second->candidateID, std::move(outcome)});
        return true;
    };
    for (const MovedItem& item : outcomes.restored) {
        if (!gather(item, Outcome{intent_outcome::RestoredFromTrash{item.originalURL}})) {
            return receiptRecoveryUnsupported();
        }
    }
    for (const MovedItem& item : outcomes.noLongerInTrash) {
        if (!gather(item, Outcome{intent_outcome::NoLongerInTrash{item.trashURL}})) {
            return receiptRecoveryUnsupported();
        }
    }
    for (auto& [intentID, list] : byIntent) {
        const auto log = appender(intentID);
        if (!log) return std::unexpected(log.error());
        const auto added = append(**log, IntentLogRecord{intent_log::RestoreOutcomes{
                                             std::move(list), outcomes.requireReceiptRecovery}});
        if (!added) return added;
        if (auto flushed = flushWhatWaits(**log); !flushed) return flushed;
    }
    return {};
}

CleanupIntentJournaling::Result<void>
FileCleanupIntentJournal::recordReceiptStored(const UUID& intentID) {
    const Writing writing(*this);
    if (!writing.taken()) return std::unexpected(writing.taken().error());
    const auto log = appender(intentID);
    if (!log) return std::unexpected(log.error());
    const auto added = append(**log, IntentLogRecord{intent_log::RestoreOutcomes{
                                         .outcomes = {}, .receiptMissing = false}});
    return added ? flushWhatWaits(**log) : added;
}

} // namespace tidyro

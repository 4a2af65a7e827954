#include "StorageEngine/Cleanup/Settling/CleanupSettlement.h"

#include <algorithm>
#include <cerrno>
#include <set>
#include <span>
#include <string_view>
#include <utility>

#include "Base/PathText.h"
#include "Platform/Folders/TrashListing.h"
#include "Platform/Machine/SHA256.h"
#include "StorageEngine/Cleanup/Settling/CleanupSettlementLook.h"
#include "StorageEngine/Cleanup/Settling/CleanupSettlementRepair.h"

namespace tidyro {

namespace {

using SettledFound = SettledCleanup::Found;
using SettlementError = CleanupSettlementError;

template <class Cause>
std::unexpected<SettlementError> settlementFailure(Cause cause) {
    return std::unexpected(SettlementError{std::move(cause)});
}

/// The identifier of a volume without the number of its device, which follows where two disks had
/// one UUID.
std::string_view withoutDevice(std::string_view identifier) {
    return identifier.substr(0, identifier.find('@'));
}

/// What the journal records of what was found; none while that is an open question.
std::optional<CleanupIntentEntry::Outcome> outcomeOf(const SettledCleanup::Item& item) {
    const auto failed = [](std::string reason) {
        return CleanupIntentEntry::Outcome{intent_outcome::Failed{std::move(reason)}};
    };
    switch (item.found) {
    case SettledFound::atPlace:
        return failed("The cleanup was interrupted, and this item is still at its place.");
    case SettledFound::putBack:
        return failed("The cleanup was interrupted, so this item was put back.");
    case SettledFound::goneBefore:
        return failed("This item was gone before the cleanup got to it.");
    case SettledFound::inTrash:
        if (!item.url) return std::nullopt;
        return CleanupIntentEntry::Outcome{intent_outcome::MovedToTrash{*item.url}};
    case SettledFound::stays:
    case SettledFound::unaccounted: break;
    }
    return std::nullopt;
}

UUID receiptIDFor(const UUID& intentID) {
    platform::SHA256 hash;
    const std::string text = "receipt of the cleanup " + intentID.text();
    hash.update(std::as_bytes(std::span(text)));
    const auto digest = hash.finish();
    UUID::Bytes bytes{};
    std::copy_n(digest.begin(), bytes.size(), bytes.begin());
    bytes[6] =
        static_cast<std::uint8_t>((bytes[6] & 0x0FU) | 0x80U); // version 8: of our own making
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3FU) | 0x80U);
    return UUID(bytes);
}

/// Adds what an outcome says to the entry of a receipt.
struct AddToReceipt {
    CleanupReceiptEntry& entry;

    void operator()(const intent_outcome::MovedToTrash& moved) const {
        entry.disposition = CleanupMoveDisposition::movedToTrash;
        entry.resultingTrashURL = moved.url;
    }
    void operator()(const intent_outcome::NoLongerInTrash& gone) const {
        entry.disposition = CleanupMoveDisposition::movedToTrash;
        entry.resultingTrashURL = gone.url;
    }
    void operator()(const intent_outcome::RestoredFromTrash&) const {
        entry.failureDescription = "This item was put back from the Trash.";
    }
    void operator()(const intent_outcome::Failed& failed) const {
        entry.failureDescription = failed.reason;
    }
    void operator()(const intent_outcome::PermanentlyRemoved&) const {
        entry.disposition = CleanupMoveDisposition::permanentlyRemoved;
    }
    void operator()(const intent_outcome::Simulated&) const {
        entry.disposition = CleanupMoveDisposition::simulated;
    }
};

} // namespace

std::string CleanupSettlementError::description() const {
    struct Describe {
        std::string operator()(const CleanupIntentJournalError& error) const {
            return error.description();
        }
        std::string operator()(const CouldNotLook& error) const {
            return "Tidyro could not look for the items of an interrupted cleanup (" +
                   error.cause.description() + "). Nothing was changed.";
        }
        std::string operator()(const NotConfirmed& error) const {
            return "Tidyro put items of an interrupted cleanup in order, but the disk did not "
                   "confirm it (" +
                   error.cause.description() + "). They are looked at again the next time.";
        }
    };
    return std::visit(Describe{}, value);
}

std::vector<std::string> SettledCleanup::openQuestions() const {
    std::vector<std::string> told;
    const auto tell = [&](const auto& each) {
        const std::string path = each.originalURL.path();
        if (each.found == Found::stays) {
            const std::string at = each.url ? each.url->path() : "a private folder";
            told.push_back(path + " could not be put back and lies at " + at + ". " + each.reason +
                           " Move it by hand, or make room at its place, and Tidyro puts it back "
                           "the next time.");
        }
    };
    for (const Item& item : items) {
        tell(item);
        if (item.found != Found::unaccounted) continue;
        std::string text = "Tidyro could not confirm what became of " + item.originalURL.path() +
                           ". " + item.reason;
        for (std::size_t i = 0; i < item.foldersLookedInto.size(); ++i) {
            const bool isLast = i > 0 && i + 1 == item.foldersLookedInto.size();
            text += i == 0 ? " It was looked for in " : isLast ? " and " : ", ";
            text += item.foldersLookedInto[i];
        }
        if (!item.foldersLookedInto.empty()) text += '.';
        if (item.url) text += " It lies at " + item.url->path() + ".";
        told.push_back(text +
                       " If you find it elsewhere or do not miss it, there is nothing to do. "
                       "The record of this cleanup is kept, and the item is looked for again "
                       "the next time.");
    }
    for (const Stranger& stranger : strangers) tell(stranger);
    return told;
}

CleanupReceipt receiptOfSettledCleanup(const CleanupIntent& intent, Timestamp retainUntil) {
    CleanupReceipt receipt{.id = receiptIDFor(intent.id),
                           .planID = intent.planID,
                           .entries = {},
                           .createdAt = intent.createdAt,
                           .retainUntil = retainUntil};
    receipt.entries.reserve(intent.entries.size());
    for (const CleanupIntentEntry& entry : intent.entries) {
        CleanupReceiptEntry made{.candidateID = entry.candidateID,
                                 .originalURL = entry.sourceURL,
                                 .byteCount = entry.fingerprint.byteCount,
                                 .disposition = CleanupMoveDisposition::failed};
        if (entry.outcome) std::visit(AddToReceipt{made}, entry.outcome->value);
        receipt.entries.push_back(std::move(made));
    }
    return receipt;
}

CleanupSettlement::Result<CleanupSettlement::Report> CleanupSettlement::tell(Depth depth) {
    return lookAtAll(Purpose::tell, depth);
}

CleanupSettlement::Result<CleanupSettlement::Report> CleanupSettlement::settle(Depth depth) {
    const auto hold = options_.journal->hold();
    if (!hold) return settlementFailure(hold.error());
    return lookAtAll(Purpose::repair, depth);
}

CleanupSettlement::Result<CleanupSettlement::Report> CleanupSettlement::lookAtAll(Purpose purpose,
                                                                                  Depth depth) {
    auto open = options_.journal->openIntents();
    if (!open) return settlementFailure(open.error());
    Report report{.cleanups = {}, .unreadable = std::move(open->unreadable)};
    std::erase_if(open->intents, [](const RecordedIntent& each) { return each.isRunning; });
    if (depth == Depth::everything) {
        if (const auto added = addClosedOnes(open->intents); !added) {
            return std::unexpected(added.error());
        }
    }
    if (open->intents.empty()) return report;

    const platform::LiveVolumes live;
    const platform::Volumes& volumes = options_.volumes != nullptr ? *options_.volumes : live;
    if (const auto mounted = volumes.mounted(); !mounted) {
        return settlementFailure(SettlementError::CouldNotLook{mounted.error()});
    }
    std::set<std::string_view> identifiers; // an item can only be in a Trash of its own volume
    for (const RecordedIntent& recorded : open->intents) {
        for (const CleanupIntentEntry& entry : recorded.intent.entries) {
            const auto& volume = entry.fingerprint.volumeIdentifier;
            if (volume) identifiers.insert(withoutDevice(*volume));
        }
    }
    auto listing = platform::TrashListing::read({.volumes = &volumes,
                                                 .home = options_.trashHome,
                                                 .isAsked =
                                                     [&](const platform::Volume& volume) {
                                                         return identifiers.contains(
                                                             withoutDevice(volume.identifier));
                                                     },
                                                 .notes = platform::TrashListing::Notes::leave});

    CleanupSettlementLooker looker(volumes, listing);
    CleanupSettlementRepair repair(options_, volumes, listing);
    for (RecordedIntent& recorded : open->intents) {
        CleanupSettlementLook look = looker.look(recorded);
        const bool isEnded = !recorded.intent.isOpen() && !recorded.isReceiptMissing;
        if (isEnded && look.privatePlaces.empty()) continue;
        if (purpose == Purpose::repair) {
            repair.repair(look);
            if (const auto flushed = repair.flush(); !flushed) {
                return settlementFailure(SettlementError::NotConfirmed{flushed.error()});
            }
            for (std::size_t i = 0; i < look.told.items.size(); ++i) {
                auto outcome = outcomeOf(look.told.items[i]);
                const CleanupIntentEntry& known = *look.toldEntries[i];
                // A failure that the journal knows says more than that an item was put back.
                const bool isFailureKnown =
                    known.outcome && outcome &&
                    std::holds_alternative<intent_outcome::Failed>(known.outcome->value) &&
                    std::holds_alternative<intent_outcome::Failed>(outcome->value);
                if (!outcome || isFailureKnown || known.outcome == outcome) continue;
                const auto recordedOutcome = options_.journal->recordOutcome(
                    *outcome, known.candidateID, recorded.intent.id);
                if (!recordedOutcome) return settlementFailure(recordedOutcome.error());
                recorded.intent
                    .entries[static_cast<std::size_t>(&known - recorded.intent.entries.data())]
                    .outcome = std::move(outcome);
            }
            // Last, since they show how far the cleanup had come.
            const bool areFoldersGone = repair.removePrivateFolders(recorded.intent);
            if (const auto flushed = repair.flush(); !flushed) {
                return settlementFailure(SettlementError::NotConfirmed{flushed.error()});
            }
            if (look.told.isAccountedFor && !areFoldersGone) {
                look.told.troubles.emplace_back(
                    "A private folder of this cleanup could not be removed.");
            } else if (look.told.isAccountedFor && !isEnded) {
                const auto finished = finish(recorded, look.told);
                if (!finished) return std::unexpected(finished.error());
            }
        }
        look.told.isClosed = look.told.isClosed || isEnded;
        report.cleanups.push_back(std::move(look.told));
    }
    return report;
}

/// What could not go back at the end of a cleanup was told with its receipt, and lies in a private
/// folder.
CleanupSettlement::Result<void>
CleanupSettlement::addClosedOnes(std::vector<RecordedIntent>& intents) {
    auto all = options_.journal->allIntents();
    if (!all) return settlementFailure(all.error());
    for (RecordedIntent& recorded : all->intents) {
        if (recorded.intent.isOpen() || recorded.isReceiptMissing ||
            recorded.intent.mode != CleanupExecutionMode::permanent) {
            continue;
        }
        intents.push_back(std::move(recorded));
    }
    return {};
}

CleanupSettlement::Result<void> CleanupSettlement::finish(const RecordedIntent& recorded,
                                                          SettledCleanup& told) {
    const CleanupIntent& intent = recorded.intent;
    const Timestamp now = options_.now();
    const auto stored = options_.ledger->receipts(now);
    // The cleanup itself may have stored its receipt, and died before it could say so.
    const bool isStored = stored && std::ranges::any_of(*stored, [&](const CleanupReceipt& each) {
                              return isReceiptOf(each, intent);
                          });
    std::expected<void, RecoveryLedgerError> kept;
    if (!stored) {
        kept = std::unexpected(stored.error());
    } else if (!isStored) {
        kept = options_.ledger->append(
            receiptOfSettledCleanup(intent, now.adding(secondsReceiptsAreKept)));
    }
    if (!kept) {
        told.troubles.push_back(kept.error().description());
        return {};
    }
    if (recorded.isReceiptMissing) {
        const auto known = options_.journal->recordReceiptStored(intent.id);
        if (!known) return settlementFailure(known.error());
    }
    if (intent.isOpen()) {
        const auto closed = options_.journal->close(intent.id, now);
        if (!closed) return settlementFailure(closed.error());
    }
    told.isClosed = true;
    return {};
}

CleanupSettlement::Result<std::size_t>
CleanupSettlement::forgetThoseWithoutReceipts(const StoredReceipts& stored) {
    const auto hold = options_.journal->hold();
    if (!hold) return settlementFailure(hold.error());
    const auto receipts = stored();
    if (!receipts) return settlementFailure(SettlementError::CouldNotLook{receipts.error().cause});
    std::set<UUID> plansWithReceipts;
    for (const CleanupReceipt& receipt : *receipts) plansWithReceipts.insert(receipt.planID);
    const auto all = options_.journal->allIntents();
    if (!all) return settlementFailure(all.error());
    std::size_t forgotten = 0;
    for (const RecordedIntent& recorded : all->intents) {
        const CleanupIntent& intent = recorded.intent;
        if (intent.isOpen() || recorded.isReceiptMissing ||
            plansWithReceipts.contains(intent.planID) || !intent.unresolvedEntries().empty()) {
            continue;
        }
        const std::string name = platform::PrivateFolder::nameFor(intent.id);
        const auto parents = CleanupSettlementLooker::privateParents(intent);
        const bool isSomethingLeft = std::ranges::any_of(parents, [&](const auto& parent) {
            const auto seen = platform::fileMetadata(path::joined(parent.first, name));
            return seen || (seen.error().code != ENOENT && seen.error().code != ENOTDIR);
        });
        if (isSomethingLeft) continue;
        if (const auto gone = options_.journal->forget(intent.id); !gone) {
            return settlementFailure(gone.error());
        }
        ++forgotten;
    }
    return forgotten;
}

} // namespace tidyro

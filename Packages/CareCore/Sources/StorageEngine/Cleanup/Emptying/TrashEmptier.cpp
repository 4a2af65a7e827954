#include "StorageEngine/Cleanup/Emptying/TrashEmptier.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "Base/Saturating.h"
#include "Base/StringTable.h"
#include "Platform/Machine/RandomUUID.h"
#include "StorageEngine/Cleanup/Emptying/TrashedItemRemover.h"
#include "StorageEngine/Cleanup/Execution/CleanupEnding.h"
#include "StorageEngine/Trash/KeptCopies.h"

namespace tidyro {

namespace {

using EmptyingError = CleanupExecutionError;
using Entry = TrashEmptyingPlan::Entry;

std::unexpected<EmptyingError> notEmptied(EmptyingError::Cases why) {
    return std::unexpected(EmptyingError{std::move(why)});
}

/// The name of an item in the journal of an emptying. Two cleanups may have known two items by one
/// name; in the Trash each has its own place.
LocalItemID nameInTrash(const Entry& entry) { return {.rawValue = entry.trashURL.text()}; }

std::expected<void, EmptyingError> checkedRequest(const TrashEmptier::Request& request) {
    const TrashEmptyingPlan& plan = request.plan;
    StringSet places;
    const bool isUsable = std::ranges::all_of(plan.entries, [&](const Entry& entry) {
        return places.insert(entry.trashURL.path()).second;
    });
    if (plan.entries.empty() || !isUsable) return notEmptied(EmptyingError::InvalidPlan{});
    if (!request.acknowledgement) {
        return notEmptied(EmptyingError::MissingPermanentAcknowledgement{});
    }
    const PermanentCleanupAcknowledgement& told = *request.acknowledgement;
    if (told.planID != plan.id || !std::cmp_equal(told.itemCount, plan.entries.size()) ||
        told.byteCount != plan.byteCount() || told.acknowledgedAt < plan.createdAt) {
        return notEmptied(EmptyingError::PermanentAcknowledgementDoesNotMatchPlan{});
    }
    return {};
}

std::vector<KeptCopies::Leaving> leavingItems(const TrashEmptyingPlan& plan) {
    std::vector<KeptCopies::Leaving> leaving;
    leaving.reserve(plan.entries.size());
    for (const Entry& entry : plan.entries) {
        leaving.push_back({.url = entry.trashURL, .identity = identityIn(entry.fingerprint)});
    }
    return leaving;
}

} // namespace

std::uint64_t TrashEmptyingPlan::byteCount() const {
    std::uint64_t total = 0;
    for (const Entry& entry : entries) total = saturatingAdd(total, entry.byteCount);
    return total;
}

TrashEmptyingPlan TrashEmptyingPlan::make(std::span<const Source> sources, Timestamp at) {
    TrashEmptyingPlan plan{.id = platform::randomUUID(), .createdAt = at, .entries = {}};
    // A place in the Trash may have been used again after its item left. The last one counts.
    StringMap<std::size_t> byPlace;
    for (const Source& source : sources) {
        if (source.receipt.planID != source.intent.planID) continue;
        std::map<std::string_view, const CleanupIntentEntry*> journaled;
        for (const CleanupIntentEntry& entry : source.intent.entries) {
            journaled.emplace(entry.candidateID.rawValue, &entry);
        }
        for (const CleanupReceiptEntry& told : source.receipt.entries) {
            const auto known = journaled.find(told.candidateID.rawValue);
            if (!told.resultingTrashURL || known == journaled.end() ||
                told.disposition != CleanupMoveDisposition::movedToTrash) {
                continue;
            }
            const CleanupIntentEntry& entry = *known->second;
            const CleanupIntentEntry::Outcome moved{
                intent_outcome::MovedToTrash{*told.resultingTrashURL}};
            if (entry.outcome != moved || !identityIn(entry.fingerprint)) continue;
            Entry made{.intentID = source.intent.id,
                       .candidateID = told.candidateID,
                       .originalURL = entry.sourceURL,
                       .trashURL = *told.resultingTrashURL,
                       .fingerprint = entry.fingerprint,
                       .byteCount = told.byteCount,
                       .wentAt = source.receipt.createdAt};
            if (source.keptCopies != nullptr) {
                const auto kept = source.keptCopies->find(told.candidateID);
                if (kept != source.keptCopies->end()) made.keptCopy = kept->second;
            }
            const auto [at_, isNew] =
                byPlace.try_emplace(made.trashURL.path(), plan.entries.size());
            if (isNew) {
                plan.entries.push_back(std::move(made));
            } else if (plan.entries[at_->second].wentAt < made.wentAt) {
                plan.entries[at_->second] = std::move(made);
            }
        }
    }
    return plan;
}

/// One emptying that was acknowledged and journaled.
class TrashEmptier::Run {
  public:
    Run(const Request& request, const Options& options, const UUID& intentID)
        : request_(request),
          options_(options),
          intentID_(intentID),
          told_(request.plan.entries.size()),
          keptCopies_({.volumes = options.volumes,
                       .leaving = leavingItems(request.plan),
                       .volume = FingerprintComparison::Volume::byUUID}),
          remover_({.intentID = intentID,
                    .volumes = options.volumes,
                    .changes = options.changes,
                    .flushes = options.flushes,
                    .giveSpaceBack = [this] { return options_.journal.giveSpaceBack(); }}) {}

    /// Deals with every item, stores the receipt and closes the intent, however it ends.
    [[nodiscard]] std::expected<CleanupReceipt, CleanupExecutionError> carryOut();

  private:
    /// Why the run ends before its last item.
    using Stop = std::optional<EmptyingError::Cases>;
    struct Waiting {
        std::size_t index;
        TrashedItemRemover::Item item;
    };

    [[nodiscard]] Stop dealWithAll();
    [[nodiscard]] Stop setAside(std::size_t index);
    [[nodiscard]] Stop removeSetAside();
    [[nodiscard]] Stop removeForGood(Waiting& waiting);
    void putBackSetAside();
    [[nodiscard]] Stop record(std::size_t index, const CleanupIntentEntry::Outcome& outcome);
    [[nodiscard]] Stop leave(std::size_t index, CleanupMoveDisposition disposition,
                             std::string reason);
    [[nodiscard]] Stop leave(std::size_t index, CleanupMoveDisposition disposition,
                             const TrashRemovalError& error);
    void add(std::size_t index, CleanupMoveDisposition disposition,
             std::optional<std::string> failure = std::nullopt);
    [[nodiscard]] CleanupReceipt receipt();
    [[nodiscard]] std::expected<CleanupReceipt, CleanupExecutionError> finish(Stop stop);

    [[nodiscard]] const Entry& entry(std::size_t index) const {
        return request_.plan.entries[index];
    }

    const Request& request_;
    const Options& options_;
    UUID intentID_;
    std::vector<std::optional<CleanupReceiptEntry>> told_; ///< of each entry, once it is over
    KeptCopies keptCopies_;
    TrashedItemRemover remover_;
    std::vector<Waiting> setAside_;
    CleanupIntentJournaling::RestoreOutcomes gone_;
    std::size_t completed_ = 0;
    std::uint64_t freedBytes_ = 0;
    bool isSomethingElsewhere_ = false;
};

TrashEmptier::Run::Stop TrashEmptier::Run::dealWithAll() {
    for (std::size_t index = 0; index < told_.size(); ++index) {
        if (request_.cancel.stop_requested()) {
            return EmptyingError::CancelledAfterPartialExecution{.receipt = {}};
        }
        if (auto stop = setAside(index)) return stop;
        if (setAside_.size() < maxSetAside) continue;
        if (auto stop = removeSetAside()) return stop;
    }
    return removeSetAside();
}

TrashEmptier::Run::Stop TrashEmptier::Run::setAside(std::size_t index) {
    using enum CleanupMoveDisposition;
    const Entry& planned = entry(index);
    // By such a clock whatever was put into the folder since would look older than its removal.
    if (request_.at < planned.wentAt) {
        return leave(
            index, refused,
            "By the clock this went to the Trash later than now, so it was left alone. Set "
            "the clock right and try again.");
    }
    auto item = remover_.find({.trashURL = planned.trashURL,
                               .fingerprint = planned.fingerprint,
                               .wentAt = planned.wentAt});
    if (!item) return leave(index, refused, item.error().description());
    if (planned.keptCopy) {
        const auto kept = keptCopies_.check(*planned.keptCopy, item->seen().identity);
        if (!kept) return leave(index, refused, std::string(description(kept.error())));
    }
    if (const auto aside = remover_.setAside(*item); !aside) {
        return leave(index, failed, aside.error());
    }
    setAside_.push_back({.index = index, .item = *std::move(item)});
    return std::nullopt;
}

TrashEmptier::Run::Stop TrashEmptier::Run::removeSetAside() {
    if (setAside_.empty()) return std::nullopt;
    // What is recorded is on the disk for good before the first item is gone. So there is never an
    // item that is nowhere and of which nothing is written.
    for (const Waiting& waiting : setAside_) {
        if (auto stop = record(waiting.index, {intent_outcome::PermanentlyRemoved{}})) return stop;
    }
    if (const auto flushed = options_.journal.flushRecords(intentID_); !flushed) {
        return EmptyingError::JournalStopped{.error = flushed.error(), .receipt = {}};
    }
    std::vector<Waiting> batch = std::exchange(setAside_, {});
    for (auto waiting = batch.begin(); waiting != batch.end(); ++waiting) {
        auto stop = removeForGood(*waiting);
        if (!stop) continue;
        // Whatever happens from here on could not be written down: the others go back.
        setAside_ =
            std::vector<Waiting>(std::move_iterator(waiting + 1), std::move_iterator(batch.end()));
        return stop;
    }
    return std::nullopt;
}

TrashEmptier::Run::Stop TrashEmptier::Run::removeForGood(Waiting& waiting) {
    const std::size_t index = waiting.index;
    const Entry& planned = entry(index);
    // Other items may have gone since it was set aside, and a minute may have passed.
    if (planned.keptCopy) {
        const auto kept = keptCopies_.check(*planned.keptCopy, waiting.item.seen().identity);
        if (!kept) {
            const auto because = remover_.putBack(std::move(waiting.item),
                                                  {.kind = TrashRemovalError::Kind::failed});
            if (because.displaced) return leave(index, CleanupMoveDisposition::failed, because);
            return leave(index, CleanupMoveDisposition::refused,
                         std::string(description(kept.error())));
        }
    }
    const auto removed = remover_.remove(std::move(waiting.item));
    freedBytes_ = saturatingAdd(freedBytes_, removed.freedBytes);
    // An item that is not gone: what was recorded is taken back.
    if (removed.error) return leave(index, CleanupMoveDisposition::failed, *removed.error);
    gone_.noLongerInTrash.push_back({.originalURL = planned.originalURL,
                                     .trashURL = planned.trashURL,
                                     .intentID = planned.intentID,
                                     .candidateID = planned.candidateID});
    add(index, CleanupMoveDisposition::permanentlyRemoved);
    return std::nullopt;
}

void TrashEmptier::Run::putBackSetAside() {
    for (Waiting& waiting : std::exchange(setAside_, {})) {
        const auto because =
            remover_.putBack(std::move(waiting.item), {.kind = TrashRemovalError::Kind::failed,
                                                       .reason = "the cleanup stopped"});
        static_cast<void>(leave(waiting.index, CleanupMoveDisposition::failed, because));
    }
}

TrashEmptier::Run::Stop TrashEmptier::Run::record(std::size_t index,
                                                  const CleanupIntentEntry::Outcome& outcome) {
    const auto recorded =
        options_.journal.recordOutcome(outcome, nameInTrash(entry(index)), intentID_);
    if (recorded) return std::nullopt;
    return EmptyingError::JournalStopped{.error = recorded.error(), .receipt = {}};
}

TrashEmptier::Run::Stop TrashEmptier::Run::leave(std::size_t index,
                                                 CleanupMoveDisposition disposition,
                                                 std::string reason) {
    add(index, disposition, reason);
    return record(index, {intent_outcome::Failed{std::move(reason)}});
}

TrashEmptier::Run::Stop TrashEmptier::Run::leave(std::size_t index,
                                                 CleanupMoveDisposition disposition,
                                                 const TrashRemovalError& error) {
    isSomethingElsewhere_ = isSomethingElsewhere_ || error.displaced ||
                            error.kind == TrashRemovalError::Kind::partlyRemoved;
    return leave(index, disposition, error.description());
}

void TrashEmptier::Run::add(std::size_t index, CleanupMoveDisposition disposition,
                            std::optional<std::string> failure) {
    told_[index] = CleanupReceiptEntry{.candidateID = nameInTrash(entry(index)),
                                       .originalURL = entry(index).trashURL,
                                       .byteCount = entry(index).byteCount,
                                       .disposition = disposition,
                                       .failureDescription = std::move(failure)};
    ++completed_;
    if (request_.onProgress) {
        request_.onProgress(
            {.itemsCompleted = completed_, .itemsTotal = told_.size(), .freedBytes = freedBytes_});
    }
}

CleanupReceipt TrashEmptier::Run::receipt() {
    CleanupReceipt made{.id = platform::randomUUID(),
                        .planID = request_.plan.id,
                        .entries = {},
                        .createdAt = request_.at,
                        .retainUntil = request_.at.adding(std::max(1.0, options_.receiptRetention)),
                        .actuallyReclaimedByteCount = freedBytes_};
    made.entries.reserve(told_.size());
    for (std::size_t index = 0; index < told_.size(); ++index) {
        if (!told_[index]) {
            add(index, CleanupMoveDisposition::refused,
                "The cleanup stopped before it reached this item.");
        }
        if (auto& told = told_[index]) made.entries.push_back(*std::move(told));
    }
    return made;
}

std::expected<CleanupReceipt, CleanupExecutionError> TrashEmptier::Run::carryOut() {
    return finish(dealWithAll());
}

std::expected<CleanupReceipt, CleanupExecutionError> TrashEmptier::Run::finish(Stop stop) {
    putBackSetAside();
    remover_.removePrivateFolders();
    const auto need = [&](const CleanupIntentJournaling::Result<void>& done) {
        if (done || stop) return;
        stop = EmptyingError::JournalStopped{.error = done.error(), .receipt = {}};
    };
    // What the receipt tells has to be on the disk before the receipt is. The journal flushes what
    // was changed only together with records, and the last removals had theirs before.
    if (const auto flushed = options_.flushes.flush(); !flushed && !stop) {
        stop = EmptyingError::JournalStopped{
            .error = {CleanupIntentJournalError::CouldNotWrite{flushed.error().description()}},
            .receipt = {}};
    }
    need(options_.journal.flushRecords(intentID_));
    if (!gone_.noLongerInTrash.empty()) need(options_.journal.recordRestoreOutcomes(gone_));
    return CleanupEnding{.ledger = options_.ledger,
                         .journal = &options_.journal,
                         .intentID = intentID_,
                         .at = Timestamp::now(),
                         .mode = CleanupExecutionMode::permanent,
                         .isSomethingElsewhere = isSomethingElsewhere_}
        .end(receipt(), std::move(stop));
}

std::expected<CleanupReceipt, CleanupExecutionError> TrashEmptier::empty(const Request& request) {
    if (const auto checked = checkedRequest(request); !checked) {
        return std::unexpected(checked.error());
    }
    CleanupIntent intent{.id = platform::randomUUID(),
                         .planID = request.plan.id,
                         .createdAt = request.at,
                         .mode = CleanupExecutionMode::permanent,
                         .entries = {}};
    intent.entries.reserve(request.plan.entries.size());
    for (const Entry& entry : request.plan.entries) {
        intent.entries.push_back({.candidateID = nameInTrash(entry),
                                  .sourceURL = entry.trashURL,
                                  .fingerprint = entry.fingerprint});
    }
    if (const auto begun = options_.journal.begin(intent); !begun) {
        return std::unexpected(EmptyingError::fromBegin(begun.error()));
    }
    return Run(request, options_, intent.id).carryOut();
}

} // namespace tidyro

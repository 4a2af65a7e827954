#include "StorageEngine/Cleanup/Execution/CleanupRun.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <string_view>
#include <utility>
#include <variant>

#include "Base/Cases.h"
#include "Platform/Machine/RandomUUID.h"
#include "Platform/Mounts/MountPoints.h"
#include "StorageEngine/Cleanup/Execution/CleanupEnding.h"
#include "StorageEngine/PickedItems/ApplicationRemovalPolicy.h"
#include "StorageEngine/PickedItems/DiskItemRemovalPolicy.h"
#include "StorageEngine/PickedItems/ProjectArtifactRemovalPolicy.h"
#include "StorageEngine/Trash/TrashMover.h"

namespace tidyro {

namespace {

using Error = CleanupExecutionError;
using Kind = CleanupMutationError::Kind;
using enum CleanupMoveDisposition;

constexpr double secondsBetweenRevalidations = 60;
/// A context that is older is taken anew before a picked item goes.
constexpr double maxContextAge = 5;
/// As many as the journal gathers before it flushes, and for as long.
constexpr std::size_t maxSetAside = 200;
constexpr double maxSecondsSetAside = 1;

std::string_view receiptText(CleanupAuthorizationError error, const CleanupPlanEntry& entry) {
    switch (error) {
    case CleanupAuthorizationError::missingAuthorization:
        return "This item had no recorded scan root, so it was skipped.";
    case CleanupAuthorizationError::ruleDoesNotCoverItem:
        return entry.authorization && entry.authorization->isApplicationBundle()
                   ? "The plan named a different application from the one it points at."
                   : "No shipped rule covers this item any more.";
    case CleanupAuthorizationError::rootNotAuthorizedInThisSession:
        return "The folder that authorized this item is no longer open.";
    case CleanupAuthorizationError::cannotActOnTheRootItself:
        return "A cleanup cannot act on the scan root itself.";
    case CleanupAuthorizationError::itemOutsideAuthorizedRoot: break;
    }
    return "The item was outside the folder that authorized it.";
}

/// Whether an item was picked by a person, and may be a folder.
bool isPicked(const CleanupPlanEntry& entry) {
    return entry.authorization &&
           (entry.authorization->isDiskItem() || entry.authorization->isProjectArtifact() ||
            entry.authorization->isApplicationBundle());
}

/// Why an item of its kind may not be removed for good, whatever else holds.
std::string_view refusalOfRemoval(const CleanupPlanEntry& entry) {
    if (entry.authorization && entry.authorization->isDiskItem()) {
        return "Whole files and folders from a scan only ever go to the Trash.";
    }
    if (entry.authorization && entry.authorization->isProjectArtifact()) {
        return "Project folders are only ever moved to the Trash.";
    }
    if (entry.authorization && entry.authorization->isApplicationBundle()) {
        return "Applications are only ever moved to the Trash.";
    }
    return entry.proofCard.riskTier == RiskTier::safeToReclaim
               ? std::string_view()
               : "Only Safe to Reclaim items can be removed permanently.";
}

std::string_view notChecked(const CleanupAuthorization& authorization) {
    if (authorization.isDiskItem()) return "This could not be checked before moving it.";
    return authorization.isProjectArtifact()
               ? "This folder could not be checked before moving it."
               : "This application could not be checked before removal.";
}

template <class Refusal>
std::optional<std::string> refusalIn(const std::expected<CleanupPlanEntry, Refusal>& now,
                                     const CleanupPlanEntry& entry) {
    if (!now) return std::string(explanation(now.error()));
    if (now->fingerprint == entry.fingerprint) return std::nullopt;
    return CleanupMutationError{.kind = Kind::identityChanged}.receiptDescription();
}

} // namespace

CleanupRun::CleanupRun(const Parts& parts)
    : parts_(parts),
      plan_(parts.request.plan),
      told_(plan_.entries.size()),
      guard_(parts.machine.volumes),
      trash_({.volumes = &parts.machine.volumes,
              .changes = &parts.machine.changes,
              .gate = parts.machine.gate,
              .flushes = parts.options.flushes,
              .home = parts.machine.trashHome}),
      startedAt_(parts.machine.steadySeconds()),
      revalidatedAt_(startedAt_),
      progress_{.itemsCompleted = 0,
                .itemsTotal = plan_.entries.size(),
                .itemsRefused = 0,
                .bytesReclaimed = 0} {}

// The run -------------------------------------------------------------------------------------

std::expected<CleanupReceipt, CleanupExecutionError>
CleanupRun::carryOut(PlanRevalidationReport report) {
    issues_.reserve(report.entries.size());
    for (const EntryRevalidation& entry : report.entries) issues_.push_back(entry.issue);
    report = {};
    if (plan_.mode == CleanupExecutionMode::permanent) {
        remover_ = std::make_unique<SystemPermanentRemover>(SystemPermanentRemover::Options{
            .intentID = parts_.intentID,
            .changes = parts_.machine.changes,
            .flushes = *parts_.options.flushes,
            .trash = trash_,
            .giveSpaceBack = [this] { return parts_.options.journal->giveSpaceBack(); }});
        for (const CleanupPlanEntry& entry : plan_.entries) remover_->expect(entry.sourceURL);
    }
    return finish(dealWithAll());
}

CleanupRun::Stop CleanupRun::dealWithAll() {
    for (std::size_t index = 0; index < plan_.entries.size(); ++index) {
        if (parts_.request.cancel.stop_requested()) {
            return Error::CancelledAfterPartialExecution{};
        }
        if (isMinuteOver()) {
            if (auto stop = removeSetAside()) return stop;
            if (auto stop = revalidateRest(index)) return stop;
        }
        if (auto stop = dealWith(index)) return stop;
        const bool isWaitingLong =
            !setAside_.empty() &&
            parts_.machine.steadySeconds() - setAsideSince_ > maxSecondsSetAside;
        if (setAside_.size() >= maxSetAside || isWaitingLong) {
            if (auto stop = removeSetAside()) return stop;
        }
    }
    return removeSetAside();
}

bool CleanupRun::isMinuteOver() const {
    return parts_.machine.steadySeconds() - revalidatedAt_ > secondsBetweenRevalidations;
}

CleanupRun::Stop CleanupRun::revalidateRest(std::size_t from) {
    const double passed = parts_.machine.steadySeconds() - startedAt_;
    auto report = parts_.revalidator.revalidate(plan_, parts_.request.at.adding(passed),
                                                {.firstEntry = from,
                                                 .expiry = PlanRevalidator::Expiry::judgedBefore,
                                                 .cancel = parts_.request.cancel});
    if (!report) return Error::CancelledAfterPartialExecution{};
    std::size_t expected = 0;
    std::size_t failed = 0;
    for (std::size_t i = 0; i < report->entries.size(); ++i) {
        auto& issue = issues_[from + i];
        if (issue) continue; // what the approved list failed once stays
        ++expected;
        issue = report->entries[i].issue;
        if (issue) ++failed;
    }
    revalidatedAt_ = parts_.machine.steadySeconds();
    if (failed * 2 <= expected) return std::nullopt;
    return Error::RevalidationFailedAfterPartial{.entries = std::move(report->entries),
                                                 .receipt = {}};
}

CleanupRun::Stop CleanupRun::dealWith(std::size_t index) {
    const CleanupPlanEntry& entry = plan_.entries[index];
    // Another name of a file that is set aside: to remove the one changes what the system keeps of
    // the other, so one comes after the other.
    const auto identity = identityIn(entry.fingerprint);
    if (identity && severalNamesSetAside_.contains(*identity)) {
        if (auto stop = removeSetAside()) return stop;
    }
    auto item = verified(index);
    if (!item) {
        if (remover_) remover_->forget(entry.sourceURL);
        return leave(index, item.error());
    }
    const auto failure = [](const CleanupMutationError& error) {
        const bool isUntouched =
            error.kind != Kind::moveFailed && error.kind != Kind::removeFailed && !error.displaced;
        return failureOf(error, isUntouched ? refused : failed);
    };
    switch (plan_.mode) {
    case CleanupExecutionMode::recoverable: {
        const auto moved = moveToTrash(*std::move(item), entry);
        if (!moved) return leave(index, failure(moved.error()));
        add(index, movedToTrash, *moved);
        auto stop = record(index, {intent_outcome::MovedToTrash{*moved}});
        report(entry.proofCard.byteCount);
        return stop;
    }
    case CleanupExecutionMode::permanent: {
        auto aside = remover_->setAside(entry.sourceURL, *std::move(item));
        remover_->forget(entry.sourceURL);
        if (!aside) return leave(index, failure(aside.error()));
        if (setAside_.empty()) setAsideSince_ = parts_.machine.steadySeconds();
        const platform::FileMetadata& seen = aside->item().seen;
        if (seen.linkCount > 1) severalNamesSetAside_.insert(seen.identity);
        setAside_.push_back({.index = index, .file = *std::move(aside)});
        return std::nullopt;
    }
    case CleanupExecutionMode::simulation: break;
    }
    // Taking a place in the Trash would change something; what would refuse it can be asked.
    if (const auto refusal = platform::trashRefusal({.folder = item->parent,
                                                     .name = item->name,
                                                     .path = item->realPath,
                                                     .seen = item->seen})) {
        return leave(index, failure(TrashRefusalDiagnosis::mutationError(*refusal)));
    }
    if (const auto prepared = prepareMove(*item); !prepared) {
        return leave(index, failure(prepared.error()));
    }
    add(index, simulated);
    auto stop = record(index, {intent_outcome::Simulated{}});
    report(0);
    return stop;
}

// Whether an item may be touched -----------------------------------------------------------------

std::optional<CleanupRun::Left> CleanupRun::reasonToLeave(std::size_t index) const {
    const CleanupPlanEntry& entry = plan_.entries[index];
    if (issues_[index]) {
        return Left{.disposition = refused,
                    .told = std::string(CleanupExecutor::heldText),
                    .recorded = "refused at revalidation"};
    }
    if (plan_.mode == CleanupExecutionMode::permanent) {
        if (const std::string text(refusalOfRemoval(entry)); !text.empty()) {
            return Left{.disposition = refused, .told = text, .recorded = text};
        }
    }
    return std::nullopt;
}

std::expected<VerifiedItem, CleanupRun::Left> CleanupRun::verified(std::size_t index) {
    const auto refuse = [](const std::string& text) {
        return std::unexpected(Left{.disposition = refused, .told = text, .recorded = text});
    };
    if (auto left = reasonToLeave(index)) return std::unexpected(*std::move(left));
    const CleanupPlanEntry& entry = plan_.entries[index];
    if (isPicked(entry)) {
        if (auto text = refusalByPolicy(entry)) return refuse(*std::move(text));
    }
    const auto root =
        parts_.verifier.authorizedRoot(entry.authorization, entry.sourceURL, &resolver_);
    if (!root) return refuse(std::string(receiptText(root.error(), entry)));
    // A project's folder is the root of what was generated in it, but the folder itself goes.
    const FileURL& authorized = isPicked(entry) ? entry.sourceURL : *root;
    auto item = guard_.look(
        {.source = entry.sourceURL,
         .fingerprint = entry.fingerprint,
         .authorizedRoot = authorized,
         .sheet = parts_.request.sheet != nullptr ? &parts_.request.sheet->entries[index] : nullptr,
         .plannedAt = plan_.createdAt,
         .accepts = isPicked(entry) ? MutationIdentityGuard::Accepts::foldersToo
                                    : MutationIdentityGuard::Accepts::regularFiles});
    if (!item) return refuse(item.error().receiptDescription());
    if (const auto text = refusalOfCopy(index, *item)) return refuse(std::string(*text));
    return *std::move(item);
}

std::optional<std::string_view> CleanupRun::refusalOfCopy(std::size_t index,
                                                          const VerifiedItem& item) {
    const CleanupSheetEntry* noted =
        parts_.request.sheet != nullptr ? &parts_.request.sheet->entries[index] : nullptr;
    if (noted == nullptr || !noted->keptCopy) {
        // An extra copy of which nobody knows what it is a copy of is nobody's extra copy.
        const bool isCopy =
            plan_.entries[index].proofCard.category == CleanupCategory::exactDuplicate;
        return isCopy ? std::optional(description(KeptCopyFailure::gone)) : std::nullopt;
    }
    if (!keptCopies_) {
        std::vector<KeptCopies::Leaving> leaving;
        leaving.reserve(plan_.entries.size());
        for (const CleanupPlanEntry& entry : plan_.entries) {
            leaving.push_back({.url = entry.sourceURL, .identity = identityIn(entry.fingerprint)});
        }
        keptCopies_.emplace(
            KeptCopies::Options{.volumes = parts_.machine.volumes, .leaving = leaving});
    }
    const auto there = keptCopies_->check(*noted->keptCopy, item.seen.identity);
    return there ? std::nullopt : std::optional(description(there.error()));
}

std::shared_ptr<const SafetyPolicyContext> CleanupRun::recentContext() {
    const double now = parts_.machine.steadySeconds();
    if (!context_ || now - contextTakenAt_ > maxContextAge) {
        context_ = parts_.machine.freshContext ? parts_.machine.freshContext() : nullptr;
        contextTakenAt_ = now;
    }
    return context_;
}

/// What the item's own policy says now. Each policy looks through all that goes with the item, so
/// that nothing goes that was put there since the plan was checked.
std::optional<std::string> CleanupRun::refusalByPolicy(const CleanupPlanEntry& entry) {
    if (!entry.authorization) {
        return std::string(receiptText(CleanupAuthorizationError::missingAuthorization, entry));
    }
    const auto context = recentContext();
    if (!context) return std::string(notChecked(*entry.authorization));
    const DiskItemRemovalPolicy::Options options{.home = parts_.options.home,
                                                 .openedFolders = parts_.options.sessionRoots,
                                                 .context = context,
                                                 .volumes = parts_.machine.volumes};
    const double passed = parts_.machine.steadySeconds() - startedAt_;
    const Timestamp at = parts_.request.at.adding(passed);
    const auto& claim = casesOf(*entry.authorization);
    if (const auto* item = std::get_if<authorization::DiskItem>(&claim)) {
        DiskItemRemovalPolicy policy(options);
        return refusalIn(policy.planEntry({.item = entry.sourceURL,
                                           .placeID = item->placeID,
                                           .measuredBytes = entry.proofCard.byteCount,
                                           .built = plan_.createdAt,
                                           .at = at,
                                           .cancel = parts_.request.cancel}),
                         entry);
    }
    if (const auto* artifact = std::get_if<authorization::ProjectArtifact>(&claim)) {
        ProjectArtifactRemovalPolicy policy(options);
        return refusalIn(policy.planEntry({.artifact = *artifact,
                                           .measuredBytes = entry.proofCard.byteCount,
                                           .built = plan_.createdAt,
                                           .at = at,
                                           .cancel = parts_.request.cancel}),
                         entry);
    }
    const auto& app = std::get<authorization::UserSelectedApplication>(claim);
    ApplicationRemovalPolicy policy({.home = parts_.options.home,
                                     .context = context,
                                     .volumes = parts_.machine.volumes,
                                     .applications = parts_.machine.applications});
    return refusalIn(policy.planEntry({.bundle = entry.sourceURL,
                                       .bundleIdentifier = app.bundleIdentifier,
                                       .measuredBytes = entry.proofCard.byteCount,
                                       .built = plan_.createdAt,
                                       .at = at,
                                       .cancel = parts_.request.cancel}),
                     entry);
}

// Moving and removing ----------------------------------------------------------------------------

/// The last look before an item is moved. Whether its folder and its owner allow that was asked
/// before, when its place in the Trash was taken.
CleanupRun::Mutated CleanupRun::prepareMove(VerifiedItem& item) const {
    const auto failed = [](std::optional<std::string> reason) {
        return std::unexpected(
            CleanupMutationError{.kind = Kind::moveFailed, .reason = std::move(reason)});
    };
    if (item.takeLease() == platform::FileUse::inUse) {
        return failed(appAuthoredFileSystemFailureReason({EBUSY}));
    }
    if (item.seen.kind == platform::ItemKind::folder) {
        // What is mounted in it would move with it.
        const auto folder = item.parent.open(item.name.c_str());
        if (!folder) return std::unexpected(CleanupMutationError{.kind = Kind::identityChanged});
        if (!platform::mountPointsBelow(*folder).empty()) {
            return failed("something is mounted inside it");
        }
    }
    if (!item.isUntouched()) {
        return std::unexpected(CleanupMutationError{.kind = Kind::identityChanged});
    }
    return {};
}

std::expected<platform::TrashSlot, platform::TrashError>
CleanupRun::reserve(const platform::TrashItem& item) {
    auto slot = trash_.reserve(item);
    if (slot || slot.error().kind != platform::TrashFailure::full ||
        !parts_.options.journal->giveSpaceBack()) {
        return slot;
    }
    return trash_.reserve(item);
}

std::expected<FileURL, CleanupMutationError>
CleanupRun::moveToTrash(VerifiedItem item, const CleanupPlanEntry& entry) {
    auto slot = reserve({.folder = item.parent,
                         .name = item.name,
                         .path = item.realPath,
                         .seen = item.seen,
                         .byteCount = entry.proofCard.byteCount});
    if (!slot) return std::unexpected(TrashRefusalDiagnosis::mutationError(slot.error()));
    if (const auto prepared = prepareMove(item); !prepared) {
        return std::unexpected(prepared.error());
    }
    if (item.held.isLeaseBroken()) { // by somebody who waits for it
        return std::unexpected(CleanupMutationError{
            .kind = Kind::moveFailed, .reason = appAuthoredFileSystemFailureReason({EBUSY})});
    }
    auto moved = slot->move();
    // The folder that it goes into may need a block of its own.
    if (!moved && moved.error().kind == platform::TrashFailure::full &&
        parts_.options.journal->giveSpaceBack()) {
        moved = slot->move();
    }
    if (!moved) return std::unexpected(TrashRefusalDiagnosis::mutationError(moved.error()));
    if (item.held.isLeaseBroken() || !item.isAt(slot->folder(), slot->name())) {
        CleanupMutationError changed{.kind = Kind::identityChanged};
        item.held.releaseLease();
        if (!slot->moveBack()) changed.displaced = slot->url();
        return std::unexpected(std::move(changed));
    }
    if (item.seen.linkCount > 1) {
        if (const auto after = item.held.metadata()) guard_.noteOwnChange(*after);
    }
    return slot->url();
}

CleanupRun::Stop CleanupRun::removeSetAside() {
    if (setAside_.empty()) return std::nullopt;
    CleanupIntentJournaling& journal = *parts_.options.journal;
    // What is recorded is on the disk for good before the first file is gone. So there is never a
    // file that is nowhere and of which nothing is written.
    for (const SetAside& aside : setAside_) {
        if (auto stop = record(aside.index, {intent_outcome::PermanentlyRemoved{}})) return stop;
    }
    if (const auto flushed = journal.flushRecords(parts_.intentID); !flushed) {
        return Error::JournalStopped{.error = flushed.error(), .receipt = {}};
    }
    severalNamesSetAside_.clear();
    std::vector<SetAside> batch = std::exchange(setAside_, {});
    for (auto aside = batch.begin(); aside != batch.end(); ++aside) {
        const std::size_t index = aside->index;
        const auto done = remover_->remove(std::move(aside->file));
        if (!done) {
            // The item is not gone, so what was recorded is taken back.
            auto stop = leave(index, failureOf(done.error(), failed));
            if (!stop) continue;
            // Whatever happens from here on could not be written down: the others go back.
            setAside_ = std::vector<SetAside>(std::move_iterator(aside + 1),
                                              std::move_iterator(batch.end()));
            return stop;
        }
        const SystemPermanentRemover::Removed& gone = *done;
        if (gone.otherNames) guard_.noteOwnChange(*gone.otherNames);
        freedBytes_ = saturatingAdd(freedBytes_, gone.freedBytes);
        add(index, permanentlyRemoved);
        report(plan_.entries[index].proofCard.byteCount);
    }
    return std::nullopt;
}

void CleanupRun::putBackSetAside() {
    for (SetAside& aside : std::exchange(setAside_, {})) {
        const std::size_t index = aside.index;
        CleanupMutationError because{.kind = Kind::removeFailed, .reason = "the cleanup stopped"};
        because = remover_->putBack(std::move(aside.file), std::move(because));
        static_cast<void>(leave(index, failureOf(because, failed)));
    }
}

// What became of the items -----------------------------------------------------------------------

CleanupRun::Stop CleanupRun::record(std::size_t index, const CleanupIntentEntry::Outcome& outcome) {
    if (parts_.options.journal == nullptr) return std::nullopt;
    const auto recorded = parts_.options.journal->recordOutcome(
        outcome, plan_.entries[index].candidateID, parts_.intentID);
    if (recorded) return std::nullopt;
    return Error::JournalStopped{.error = recorded.error(), .receipt = {}};
}

CleanupRun::Left CleanupRun::failureOf(const CleanupMutationError& error,
                                       CleanupMoveDisposition disposition) {
    const std::string text = error.receiptDescription();
    return {.disposition = disposition,
            .told = text,
            .recorded = text,
            .isElsewhere = error.displaced.has_value()};
}

CleanupRun::Stop CleanupRun::leave(std::size_t index, const Left& left) {
    isSomethingElsewhere_ = isSomethingElsewhere_ || left.isElsewhere;
    add(index, left.disposition, std::nullopt, left.told);
    ++progress_.itemsRefused;
    auto stop = record(index, {intent_outcome::Failed{left.recorded}});
    report(0);
    return stop;
}

void CleanupRun::add(std::size_t index, CleanupMoveDisposition disposition,
                     std::optional<FileURL> trashURL, std::optional<std::string> failure) {
    const CleanupPlanEntry& entry = plan_.entries[index];
    told_[index] = CleanupReceiptEntry{.candidateID = entry.candidateID,
                                       .originalURL = entry.sourceURL,
                                       .resultingTrashURL = std::move(trashURL),
                                       .byteCount = entry.proofCard.byteCount,
                                       .disposition = disposition,
                                       .failureDescription = std::move(failure)};
}

CleanupReceiptEntry CleanupRun::entryNotReached(std::size_t index) const {
    const CleanupPlanEntry& entry = plan_.entries[index];
    return {.candidateID = entry.candidateID,
            .originalURL = entry.sourceURL,
            .byteCount = entry.proofCard.byteCount,
            .disposition = refused,
            .failureDescription = std::string(CleanupExecutor::notReachedText)};
}

void CleanupRun::report(std::uint64_t byteCount) {
    ++progress_.itemsCompleted;
    progress_.bytesReclaimed = saturatingAdd(progress_.bytesReclaimed, byteCount);
    if (parts_.request.onProgress) parts_.request.onProgress(progress_);
}

CleanupReceipt CleanupRun::receiptOfNothing() const {
    return {.id = platform::randomUUID(),
            .planID = plan_.id,
            .entries = {},
            .createdAt = parts_.request.at,
            .retainUntil = parts_.request.at.adding(parts_.options.receiptRetention)};
}

CleanupReceipt CleanupRun::receipt() {
    CleanupReceipt made = receiptOfNothing();
    made.entries.reserve(told_.size());
    for (std::size_t index = 0; index < told_.size(); ++index) {
        std::optional<CleanupReceiptEntry>& told = told_[index];
        made.entries.push_back(told ? *std::move(told) : entryNotReached(index));
    }
    switch (plan_.mode) {
    case CleanupExecutionMode::permanent: made.actuallyReclaimedByteCount = freedBytes_; break;
    case CleanupExecutionMode::recoverable: made.actuallyReclaimedByteCount = 0; break;
    case CleanupExecutionMode::simulation: break;
    }
    return made;
}

std::expected<CleanupReceipt, CleanupExecutionError> CleanupRun::finish(Stop stop) {
    putBackSetAside();
    remover_.reset(); // with its private folders: nobody looks for those of a closed cleanup
    static_cast<void>(trash_.flush()); // the sizes of folders; `close` flushes all else
    CleanupIntentJournaling* journal = parts_.options.journal;
    // What the receipt tells has to be on the disk before the receipt is.
    if (journal != nullptr) {
        const auto flushed = journal->flushRecords(parts_.intentID);
        if (!flushed && !stop) {
            stop = Error::JournalStopped{.error = flushed.error(), .receipt = {}};
        }
    }
    return CleanupEnding{.ledger = parts_.options.ledger,
                         .journal = journal,
                         .intentID = parts_.intentID,
                         .at =
                             parts_.request.at.adding(parts_.machine.steadySeconds() - startedAt_),
                         .mode = plan_.mode,
                         .isSomethingElsewhere = isSomethingElsewhere_}
        .end(receipt(), std::move(stop));
}

} // namespace tidyro

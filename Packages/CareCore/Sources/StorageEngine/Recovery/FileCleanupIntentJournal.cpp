#include "StorageEngine/Recovery/FileCleanupIntentJournal.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include <fmt/format.h>

#include "Base/JSONCoding.h"
#include "Platform/Files/DurableFile.h"
#include "Platform/Files/SpaceReserve.h"
#include "Platform/Folders/WellKnownFolders.h"

namespace tidyro {

namespace {

using Error = CleanupIntentJournalError;
using MovedItem = InterruptedCleanupReport::MovedItem;

/// Far above what the largest plan takes.
constexpr std::size_t maxIntentBytes = 4UL << 30U;
constexpr std::string_view snapshotEnding = ".json";
constexpr std::string_view logEnding = ".outcomes";

std::unexpected<Error> couldNotWrite(std::string reason) {
    return std::unexpected(Error{Error::CouldNotWrite{std::move(reason)}});
}
std::unexpected<Error> couldNotWrite(SystemError error) {
    return couldNotWrite(error.description());
}
std::unexpected<Error> unknownIntent(const UUID& id) {
    return std::unexpected(Error{Error::UnknownIntent{id}});
}
std::unexpected<Error> receiptRecoveryUnsupported() {
    return std::unexpected(Error{Error::ReceiptRecoveryUnsupported{}});
}

bool isDiskFull(SystemError error) { return error.code == ENOSPC || error.code == EDQUOT; }

} // namespace

std::string CleanupIntentJournalError::description() const {
    struct Describe {
        std::string operator()(const CouldNotWrite&) const {
            return "Tidyro could not write to its safety log, so it stopped before finishing this "
                   "step. Nothing further was touched.";
        }
        std::string operator()(const UnknownIntent&) const {
            return "Tidyro tried to update a safety-log entry it no longer recognizes, so it "
                   "stopped rather than guess. Nothing was touched by this step.";
        }
        std::string operator()(const ReceiptRecoveryUnsupported&) const {
            return "The safety log cannot retain exact recovery outcomes for this operation.";
        }
    };
    return std::visit(Describe{}, value);
}

/// The open log of one intent.
struct FileCleanupIntentJournal::Appender {
    platform::AppendFile file;
    std::unordered_set<std::string> members; ///< the candidates of its snapshot
    std::size_t unflushed = 0;
    std::optional<double> lastFlush = std::nullopt;
    bool isBroken = false; ///< a flush has failed

    Appender(platform::AppendFile log, const CleanupIntent& intent) : file(std::move(log)) {
        members.reserve(intent.entries.size());
        for (const CleanupIntentEntry& entry : intent.entries) {
            members.insert(entry.candidateID.rawValue);
        }
    }
};

/// Has the lock of the writer for one call, unless a cleanup or a hold keeps it longer.
class FileCleanupIntentJournal::Writing {
  public:
    explicit Writing(FileCleanupIntentJournal& journal)
        : guard_(journal.mutex_), journal_(journal), taken_(journal.takeLock()) {}
    ~Writing() { journal_.releaseLockWhenUnused(); }
    Writing(const Writing&) = delete;
    Writing& operator=(const Writing&) = delete;

    [[nodiscard]] const Result<void>& taken() const { return taken_; }

  private:
    std::scoped_lock<std::mutex> guard_;
    FileCleanupIntentJournal& journal_;
    Result<void> taken_;
};

FileCleanupIntentJournal::FileCleanupIntentJournal(FileURL folder)
    : FileCleanupIntentJournal(std::move(folder), Options{}) {}

FileCleanupIntentJournal::FileCleanupIntentJournal(FileURL folder, Options options)
    : folder_(std::move(folder)), options_(std::move(options)) {
    if (!options_.steadySeconds) {
        options_.steadySeconds = [] {
            const auto since = std::chrono::steady_clock::now().time_since_epoch();
            return std::chrono::duration<double>(since).count();
        };
    }
}

FileCleanupIntentJournal::~FileCleanupIntentJournal() = default;

FileURL FileCleanupIntentJournal::applicationDefault() {
    return platform::applicationSupportFolder().appendingFolder("Harborline/intents");
}

std::string FileCleanupIntentJournal::pathOf(const UUID& intentID, std::string_view ending) const {
    return folder_.appending(intentID.text() + std::string(ending)).path();
}

template <class Change>
std::expected<void, SystemError> FileCleanupIntentJournal::withReserve(Change change) {
    auto done = change();
    if (done || !isDiskFull(done.error())) return done;
    bool wasReleased = false;
    const auto released = platform::pass(
        *options_.gate, platform::DiskChange::remove, [&]() -> std::expected<void, SystemError> {
            wasReleased = platform::releaseSpace(folder_.appending("reserve").path());
            return {};
        });
    return released && wasReleased ? change() : done;
}

// The lock ------------------------------------------------------------------------------------

FileCleanupIntentJournal::Result<void> FileCleanupIntentJournal::takeLock() {
    if (lock_) return {};
    if (const auto made = platform::makePrivateFolder(folder_.path(), *options_.gate); !made) {
        return couldNotWrite(made.error());
    }
    const std::string path = folder_.appending("writer.lock").path();
    const auto locked = withReserve([&]() -> std::expected<void, SystemError> {
        auto lock = platform::FileLock::take(path, options_.maxLockWait);
        if (!lock) return std::unexpected(lock.error());
        lock_.emplace(*std::move(lock));
        return {};
    });
    if (!locked && locked.error().code == EWOULDBLOCK) {
        return couldNotWrite("another cleanup is running");
    }
    if (!locked) return couldNotWrite(locked.error());
    begun_.clear();
    return {};
}

void FileCleanupIntentJournal::releaseLockWhenUnused() {
    if (!lock_ || !running_.empty() || holdCount_ > 0) return;
    for (const auto& [id, log] : appenders_) {
        // What a failure loses here is found again: recovery looks for the items themselves.
        if (log->unflushed > 0) static_cast<void>(flush(*log));
    }
    // Without the lock another may forget these intents, and their logs would be files without
    // names.
    appenders_.clear();
    lock_.reset();
}

FileCleanupIntentJournal::Result<FileCleanupIntentJournal::Hold> FileCleanupIntentJournal::hold() {
    const Writing writing(*this);
    if (!writing.taken()) return std::unexpected(writing.taken().error());
    ++holdCount_;
    return Hold(this);
}

FileCleanupIntentJournal::Hold::Hold(Hold&& other) noexcept
    : journal_(std::exchange(other.journal_, nullptr)) {}

FileCleanupIntentJournal::Hold::~Hold() {
    if (journal_ == nullptr) return;
    const std::scoped_lock guard(journal_->mutex_);
    --journal_->holdCount_;
    journal_->releaseLockWhenUnused();
}

// Writing -------------------------------------------------------------------------------------

void FileCleanupIntentJournal::fillReserve() {
    if (options_.reserveByteCount == 0) return;
    // Without a reserve a cleanup works as well, until the disk is full.
    static_cast<void>(platform::pass(*options_.gate, platform::DiskChange::makeFile, [&] {
        return platform::reserveSpace(folder_.appending("reserve").path(),
                                      options_.reserveByteCount);
    }));
}

/// A crash may have left the sibling of a snapshot. Only the holder of the lock writes any.
void FileCleanupIntentJournal::removeLeftovers() const {
    std::error_code failed;
    std::filesystem::directory_iterator entries(folder_.path(), failed);
    while (!failed && entries != std::filesystem::directory_iterator()) {
        const std::string name = entries->path().filename().string();
        entries.increment(failed);
        if (name.starts_with('.') && name.ends_with(".tmp") &&
            UUID::fromText(std::string_view(name).substr(1, name.size() - 5))) {
            static_cast<void>(
                platform::removeDurably(folder_.appending(name).path(), *options_.gate));
        }
    }
}

CleanupIntentJournaling::Result<void> FileCleanupIntentJournal::begin(const CleanupIntent& intent) {
    const Writing writing(*this);
    if (!writing.taken()) return std::unexpected(writing.taken().error());
    removeLeftovers();
    fillReserve();
    // Whoever finds the intent from here on knows that it is running.
    begun_.insert(intent.id);
    std::string text;
    for (const UUID& id : begun_) text += id.text() + '\n';
    if (const auto told = withReserve([&] { return lock_->tell(text); }); !told) {
        return couldNotWrite(told.error());
    }

    const std::string snapshot = pathOf(intent.id, snapshotEnding);
    const std::string log = pathOf(intent.id, logEnding);
    std::unique_ptr<Appender> appender;
    const auto written = withReserve([&]() -> std::expected<void, SystemError> {
        auto file = platform::AppendFile::open(log, *options_.gate);
        if (!file) return std::unexpected(file.error());
        appender = std::make_unique<Appender>(*std::move(file), intent);
        // The flush of the folder, which ends it, makes the name of the log durable as well.
        return platform::writeDurably(
            snapshot, jsonText(toJSON(intent)),
            {.sibling = folder_.appending("." + intent.id.text() + ".tmp").path(),
             .gate = options_.gate});
    });
    if (!written) {
        // The snapshot may stand, when only the last flush failed; nothing was touched for it.
        for (const std::string& path : {snapshot, log}) {
            static_cast<void>(platform::removeDurably(path, *options_.gate));
        }
        return couldNotWrite(written.error());
    }
    running_.insert(intent.id);
    appenders_[intent.id] = std::move(appender);
    return {};
}

CleanupIntentJournaling::Result<FileCleanupIntentJournal::Appender*>
FileCleanupIntentJournal::appender(const UUID& intentID) {
    const auto known = appenders_.find(intentID);
    if (known != appenders_.end()) return known->second.get();
    const auto recorded = read(intentID, Wanted::all);
    if (!recorded) return std::unexpected(recorded.error());
    const std::optional<RecordedIntent>& found = *recorded;
    if (!found) return unknownIntent(intentID);
    const std::string log = pathOf(intentID, logEnding);
    // A log that is missing is made with its name flushed; `begin` has no other one to flush.
    if (std::error_code ignored; !std::filesystem::exists(log, ignored)) {
        const auto made =
            withReserve([&] { return platform::writeDurably(log, {}, {.gate = options_.gate}); });
        if (!made) return couldNotWrite(made.error());
    }
    auto file = platform::AppendFile::open(log, *options_.gate);
    if (!file) return couldNotWrite(file.error());
    auto made = std::make_unique<Appender>(*std::move(file), found->intent);
    return appenders_.emplace(intentID, std::move(made)).first->second.get();
}

CleanupIntentJournaling::Result<void>
FileCleanupIntentJournal::append(Appender& to, const IntentLogRecord& record) {
    if (to.isBroken) return couldNotWrite("the log could not be flushed before");
    // What was torn stays a line of its own, so that it spoils no other.
    const std::string line = (to.file.endsWithLineBreak() ? "" : "\n") + logLine(record);
    if (const auto written = withReserve([&] { return to.file.append(line); }); !written) {
        return couldNotWrite(written.error());
    }
    ++to.unflushed;
    if (to.unflushed < maxUnflushedRecords && to.lastFlush &&
        options_.steadySeconds() - *to.lastFlush < maxSecondsBetweenFlushes) {
        return {};
    }
    return flush(to);
}

CleanupIntentJournaling::Result<void> FileCleanupIntentJournal::flush(Appender& log) {
    if (log.isBroken) return couldNotWrite("the log could not be flushed before");
    std::expected<void, SystemError> flushed;
    if (options_.flushChanges) flushed = options_.flushChanges();
    if (flushed) flushed = log.file.flush();
    if (!flushed) {
        log.isBroken = true;
        return couldNotWrite(flushed.error());
    }
    log.unflushed = 0;
    log.lastFlush = options_.steadySeconds();
    return {};
}

CleanupIntentJournaling::Result<void>
FileCleanupIntentJournal::recordOutcome(const CleanupIntentEntry::Outcome& outcome,
                                        const LocalItemID& candidateID, const UUID& intentID) {
    const Writing writing(*this);
    if (!writing.taken()) return std::unexpected(writing.taken().error());
    const auto log = appender(intentID);
    if (!log) return std::unexpected(log.error());
    if (!(*log)->members.contains(candidateID.rawValue)) return unknownIntent(intentID);
    return append(**log, IntentLogRecord{EntryOutcome{candidateID, outcome}});
}

CleanupIntentJournaling::Result<void> FileCleanupIntentJournal::end(const UUID& intentID,
                                                                    Timestamp at) {
    const auto log = appender(intentID);
    if (!log) return std::unexpected(log.error());
    if (auto closed = append(**log, IntentLogRecord{intent_log::Closed{at}}); !closed)
        return closed;
    return (*log)->unflushed == 0 ? Result<void>() : flush(**log);
}

CleanupIntentJournaling::Result<void> FileCleanupIntentJournal::close(const UUID& intentID,
                                                                      Timestamp at) {
    const Writing writing(*this);
    if (!writing.taken()) return std::unexpected(writing.taken().error());
    const auto ended = end(intentID, at);
    // Even when it could not be written down the cleanup is over; the intent is then an interrupted
    // one.
    appenders_.erase(intentID);
    running_.erase(intentID);
    fillReserve();
    return ended;
}

CleanupIntentJournaling::Result<void> FileCleanupIntentJournal::forget(const UUID& intentID) {
    const Writing writing(*this);
    if (!writing.taken()) return std::unexpected(writing.taken().error());
    appenders_.erase(intentID);
    running_.erase(intentID);
    // The snapshot first: a snapshot without its log would look like a cleanup that did nothing.
    for (const std::string_view ending : {snapshotEnding, logEnding}) {
        const auto removed = withReserve(
            [&] { return platform::removeDurably(pathOf(intentID, ending), *options_.gate); });
        if (!removed) return couldNotWrite(removed.error());
    }
    return {};
}

// Reading -------------------------------------------------------------------------------------

CleanupIntentJournaling::Result<std::set<UUID>> FileCleanupIntentJournal::intentIDs() const {
    std::set<UUID> found;
    std::error_code failed;
    std::filesystem::directory_iterator entries(folder_.path(), failed);
    while (!failed && entries != std::filesystem::directory_iterator()) {
        const std::string name = entries->path().filename().string();
        if (name.ends_with(snapshotEnding)) {
            const auto stem = std::string_view(name).substr(0, name.size() - snapshotEnding.size());
            const auto id = UUID::fromText(stem);
            if (id && id->text() == stem) found.insert(*id);
        }
        entries.increment(failed);
    }
    if (failed && failed != std::errc::no_such_file_or_directory) {
        return couldNotWrite(SystemError{failed.value()});
    }
    return found;
}

CleanupIntentJournaling::Result<std::optional<RecordedIntent>>
FileCleanupIntentJournal::read(const UUID& intentID, Wanted wanted) const {
    auto log = platform::readWholeFile(pathOf(intentID, logEnding), maxIntentBytes);
    if (!log && log.error().code != ENOENT) return couldNotWrite(log.error());
    if (!log) log = std::string();
    if (wanted == Wanted::open && isSettled(*log)) return std::nullopt;
    const auto snapshot = platform::readWholeFile(pathOf(intentID, snapshotEnding), maxIntentBytes);
    if (!snapshot && snapshot.error().code == ENOENT) return std::nullopt;
    if (!snapshot) return couldNotWrite(snapshot.error());
    auto recorded = readIntent(*snapshot, *log);
    if (!recorded) return couldNotWrite(recorded.error().description());
    if (recorded->intent.id != intentID) return couldNotWrite("the file is of another intent");
    if (wanted == Wanted::open && !recorded->intent.isOpen() && !recorded->isReceiptMissing) {
        return std::nullopt;
    }
    return *std::move(recorded);
}

CleanupIntentJournaling::Result<CleanupIntentJournaling::OpenIntents>
FileCleanupIntentJournal::readAll(Wanted wanted) const {
    const auto ids = intentIDs();
    if (!ids) return std::unexpected(ids.error());
    OpenIntents found;
    for (const UUID& id : *ids) {
        auto recorded = read(id, wanted);
        if (!recorded) {
            const auto* failure = std::get_if<Error::CouldNotWrite>(&recorded.error().value);
            found.unreadable.push_back({id, failure != nullptr ? failure->reason : std::string()});
        } else if (std::optional<RecordedIntent>& one = *recorded; one) {
            found.intents.push_back(*std::move(one));
        }
    }
    std::ranges::sort(found.intents, {}, [](const RecordedIntent& recorded) {
        return std::pair(recorded.intent.createdAt, recorded.intent.id);
    });
    return found;
}

CleanupIntentJournaling::Result<std::set<UUID>>
FileCleanupIntentJournal::begunUnderLock(bool& isLocked) const {
    const auto state = platform::FileLock::state(folder_.appending("writer.lock").path());
    if (!state) return couldNotWrite(state.error());
    isLocked = state->isHeld;
    std::set<UUID> ids;
    for (std::size_t at = 0; at + 37 <= state->text.size(); at += 37) {
        if (const auto id = UUID::fromText(std::string_view(state->text).substr(at, 36))) {
            ids.insert(*id);
        }
    }
    return ids;
}

CleanupIntentJournaling::Result<CleanupIntentJournaling::OpenIntents>
FileCleanupIntentJournal::openIntents() {
    const std::scoped_lock guard(mutex_);
    const auto markRunning = [](OpenIntents& found, const std::set<UUID>& running) {
        for (RecordedIntent& recorded : found.intents) {
            recorded.isRunning = recorded.intent.isOpen() && running.contains(recorded.intent.id);
        }
    };
    if (lock_) {
        auto found = readAll(Wanted::open);
        if (found) markRunning(*found, running_);
        return found;
    }
    // Another may begin or end a cleanup while the files are read. Its ids stand in the lock before
    // its snapshot can be found, and until another holder takes the lock: when they are the same
    // before and after, nothing was missed.
    constexpr int maxTries = 5;
    for (int attempt = 1;; ++attempt) {
        bool wasLocked = false;
        const auto before = begunUnderLock(wasLocked);
        if (!before) return std::unexpected(before.error());
        auto found = readAll(Wanted::open);
        if (!found) return found;
        bool isLocked = false;
        auto after = begunUnderLock(isLocked);
        if (!after) return std::unexpected(after.error());
        if ((*before == *after && wasLocked == isLocked) || attempt == maxTries) {
            after->insert(before->begin(), before->end());
            markRunning(*found, wasLocked || isLocked ? *after : std::set<UUID>());
            return found;
        }
    }
}

// What recovery records -----------------------------------------------------------------------

namespace {

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

} // namespace

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
    return added ? flush(**log) : added;
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
        if (auto flushed = flush(**log); !flushed) return flushed;
    }
    return {};
}

} // namespace tidyro

#include <filesystem>
#include <span>
#include <system_error>
#include <utility>

#include "Base/JSONCoding.h"
#include "Base/JSONText.h"
#include "Platform/Files/DurableFile.h"
#include "Platform/Files/SpaceReserve.h"
#include "StorageEngine/Recovery/FileCleanupIntentJournalParts.h"

namespace tidyro {

using namespace intent_journal;

bool FileCleanupIntentJournal::releaseReserve() {
    bool wasReleased = false;
    const auto released = platform::pass(
        *options_.gate, platform::DiskChange::remove, [&]() -> std::expected<void, SystemError> {
            wasReleased = platform::releaseSpace(folder_.appending("reserve").path());
            return {};
        });
    return released && wasReleased;
}

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
        const auto write = [&](platform::DurableWriter& writer) {
            std::expected<void, SystemError> done;
            writeJSONText(intent, [&](std::string_view piece) {
                if (done) done = writer.append(std::as_bytes(std::span(piece)));
            });
            return done;
        };
        return platform::writeDurablyInPieces(
            snapshot, write,
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

/// The last record may have been flushed as it was added.
CleanupIntentJournaling::Result<void> FileCleanupIntentJournal::flushWhatWaits(Appender& log) {
    return log.unflushed == 0 ? Result<void>() : flush(log);
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

CleanupIntentJournaling::Result<void> FileCleanupIntentJournal::flushRecords(const UUID& intentID) {
    const Writing writing(*this);
    if (!writing.taken()) return std::unexpected(writing.taken().error());
    const auto log = appender(intentID);
    if (!log) return std::unexpected(log.error());
    return flushWhatWaits(**log);
}

bool FileCleanupIntentJournal::giveSpaceBack() {
    const Writing writing(*this);
    return writing.taken() && releaseReserve();
}

CleanupIntentJournaling::Result<void> FileCleanupIntentJournal::end(const UUID& intentID,
                                                                    Timestamp at) {
    const auto log = appender(intentID);
    if (!log) return std::unexpected(log.error());
    if (auto closed = append(**log, IntentLogRecord{intent_log::Closed{at}}); !closed)
        return closed;
    return flushWhatWaits(**log);
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

} // namespace tidyro

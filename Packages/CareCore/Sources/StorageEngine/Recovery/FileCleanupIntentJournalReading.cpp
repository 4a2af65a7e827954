#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "Platform/Files/DurableFile.h"
#include "StorageEngine/Recovery/FileCleanupIntentJournalParts.h"

namespace tidyro {

using namespace intent_journal;

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
            const auto* failure =
                std::get_if<CleanupIntentJournalError::CouldNotWrite>(&recorded.error().value);
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

CleanupIntentJournaling::Result<std::set<UUID>> FileCleanupIntentJournal::runningIntents() {
    const std::scoped_lock guard(mutex_);
    if (lock_) return running_;
    bool isLocked = false;
    auto begun = begunUnderLock(isLocked);
    if (begun && !isLocked) begun->clear();
    return begun;
}

CleanupIntentJournaling::Result<CleanupIntentJournaling::OpenIntents>
FileCleanupIntentJournal::allIntents() {
    const std::scoped_lock guard(mutex_);
    return readAll(Wanted::all);
}

} // namespace tidyro

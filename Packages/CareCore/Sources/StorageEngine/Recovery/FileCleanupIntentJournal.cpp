#include "StorageEngine/Recovery/FileCleanupIntentJournal.h"

#include <cerrno>
#include <utility>

#include "Platform/Files/DurableFile.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "StorageEngine/Recovery/FileCleanupIntentJournalParts.h"

namespace tidyro {

using namespace intent_journal;

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
        std::string operator()(const AnotherCleanupRuns&) const {
            return "Another cleanup is running, so this one was not started and nothing was "
                   "touched. Try again when it has ended.";
        }
    };
    return std::visit(Describe{}, value);
}

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
        return std::unexpected(
            CleanupIntentJournalError{CleanupIntentJournalError::AnotherCleanupRuns{}});
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

} // namespace tidyro

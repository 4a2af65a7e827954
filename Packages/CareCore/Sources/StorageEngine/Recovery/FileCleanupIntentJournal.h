#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "Base/FileURL.h"
#include "Base/SystemError.h"
#include "Platform/Files/AppendFile.h"
#include "Platform/Files/ChangeGate.h"
#include "Platform/Files/FileLock.h"
#include "StorageEngine/Recovery/CleanupIntentJournal.h"

namespace tidyro {

/// The journal in a folder: for each intent a snapshot `<UUID>.json` and a log `<UUID>.outcomes`,
/// beside the lock of the one writer and the space that is kept for a full disk.
///
///     FileCleanupIntentJournal journal(FileCleanupIntentJournal::applicationDefault());
///     if (!journal.begin(intent)) return;           // nothing is touched
///     ... move an item ...
///     journal.recordOutcome(outcome, candidateID, intent.id);
///     journal.close(intent.id, Timestamp::now());
///
/// One journal of all processes writes at a time. It has the lock from `begin` to `close`, and for
/// each other change for as long as that takes. The kernel takes the lock from a process that ends,
/// so an open intent without a holder is an interrupted cleanup.
///
/// Records are gathered: they are flushed when `maxUnflushedRecords` are waiting, or with the first
/// one after `maxSecondsBetweenFlushes`. What a crash takes of them is found again by looking for
/// the items themselves. A flush that fails is never tried again, since the system may have dropped
/// what it could not write: the cleanup can then only end, and recovery finds what it did.
class FileCleanupIntentJournal final : public CleanupIntentJournaling {
  public:
    static constexpr std::size_t maxUnflushedRecords = 200;
    static constexpr double maxSecondsBetweenFlushes = 1.0;
    static constexpr std::uint64_t defaultReserveByteCount = 64UL << 20U;

    struct Options {
        /// Called before each flush of a log: brings what the cleanup itself changed to the disk,
        /// so that whatever a flushed log tells has happened. None: nothing else was changed.
        std::function<std::expected<void, SystemError>()> flushChanges = nullptr;
        /// Space that is set aside beside the intents and given back when the disk is full.
        std::uint64_t reserveByteCount = defaultReserveByteCount;
        /// How long a change waits for another writer.
        std::chrono::milliseconds maxLockWait = std::chrono::seconds(1);
        // For tests.
        platform::ChangeGate* gate = &platform::ChangeGate::open();
        std::function<double()> steadySeconds = nullptr;
    };

    explicit FileCleanupIntentJournal(FileURL folder);
    FileCleanupIntentJournal(FileURL folder, Options options);
    ~FileCleanupIntentJournal() override;

    /// "Harborline/intents" in the person's Application Support folder.
    [[nodiscard]] static FileURL applicationDefault();

    /// Has the lock for as long as it lives, for several changes that belong together: recovery
    /// that looks first and acts then. The journal must outlive it.
    class Hold {
      public:
        Hold(Hold&& other) noexcept;
        Hold& operator=(Hold&&) = delete;
        ~Hold();

      private:
        friend FileCleanupIntentJournal;
        explicit Hold(FileCleanupIntentJournal* journal) : journal_(journal) {}
        FileCleanupIntentJournal* journal_;
    };
    [[nodiscard]] Result<Hold> hold();

    [[nodiscard]] Result<void> begin(const CleanupIntent& intent) override;
    [[nodiscard]] Result<void> recordOutcome(const CleanupIntentEntry::Outcome& outcome,
                                             const LocalItemID& candidateID,
                                             const UUID& intentID) override;
    [[nodiscard]] Result<void> flushRecords(const UUID& intentID) override;
    [[nodiscard]] bool giveSpaceBack() override;
    [[nodiscard]] Result<void> close(const UUID& intentID, Timestamp at) override;
    [[nodiscard]] Result<void> requireReceiptRecovery(const CleanupReceipt& receipt) override;
    [[nodiscard]] Result<OpenIntents> openIntents() override;
    [[nodiscard]] Result<void> recordRestoreOutcomes(const RestoreOutcomes& outcomes) override;
    [[nodiscard]] Result<void> forget(const UUID& intentID) override;

    [[nodiscard]] const FileURL& folder() const { return folder_; }
    /// The intents of cleanups that go on right now, here or in another process, told without
    /// reading them.
    [[nodiscard]] Result<std::set<UUID>> runningIntents();
    /// Every intent, closed ones as well. None is told as running, so the caller has a hold.
    [[nodiscard]] Result<OpenIntents> allIntents();
    /// Recovery has stored the receipt that a cleanup lacked: nothing more is to be done for it.
    [[nodiscard]] Result<void> recordReceiptStored(const UUID& intentID);

  private:
    struct Appender;
    class Writing;

    [[nodiscard]] std::string pathOf(const UUID& intentID, std::string_view ending) const;
    [[nodiscard]] Result<std::set<UUID>> intentIDs() const;
    /// None when there is no such intent; ended ones with a receipt are left out when not asked
    /// for.
    enum class Wanted : std::uint8_t { all, open };
    [[nodiscard]] Result<std::optional<RecordedIntent>> read(const UUID& intentID,
                                                             Wanted wanted) const;
    [[nodiscard]] Result<OpenIntents> readAll(Wanted wanted) const;
    [[nodiscard]] Result<std::set<UUID>> begunUnderLock(bool& isLocked) const;

    [[nodiscard]] Result<void> takeLock();
    void releaseLockWhenUnused();

    [[nodiscard]] Result<Appender*> appender(const UUID& intentID);
    [[nodiscard]] Result<void> append(Appender& to, const IntentLogRecord& record);
    [[nodiscard]] Result<void> flush(Appender& log);
    [[nodiscard]] Result<void> flushWhatWaits(Appender& log);
    [[nodiscard]] Result<void> end(const UUID& intentID, Timestamp at);
    /// Makes a change, and once more with the reserve given back when the disk is full.
    template <class Change>
    [[nodiscard]] std::expected<void, SystemError> withReserve(Change change);
    [[nodiscard]] bool releaseReserve();
    void fillReserve();
    void removeLeftovers() const;

    FileURL folder_;
    Options options_;
    std::mutex mutex_;
    std::optional<platform::FileLock> lock_;
    std::size_t holdCount_ = 0;
    std::set<UUID> running_; ///< begun here and not closed
    std::set<UUID> begun_;   ///< begun here since the lock was taken
    std::map<UUID, std::unique_ptr<Appender>> appenders_;
};

} // namespace tidyro

#pragma once

#include <cerrno>
#include <cstddef>
#include <expected>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "StorageEngine/Recovery/FileCleanupIntentJournal.h"

/// What the files of `FileCleanupIntentJournal` share. Nobody else includes it.
namespace tidyro {

namespace intent_journal {

/// Far above what the largest plan takes.
inline constexpr std::size_t maxIntentBytes = 4UL << 30U;
inline constexpr std::string_view snapshotEnding = ".json";
inline constexpr std::string_view logEnding = ".outcomes";

inline std::unexpected<CleanupIntentJournalError> couldNotWrite(std::string reason) {
    return std::unexpected(
        CleanupIntentJournalError{CleanupIntentJournalError::CouldNotWrite{std::move(reason)}});
}
inline std::unexpected<CleanupIntentJournalError> couldNotWrite(SystemError error) {
    return couldNotWrite(error.description());
}
inline std::unexpected<CleanupIntentJournalError> unknownIntent(const UUID& id) {
    return std::unexpected(CleanupIntentJournalError{CleanupIntentJournalError::UnknownIntent{id}});
}

} // namespace intent_journal

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

template <class Change>
std::expected<void, SystemError> FileCleanupIntentJournal::withReserve(Change change) {
    auto done = change();
    if (done || (done.error().code != ENOSPC && done.error().code != EDQUOT)) return done;
    return releaseReserve() ? change() : done;
}

} // namespace tidyro

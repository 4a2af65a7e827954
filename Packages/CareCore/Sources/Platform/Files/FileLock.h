#pragma once

#include <chrono>
#include <expected>
#include <string>
#include <string_view>

#include "Base/SystemError.h"

namespace tidyro::platform {

/// A lock that one holder in all processes has, and that goes with its process. The file stays: a
/// lock file that is removed lets two have it. It carries a text, with which the holder tells
/// others what the lock is held for.
///
///     auto lock = FileLock::take(folder + "/writer.lock", std::chrono::seconds(1));
///     if (!lock) ...                  // EWOULDBLOCK: somebody else has it
///     lock->tell("copying")
///
/// Used by one thread; two takers in one process exclude each other as well.
class FileLock {
  public:
    /// Makes the file with mode 0600 when it is missing. EWOULDBLOCK when another has the lock and
    /// keeps it for longer than `maxWait`.
    [[nodiscard]] static std::expected<FileLock, SystemError>
    take(const std::string& path, std::chrono::milliseconds maxWait);
    FileLock(FileLock&& other) noexcept;
    FileLock& operator=(FileLock&&) = delete;
    ~FileLock();

    /// Replaces the text. It is not flushed: after a crash nobody has the lock, and the text says
    /// nothing.
    [[nodiscard]] std::expected<void, SystemError> tell(std::string_view text) const;

    struct State {
        bool isHeld;
        std::string text; ///< what the holder, or else the last one, told
        bool operator==(const State&) const = default;
    };
    /// Looks without making the file. A missing one is not held.
    [[nodiscard]] static std::expected<State, SystemError> state(const std::string& path);

    /// Whether anybody has the lock of another program's file, alone or together with others. It
    /// makes and writes nothing. To learn it, it takes the lock for a moment when it is free. A
    /// missing file is not locked.
    [[nodiscard]] static std::expected<bool, SystemError> isTaken(const std::string& path);

  private:
    explicit FileLock(int fd) : fd_(fd) {}

    int fd_;
};

} // namespace tidyro::platform

#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Base/SystemError.h"

/// Starting another program, and ending it with everything that it started in turn.
///
///     auto child = ChildProcess::start({.path = "/bin/date", .arguments = {"/bin/date"},
///                                       .environment = {"LANG=C"}, .workingFolder = "/"});
///     if (!child) return std::unexpected(child.error());
///     while (!child->hasExited()) child->wait(std::chrono::seconds(1));
///     return child->end();
namespace tidyro::platform {

/// Ends a wait from another thread.
class WakeSignal {
  public:
    [[nodiscard]] static std::expected<WakeSignal, SystemError> make();
    WakeSignal(WakeSignal&& other) noexcept;
    WakeSignal& operator=(WakeSignal&&) = delete;
    ~WakeSignal();

    /// Every wait with this signal ends at once, now and later. Any thread may call.
    void wake() const;
    /// For the bodies of this room.
    [[nodiscard]] int fd() const { return readEnd_; }

  private:
    WakeSignal(int readEnd, int writeEnd) : readEnd_(readEnd), writeEnd_(writeEnd) {}

    int readEnd_;
    int writeEnd_; ///< may be the same descriptor
};

/// What to start. No text holds a zero byte: what lies behind one would be lost.
struct ChildProgram {
    std::string path;                     ///< the file that is executed; nothing is searched for
    std::vector<std::string> arguments;   ///< the first one is the name that the program is told
    std::vector<std::string> environment; ///< "name=value" each; nothing is inherited
    std::string workingFolder;
    bool hasInput = false; ///< otherwise the program reads "/dev/null"
};

enum class ChildStream : std::uint8_t { output, error };

/// A program that runs. It leads a process group of its own, has the default signals and no
/// descriptor but the three standard ones. Its terminal is not ours, so it cannot ask the person
/// there and wait for an answer.
///
/// On Linux all that comes of the program is ended with it, also what has left its group. A small
/// program of ours, the keeper, stands between the two and adopts whatever loses its parent. This
/// process could not do that itself: it would adopt the orphans of programs that others of its
/// threads have started. A program that ends its keeper by force (SIGKILL) gets out of reach, with
/// all that it started. On macOS only the program's group is ended.
///
/// Used by one thread. No call but `wait` and `end` waits for anything.
class ChildProcess {
  public:
    /// An error when not even the attempt could be made. Whether the program runs, `startFailure`
    /// tells later.
    [[nodiscard]] static std::expected<ChildProcess, SystemError>
    start(const ChildProgram& program);
    ChildProcess(ChildProcess&&) noexcept;
    ChildProcess& operator=(ChildProcess&&) = delete;
    ~ChildProcess(); ///< as `end`

    /// Waits until the program has written or ended, until it takes more input, until `wake` is
    /// signalled, or until the time has passed.
    void wait(std::chrono::nanoseconds maxWait, const WakeSignal* wake = nullptr);

    /// Why the program could not be started. None while it is not known yet.
    [[nodiscard]] std::optional<SystemError> startFailure() const;
    /// Whether the program itself has ended, which says nothing of what it has started.
    [[nodiscard]] bool hasExited() const;

    /// The bytes that are at hand, up to as many as there is room for; 0 when there are none.
    [[nodiscard]] std::size_t read(ChildStream stream, std::span<std::byte> into);
    /// Whether nothing more can come: all who could write have closed the stream.
    [[nodiscard]] bool isAtEnd(ChildStream stream) const;

    /// Whether the program may still be given input.
    [[nodiscard]] bool isInputOpen() const;
    /// Hands over as many bytes as the program's pipe takes now. The input closes when the program
    /// has closed its end, and no signal comes of that.
    [[nodiscard]] std::size_t write(std::span<const std::byte> bytes);
    void closeInput();

    /// Asks the program and its group to end (SIGTERM). Nothing when the program has exited.
    void terminate();
    /// Ends everything that is left by force and waits until it is gone, but no longer than
    /// `maxEndWait`: the kernel may be unable to end a process that waits for a lost server. Such a
    /// process ends as soon as it can. Returns the program's exit status, or 128 and the number of
    /// the signal that ended it.
    std::int32_t end();
    static constexpr std::chrono::seconds maxEndWait{2};

  private:
    struct State;
    explicit ChildProcess(std::unique_ptr<State> state);

    std::unique_ptr<State> state_;
};

} // namespace tidyro::platform

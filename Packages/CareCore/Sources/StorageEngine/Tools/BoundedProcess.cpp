#include "StorageEngine/Tools/BoundedProcess.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <string_view>
#include <system_error>
#include <utility>

#include "Platform/Machine/DedicatedThread.h"

namespace tidyro {

namespace {

using Clock = std::chrono::steady_clock;
using platform::ChildProcess;
using platform::ChildStream;

constexpr std::int32_t exitCodeOfTerminated = 128 + 15;

/// Any number of seconds as a moment; what is no number has passed.
Clock::time_point momentIn(double seconds) {
    constexpr double never = 1e9; // some thirty years
    const double bounded = seconds > 0 ? std::min(seconds, never) : 0;
    return Clock::now() +
           std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(bounded));
}

bool holdsZeroByte(std::string_view text) { return text.find('\0') != std::string_view::npos; }

/// None when a text cannot be handed over as it is meant.
std::optional<platform::ChildProgram> childProgram(const BoundedProcess& process) {
    const std::string& path = process.executable.path();
    platform::ChildProgram program{
        .path = process.program ? process.program->pathToRun() : path,
        .arguments = {path},
        .environment = {},
        .workingFolder = process.currentDirectory.path(),
        .hasInput = process.standardInput.has_value(),
    };
    for (const std::string& argument : process.arguments) program.arguments.push_back(argument);
    for (const auto& [name, value] : process.environment) {
        // A value may hold anything else; a name with "=" would be another one.
        if (name.empty() || name.find('=') != std::string::npos) return std::nullopt;
        program.environment.push_back(name);
        program.environment.back().append("=").append(value);
    }
    if (std::ranges::any_of(program.arguments, holdsZeroByte) ||
        std::ranges::any_of(program.environment, holdsZeroByte) ||
        holdsZeroByte(program.workingFolder)) {
        return std::nullopt;
    }
    return program;
}

/// One run from its start to its end.
class BoundedRun {
  public:
    BoundedRun(const BoundedProcess& process, ChildProcess child)
        : process_(process),
          child_(std::move(child)),
          captures_{{BoundedProcess::BoundedCapture(process.outputLimit),
                     BoundedProcess::BoundedCapture(process.outputLimit)}},
          unwritten_(process.standardInput ? std::string_view(*process.standardInput)
                                           : std::string_view()),
          deadline_(momentIn(process.timeout)) {}

    /// `maxWait` bounds how late a cancellation is seen that no signal tells of.
    std::optional<BoundedProcess::Output> toItsEnd(const std::function<bool()>& isCancelled,
                                                   const platform::WakeSignal* wake,
                                                   std::chrono::nanoseconds maxWait) {
        for (;;) {
            feed();
            const bool hadMoreOutput = drain(ChildStream::output);
            const bool hadMore = drain(ChildStream::error) || hadMoreOutput;
            if (child_.startFailure()) return std::nullopt;
            const Clock::time_point now = Clock::now();
            if (child_.hasExited()) {
                if (isComplete()) break;
                if (!end_) end_ = momentIn(process_.terminationGrace);
                // The program is done; only what it has left behind is still cut short.
                if (!output_.cancelled && isCancelled()) {
                    output_.cancelled = true;
                    break;
                }
            } else if (!end_) {
                output_.cancelled = isCancelled();
                output_.timedOut = !output_.cancelled && now >= deadline_;
                if (output_.cancelled || output_.timedOut) {
                    child_.terminate();
                    end_ = momentIn(process_.terminationGrace);
                }
            }
            if (end_ && now >= *end_) break;
            if (hadMore) continue;
            const auto left = std::max((end_ ? *end_ : deadline_) - now, Clock::duration(0));
            // What has been signalled would end each further wait at once. So would a cancellation
            // of a program that is ended already, for which it is too late to change anything.
            const bool isTooLate = output_.timedOut && !child_.hasExited() && isCancelled();
            const bool isSignalled = output_.cancelled || isTooLate;
            child_.wait(isSignalled ? left : std::min<std::chrono::nanoseconds>(left, maxWait),
                        isSignalled ? nullptr : wake);
        }
        return finish();
    }

  private:
    [[nodiscard]] bool isComplete() const {
        return child_.isAtEnd(ChildStream::output) && child_.isAtEnd(ChildStream::error);
    }

    void feed() {
        while (child_.isInputOpen() && !unwritten_.empty()) {
            const std::size_t written = child_.write(std::as_bytes(std::span(unwritten_)));
            if (written == 0) return;
            unwritten_.remove_prefix(written);
        }
        child_.closeInput();
    }

    /// Takes what is at hand. True when more may be: a stream that never ends must not keep the run
    /// from looking at the clock.
    bool drain(ChildStream stream) {
        constexpr int maxReads = 32;
        for (int reads = 0; reads < maxReads; ++reads) {
            const std::size_t count = child_.read(stream, buffer_);
            if (count == 0) return false;
            capture(stream).append(std::span(buffer_).first(count));
        }
        return true;
    }

    BoundedProcess::Output finish() {
        // What the program has left behind would have written on.
        const bool hasExited = child_.hasExited();
        const bool isOutputCut = hasExited && !child_.isAtEnd(ChildStream::output);
        const bool isErrorCut = hasExited && !child_.isAtEnd(ChildStream::error);
        output_.exitCode = child_.end();
        // All who wrote are gone, so this takes the rest. It is bounded all the same: the program
        // may have handed its end of a pipe to a stranger who goes on writing.
        for (const ChildStream stream : {ChildStream::output, ChildStream::error}) {
            static_cast<void>(drain(stream));
        }
        output_.standardOutputTruncated = isOutputCut || capture(ChildStream::output).dropped();
        output_.standardErrorTruncated = isErrorCut || capture(ChildStream::error).dropped();
        output_.standardOutput = capture(ChildStream::output).takeData();
        output_.standardError = capture(ChildStream::error).takeData();
        return std::move(output_);
    }

    BoundedProcess::BoundedCapture& capture(ChildStream stream) {
        return captures_[static_cast<std::size_t>(stream)];
    }

    const BoundedProcess& process_;
    ChildProcess child_;
    std::array<BoundedProcess::BoundedCapture, 2> captures_;
    std::string_view unwritten_;
    Clock::time_point deadline_;
    std::optional<Clock::time_point> end_ = std::nullopt; ///< when the rest is ended by force
    BoundedProcess::Output output_;
    std::vector<std::byte> buffer_ = std::vector<std::byte>(65'536);
};

std::optional<BoundedProcess::Output> runBounded(const BoundedProcess& process,
                                                 const std::function<bool()>& isCancelled,
                                                 const platform::WakeSignal* wake,
                                                 std::chrono::nanoseconds maxWait) {
    const auto program = childProgram(process);
    if (!program) return std::nullopt;
    if (isCancelled()) {
        return BoundedProcess::Output{.exitCode = exitCodeOfTerminated, .cancelled = true};
    }
    auto child = ChildProcess::start(*program);
    if (!child) return std::nullopt;
    return BoundedRun(process, std::move(*child)).toItsEnd(isCancelled, wake, maxWait);
}

constexpr std::chrono::milliseconds betweenQuestions{50};

} // namespace

BoundedProcess::StopFlag::StopFlag() {
    if (auto made = platform::WakeSignal::make()) wake_.emplace(std::move(*made));
}

void BoundedProcess::StopFlag::set() {
    const std::scoped_lock locked(lock_);
    value_ = true;
    if (wake_) wake_->wake();
}

bool BoundedProcess::StopFlag::value() const {
    const std::scoped_lock locked(lock_);
    return value_;
}

void BoundedProcess::BoundedCapture::append(std::span<const std::byte> bytes) {
    const std::scoped_lock locked(lock_);
    const std::size_t kept = std::min(bytes.size(), limit_ - data_.size());
    if (kept < bytes.size()) dropped_ = true;
    if (kept == 0) return;
    if (const std::size_t needed = data_.size() + kept; needed > data_.capacity()) {
        // Memory that is not written to costs nothing, so a long output gets the room of a common
        // limit at once. Beyond that the room grows by halves of the limit: while the bytes are
        // copied, the old and the new ones together are no more than the limit.
        constexpr std::size_t shortOutput = 65'536;
        constexpr std::size_t commonLimit = 67'108'864;
        const std::size_t least =
            needed > shortOutput ? std::max(std::min(limit_, commonLimit), needed) : needed;
        std::size_t room = limit_;
        while (room / 2 >= least && room / 2 >= 2 * data_.capacity()) room /= 2;
        data_.reserve(room);
    }
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): bytes as characters
    data_.append(reinterpret_cast<const char*>(bytes.data()), kept);
}

bool BoundedProcess::BoundedCapture::dropped() const {
    const std::scoped_lock locked(lock_);
    return dropped_;
}

std::string BoundedProcess::BoundedCapture::takeData() {
    const std::scoped_lock locked(lock_);
    return std::move(data_);
}

std::optional<BoundedProcess::Output> BoundedProcess::run(const CancelToken& token) const {
    StopFlag flag;
    const std::stop_callback cancelled(token, [&flag] { flag.set(); });
    std::optional<Output> output;
    try {
        const platform::DedicatedThread thread(
            "Tidyro.BoundedProcess", platform::Quality::userInitiated, [&] {
                output = runBounded(
                    *this, [&flag] { return flag.value(); }, flag.wake(),
                    flag.wake() != nullptr ? std::chrono::nanoseconds::max() : betweenQuestions);
            });
    } catch (const std::system_error&) {
        return std::nullopt; // the system has no thread left, and so no process either
    }
    return output;
}

std::optional<BoundedProcess::Output>
BoundedProcess::runSynchronously(const std::function<bool()>& isCancelled) const {
    if (!isCancelled) {
        return runBounded(*this, [] { return false; }, nullptr, std::chrono::nanoseconds::max());
    }
    return runBounded(*this, isCancelled, nullptr, betweenQuestions);
}

std::map<std::string, std::string> BoundedProcess::defaultEnvironment(const FileURL& home) {
    return {{"HOME", home.path()},
            {"PATH", "/usr/bin:/bin"},
            {"NO_COLOR", "1"},
            {"LANG", "en_US.UTF-8"}};
}

} // namespace tidyro

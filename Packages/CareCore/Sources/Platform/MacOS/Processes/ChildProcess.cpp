#include "Platform/Processes/ChildProcess.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/event.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Platform/Posix/Processes/ChildPipes.h"
#include "Platform/Posix/Processes/ProgramImage.h"

namespace tidyro::platform {

namespace {

/// A descriptor beyond the standard ones, so that giving them to a program overwrites none: this
/// process may have been started without them.
std::expected<Descriptor, SystemError> raised(int fd) {
    Descriptor given(fd);
    if (fd > STDERR_FILENO) {
        if (::fcntl(fd, F_SETFD, FD_CLOEXEC) != 0) return std::unexpected(SystemError{errno});
        return given;
    }
    const int copy = ::fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (copy < 0) return std::unexpected(SystemError{errno});
    return Descriptor(copy);
}

std::expected<Pipe, SystemError> makePipe() {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) return std::unexpected(SystemError{errno});
    auto first = raised(ends[0]);
    auto second = raised(ends[1]);
    if (!first) return std::unexpected(first.error());
    if (!second) return std::unexpected(second.error());
    return Pipe{.readEnd = std::move(*first), .writeEnd = std::move(*second)};
}

std::int32_t statusOf(int waited) {
    return WIFEXITED(waited) ? WEXITSTATUS(waited) : 128 + WTERMSIG(waited);
}

} // namespace

std::expected<WakeSignal, SystemError> WakeSignal::make() {
    auto made = makePipe();
    if (!made) return std::unexpected(made.error());
    if (!makeNonBlocking(made->writeEnd)) return std::unexpected(SystemError{errno});
    const int readEnd = made->readEnd.release();
    return WakeSignal(readEnd, made->writeEnd.release());
}

WakeSignal::WakeSignal(WakeSignal&& other) noexcept
    : readEnd_(std::exchange(other.readEnd_, -1)), writeEnd_(std::exchange(other.writeEnd_, -1)) {}

WakeSignal::~WakeSignal() {
    if (readEnd_ >= 0) ::close(readEnd_);
    if (writeEnd_ >= 0) ::close(writeEnd_);
}

void WakeSignal::wake() const {
    const char any = 1; // a full pipe was signalled often enough
    static_cast<void>(::write(writeEnd_, &any, 1) == 1);
}

struct ChildProcess::State : ChildPipes {
    Descriptor exits; ///< a queue that tells of the program's end
    pid_t pid = 0;
    bool hasExited = false; ///< but is not reaped, so its number is nobody else's
    std::optional<std::int32_t> status = std::nullopt; ///< when it is reaped

    void takeExit() {
        siginfo_t ended{};
        if (::waitid(P_PID, static_cast<id_t>(pid), &ended, WEXITED | WNOHANG | WNOWAIT) != 0) {
            hasExited = hasExited || errno == ECHILD; // children are ignored here
        } else if (ended.si_pid == pid) {
            hasExited = true;
        }
    }
};

ChildProcess::ChildProcess(std::unique_ptr<State> state) : state_(std::move(state)) {}
ChildProcess::ChildProcess(ChildProcess&&) noexcept = default;
ChildProcess::~ChildProcess() {
    if (state_) static_cast<void>(end());
}

std::expected<ChildProcess, SystemError> ChildProcess::start(const ChildProgram& program) {
    const auto failed = [](int code) { return std::unexpected(SystemError{code}); };
    auto output = makePipe();
    if (!output) return std::unexpected(output.error());
    auto error = makePipe();
    if (!error) return std::unexpected(error.error());
    Pipe input;
    if (program.hasInput) {
        auto made = makePipe();
        if (!made) return std::unexpected(made.error());
        input = std::move(*made);
        // Writing to a program that does not read raises no signal.
        if (!makeNonBlocking(input.writeEnd) ||
            ::fcntl(input.writeEnd.get(), F_SETNOSIGPIPE, 1) != 0) {
            return failed(errno);
        }
    }
    if (!makeNonBlocking(output->readEnd) || !makeNonBlocking(error->readEnd)) {
        return failed(errno);
    }
    auto state = std::make_unique<State>();
    state->exits = Descriptor(::kqueue());
    if (!state->exits.isOpen()) return failed(errno);
    ::fcntl(state->exits.get(), F_SETFD, FD_CLOEXEC);

    SpawnActions actions(POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_CLOEXEC_DEFAULT);
    actions.giveInput(input.readEnd);
    actions.give(output->writeEnd, STDOUT_FILENO);
    actions.give(error->writeEnd, STDERR_FILENO);
    actions.enter(program.workingFolder);
    const auto pid = actions.spawn(program.path, nullTerminated(program.arguments).data(),
                                   nullTerminated(program.environment).data());
    if (!pid) return std::unexpected(pid.error());
    state->pid = *pid;
    struct kevent end{};
    EV_SET(&end, static_cast<uintptr_t>(*pid), EVFILT_PROC, EV_ADD, NOTE_EXIT, 0, nullptr);
    // It fails for a program that has ended already, which the look tells.
    if (::kevent(state->exits.get(), &end, 1, nullptr, 0, nullptr) != 0) state->takeExit();
    state->streams = {std::move(output->readEnd), std::move(error->readEnd)};
    state->input = std::move(input.writeEnd);
    return ChildProcess(std::move(state));
}

void ChildProcess::wait(std::chrono::nanoseconds maxWait, const WakeSignal* wake) {
    State& state = *state_;
    std::array<pollfd, 5> waited{{
        {.fd = state.streams[0].get(), .events = POLLIN, .revents = 0},
        {.fd = state.streams[1].get(), .events = POLLIN, .revents = 0},
        {.fd = state.input.get(), .events = POLLOUT, .revents = 0},
        {.fd = wake != nullptr ? wake->fd() : -1, .events = POLLIN, .revents = 0},
        {.fd = state.hasExited ? -1 : state.exits.get(), .events = POLLIN, .revents = 0},
    }};
    using std::chrono::milliseconds;
    constexpr milliseconds maxAtOnce{60'000}; // the caller waits again
    const auto time =
        std::clamp(std::chrono::ceil<milliseconds>(maxWait), milliseconds(0), maxAtOnce);
    ::poll(waited.data(), waited.size(), static_cast<int>(time.count()));
    if (!state.hasExited) state.takeExit();
}

// A program that could not be started has failed at its start here.
std::optional<SystemError> ChildProcess::startFailure() const { return std::nullopt; }

bool ChildProcess::hasExited() const { return state_->hasExited; }

std::size_t ChildProcess::read(ChildStream stream, std::span<std::byte> into) {
    return state_->read(stream, into);
}

bool ChildProcess::isAtEnd(ChildStream stream) const { return !state_->stream(stream).isOpen(); }

bool ChildProcess::isInputOpen() const { return state_->input.isOpen(); }

void ChildProcess::closeInput() { state_->input.close(); }

std::size_t ChildProcess::write(std::span<const std::byte> bytes) {
    if (!isInputOpen()) return 0;
    const ssize_t written = ::write(state_->input.get(), bytes.data(), bytes.size());
    if (written >= 0) return static_cast<std::size_t>(written);
    if (errno != EAGAIN && errno != EINTR) closeInput();
    return 0;
}

void ChildProcess::terminate() {
    if (state_->hasExited || state_->status) return;
    ::kill(-state_->pid, SIGTERM);
    ::kill(-state_->pid, SIGCONT); // one that was stopped could not obey
}

std::int32_t ChildProcess::end() {
    State& state = *state_;
    state.input.close();
    if (state.status) return *state.status;
    ::kill(-state.pid, SIGKILL); // the leader is not reaped yet
    const auto last = std::chrono::steady_clock::now() + maxEndWait;
    int waited = 0;
    for (;;) {
        const pid_t reaped = ::waitpid(state.pid, &waited, WNOHANG);
        if (reaped == state.pid) {
            state.status = statusOf(waited);
        } else if ((reaped < 0 && errno != EINTR) || std::chrono::steady_clock::now() > last) {
            state.status = 128 + SIGKILL;
        }
        if (state.status) return *state.status;
        constexpr timespec pause{.tv_sec = 0, .tv_nsec = 500'000};
        ::nanosleep(&pause, nullptr);
    }
}

} // namespace tidyro::platform

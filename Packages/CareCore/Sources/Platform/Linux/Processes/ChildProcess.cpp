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
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Base/PathText.h"
#include "Platform/Linux/Files/KernelText.h"
#include "Platform/Linux/Keeper/KeeperProtocol.h"
#include "Platform/Posix/Processes/ChildPipes.h"
#include "Platform/Posix/Processes/ProgramImage.h"

namespace tidyro::platform {

using keeper::News;
using keeper::Order;
using keeper::Report;

// Waking ---------------------------------------------------------------------------------------

std::expected<WakeSignal, SystemError> WakeSignal::make() {
    const int fd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (fd < 0) return std::unexpected(SystemError{errno});
    return WakeSignal(fd, fd);
}

WakeSignal::WakeSignal(WakeSignal&& other) noexcept
    : readEnd_(std::exchange(other.readEnd_, -1)), writeEnd_(std::exchange(other.writeEnd_, -1)) {}

WakeSignal::~WakeSignal() {
    if (readEnd_ >= 0) ::close(readEnd_);
}

void WakeSignal::wake() const {
    // It fails only when it was signalled many times already.
    static_cast<void>(::eventfd_write(writeEnd_, 1) == 0);
}

// Starting -------------------------------------------------------------------------------------

namespace {

/// A descriptor beyond those that the keeper is given, so that giving them overwrites none: this
/// process may have been started without standard descriptors.
std::expected<Descriptor, SystemError> raised(int fd) {
    Descriptor given(fd);
    if (fd > keeper::controlFD) return given;
    const int copy = ::fcntl(fd, F_DUPFD_CLOEXEC, keeper::controlFD + 1);
    if (copy < 0) return std::unexpected(SystemError{errno});
    return Descriptor(copy);
}

/// Both are closed in programs that are started.
std::expected<Pipe, SystemError> raisedBoth(const std::array<int, 2>& ends) {
    auto first = raised(ends[0]);
    auto second = raised(ends[1]);
    if (!first) return std::unexpected(first.error());
    if (!second) return std::unexpected(second.error());
    return Pipe{.readEnd = std::move(*first), .writeEnd = std::move(*second)};
}

std::expected<Pipe, SystemError> makePipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) return std::unexpected(SystemError{errno});
    return raisedBoth(ends);
}

std::expected<Pipe, SystemError> makeConnection() {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        return std::unexpected(SystemError{errno});
    }
    return raisedBoth(ends);
}

/// Beside this program, as it is built, or where an installation puts it.
std::expected<std::string, SystemError> keeperFile() {
    std::string program;
    if (const auto read = readKernelLink(AT_FDCWD, "/proc/self/exe", program); !read) {
        return std::unexpected(read.error());
    }
    const std::string folder(path::parent(program));
    for (const char* place : {"", TIDYRO_KEEPER_FOLDER}) {
        std::string file = path::standardized(folder + "/" + place + "/" + keeper::fileName);
        if (::access(file.c_str(), X_OK) == 0) return file;
    }
    return std::unexpected(SystemError{ENOENT});
}

/// Older C libraries do not name it.
constexpr auto byKeptDescriptor = static_cast<idtype_t>(3);

} // namespace

struct ChildProcess::State : ChildPipes {
    Descriptor control;
    /// The keeper, which is this process's child. A signal through it never hits another process.
    Descriptor keeper;
    bool isKeeperGone = false;
    bool isEnded = false; ///< all was done that can be, even if the keeper has to go on
    bool hasStarted = false;
    std::optional<SystemError> failure = std::nullopt;
    std::optional<std::int32_t> status = std::nullopt;

    void takeReports() {
        Report report{};
        while (::recv(control.get(), &report, sizeof report, MSG_DONTWAIT) == sizeof report) {
            if (report.news == News::exited) {
                status = report.value;
            } else if (report.value == 0) {
                hasStarted = true;
            } else {
                failure = SystemError{report.value};
            }
        }
    }

    /// Reaps the keeper if it is gone: this one child and no other.
    void takeKeeper() {
        siginfo_t ended{};
        const int waited =
            ::waitid(byKeptDescriptor, static_cast<id_t>(keeper.get()), &ended, WEXITED | WNOHANG);
        // Where children are ignored nobody can wait for them; then the poll has told it.
        if ((waited == 0 && ended.si_pid == 0) || (waited != 0 && errno == EINTR)) return;
        isKeeperGone = true;
        takeReports();
        // A program that ends its keeper by force may be faster than the keeper's report.
        const bool isByForce = waited == 0 && ended.si_code != CLD_EXITED;
        if (!hasStarted && !failure && !isByForce) failure = SystemError{ECHILD};
        if (!status) status = 128 + SIGKILL;
    }

    void order(Order what) const {
        static_cast<void>(::send(control.get(), &what, sizeof what, MSG_NOSIGNAL | MSG_DONTWAIT));
    }
    void signalKeeper(int number) const {
        static_cast<void>(::syscall(SYS_pidfd_send_signal, keeper.get(), number, nullptr, 0));
    }
};

ChildProcess::ChildProcess(std::unique_ptr<State> state) : state_(std::move(state)) {}
ChildProcess::ChildProcess(ChildProcess&&) noexcept = default;
ChildProcess::~ChildProcess() {
    if (state_) static_cast<void>(end());
}

std::expected<ChildProcess, SystemError> ChildProcess::start(const ChildProgram& program) {
    const auto failed = [](int code) { return std::unexpected(SystemError{code}); };
    const auto file = keeperFile();
    if (!file) return std::unexpected(file.error());
    auto output = makePipe();
    if (!output) return std::unexpected(output.error());
    auto error = makePipe();
    if (!error) return std::unexpected(error.error());
    auto control = makeConnection();
    if (!control) return std::unexpected(control.error());
    Pipe input;
    if (program.hasInput) {
        auto made = makePipe();
        if (!made) return std::unexpected(made.error());
        input = std::move(*made);
        if (!makeNonBlocking(input.writeEnd)) return failed(errno);
    }
    if (!makeNonBlocking(output->readEnd) || !makeNonBlocking(error->readEnd)) return failed(errno);
    // The more the pipe takes, the less often the two sides wait for each other. It works with
    // less.
    constexpr int pipeBytes = 1'048'576;
    static_cast<void>(::fcntl(output->readEnd.get(), F_SETPIPE_SZ, pipeBytes));

    // A session of its own: no terminal, and no group that a stranger could be in.
    SpawnActions actions(POSIX_SPAWN_SETSID);
    actions.giveInput(input.readEnd);
    actions.give(output->writeEnd, STDOUT_FILENO);
    actions.give(error->writeEnd, STDERR_FILENO);
    actions.give(control->writeEnd, keeper::controlFD);
    actions.add([](posix_spawn_file_actions_t* files) {
        return ::posix_spawn_file_actions_addclosefrom_np(files, keeper::controlFD + 1);
    });
    actions.enter(program.workingFolder);

    std::vector<std::string> arguments = {*file, keeper::protocolVersion, program.path};
    arguments.insert(arguments.end(), program.arguments.begin(), program.arguments.end());
    auto state = std::make_unique<State>();
    const auto pid = actions.spawn(*file, nullTerminated(arguments).data(),
                                   nullTerminated(program.environment).data());
    if (!pid) return std::unexpected(pid.error());
    // Nobody else reaps it, so the number is still the keeper's.
    state->keeper = Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, *pid, 0)));
    if (!state->keeper.isOpen()) {
        const int code = errno; // the keeper was not told to start anything yet
        ::kill(*pid, SIGKILL);
        while (::waitpid(*pid, nullptr, 0) < 0 && errno == EINTR) {}
        return failed(code);
    }
    state->streams = {std::move(output->readEnd), std::move(error->readEnd)};
    state->input = std::move(input.writeEnd);
    state->control = std::move(control->readEnd);
    state->order(Order::start);
    return ChildProcess(std::move(state));
}

// Running --------------------------------------------------------------------------------------

void ChildProcess::wait(std::chrono::nanoseconds maxWait, const WakeSignal* wake) {
    State& state = *state_;
    const int keeper = state.isKeeperGone ? -1 : state.keeper.get();
    // A negative descriptor is passed over.
    std::array<pollfd, 6> waited{{
        {.fd = state.streams[0].get(), .events = POLLIN, .revents = 0},
        {.fd = state.streams[1].get(), .events = POLLIN, .revents = 0},
        {.fd = state.input.get(), .events = POLLOUT, .revents = 0},
        {.fd = wake != nullptr ? wake->fd() : -1, .events = POLLIN, .revents = 0},
        {.fd = keeper < 0 ? -1 : state.control.get(), .events = POLLIN, .revents = 0},
        {.fd = keeper, .events = POLLIN, .revents = 0},
    }};
    const auto time = std::max(maxWait, std::chrono::nanoseconds(0)).count();
    const timespec limit{.tv_sec = time / 1'000'000'000, .tv_nsec = time % 1'000'000'000};
    if (::ppoll(waited.data(), waited.size(), &limit, nullptr) <= 0) return;
    if (waited[4].revents != 0) state.takeReports();
    // Its connection closes a moment before it counts as ended; to wait for that costs nothing.
    if (waited[5].revents != 0) {
        state.takeKeeper();
    } else if ((waited[4].revents & (POLLHUP | POLLERR)) != 0) {
        pollfd ended{.fd = keeper, .events = POLLIN, .revents = 0};
        constexpr int maxMilliseconds = 50;
        if (::poll(&ended, 1, maxMilliseconds) > 0) state.takeKeeper();
    }
}

std::optional<SystemError> ChildProcess::startFailure() const { return state_->failure; }

bool ChildProcess::hasExited() const { return state_->status.has_value(); }

std::size_t ChildProcess::read(ChildStream stream, std::span<std::byte> into) {
    return state_->read(stream, into);
}

bool ChildProcess::isAtEnd(ChildStream stream) const { return !state_->stream(stream).isOpen(); }

bool ChildProcess::isInputOpen() const { return state_->input.isOpen(); }

void ChildProcess::closeInput() { state_->input.close(); }

std::size_t ChildProcess::write(std::span<const std::byte> bytes) {
    if (!isInputOpen()) return 0;
    // A pipe without a reader raises a signal that would end this process. It is raised for this
    // thread alone, so the thread holds it back and takes it away, unless one waited there before.
    sigset_t pipe{};
    sigset_t before{};
    sigset_t pending{};
    ::sigemptyset(&pipe);
    ::sigaddset(&pipe, SIGPIPE);
    ::sigpending(&pending);
    ::pthread_sigmask(SIG_BLOCK, &pipe, &before);
    const ssize_t written = ::write(state_->input.get(), bytes.data(), bytes.size());
    const int failed = written < 0 ? errno : 0;
    if (failed == EPIPE && ::sigismember(&pending, SIGPIPE) == 0) {
        const timespec now{.tv_sec = 0, .tv_nsec = 0};
        while (::sigtimedwait(&pipe, nullptr, &now) < 0 && errno == EINTR) {}
    }
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (failed == 0) return static_cast<std::size_t>(written);
    if (failed != EAGAIN && failed != EINTR) closeInput();
    return 0;
}

void ChildProcess::terminate() {
    if (!state_->isKeeperGone) state_->order(Order::terminate);
}

std::int32_t ChildProcess::end() {
    State& state = *state_;
    state.input.close();
    if (!std::exchange(state.isEnded, true) && !state.isKeeperGone) {
        state.order(Order::end);
        state.signalKeeper(SIGCONT); // the program may have stopped it
        pollfd ended{.fd = state.keeper.get(), .events = POLLIN, .revents = 0};
        constexpr int most =
            std::chrono::duration_cast<std::chrono::milliseconds>(maxEndWait).count();
        const auto last = std::chrono::steady_clock::now() + maxEndWait;
        while (::poll(&ended, 1, most) < 0 && errno == EINTR &&
               std::chrono::steady_clock::now() < last) {}
        state.takeReports();
        // A keeper that has not ended yet is never ended by force: the system may still be starting
        // the program, which would then run without one. It finds its order when that is over.
        state.takeKeeper();
    }
    return state.status.value_or(128 + SIGKILL);
}

} // namespace tidyro::platform

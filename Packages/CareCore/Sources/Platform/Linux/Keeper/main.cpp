// The keeper stands between Tidyro and a program that it runs. It adopts every process that comes
// of the program and has lost its parent, and so can end all of them, also those that have left the
// program's group. It goes when none is left.
//
// It is a program of its own, since adoption concerns all children of a process, and small, since
// each run pays for its start: it needs nothing but the C library.

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <initializer_list>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Platform/Linux/Keeper/KeeperProtocol.h"

namespace {

using namespace tidyro::platform::keeper;

constexpr std::int64_t millisecond = 1'000'000;
/// How long a program whose Tidyro has gone may take to end by itself.
constexpr std::int64_t graceWhenAlone = 5'000 * millisecond;

std::int64_t nowInNanoseconds() {
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * std::int64_t{1'000'000'000} + time.tv_nsec;
}

void tell(News news, int value) {
    const Report report{.news = news, .value = value};
    // Nobody listens any more when it fails, and the poll tells so as well.
    static_cast<void>(::send(controlFD, &report, sizeof report, MSG_NOSIGNAL));
}

/// The kernel's list of this process's children, held open from the start. Negative, with errno,
/// when there is none, and when it belongs to another namespace with other numbers.
int openListOfChildren() {
    char itself[32] = {};
    if (::readlink("/proc/self", itself, sizeof itself - 1) < 0) return -1;
    long number = 0;
    for (const char* digit = itself; *digit >= '0' && *digit <= '9'; ++digit) {
        number = number * 10 + (*digit - '0');
    }
    if (number != ::getpid()) {
        errno = ESRCH;
        return -1;
    }
    return ::open("/proc/thread-self/children", O_RDONLY | O_CLOEXEC);
}

/// Whether a pid is that of a child, dead ones included. Only this process reaps them, so the
/// answer holds until it does.
bool isChild(pid_t pid) {
    siginfo_t unused{};
    return ::waitid(P_PID, static_cast<id_t>(pid), &unused, WEXITED | WNOHANG | WNOWAIT) == 0;
}

/// Ends a child and the group that it is in, which takes those with it that fork for ever. No
/// stranger can be in the group: the keeper leads a session, so all groups of its children were
/// made by its descendants, but for its own.
void endWithGroup(pid_t child) {
    if (!isChild(child)) return;
    const pid_t group = ::getpgid(child);
    if (group > 1 && group != ::getpgrp()) ::kill(-group, SIGKILL);
    ::kill(child, SIGKILL);
}

/// Ends the children that the list has now. What they leave is ours when they are gone.
void endChildren(int list) {
    static char names[65'536]; // those beyond it come next time
    const ssize_t length = ::pread(list, names, sizeof names, 0);
    pid_t pid = 0;
    for (ssize_t at = 0; at < length; ++at) { // "12 345 "
        if (names[at] >= '0' && names[at] <= '9') {
            pid = pid * 10 + (names[at] - '0');
        } else {
            if (pid > 1) endWithGroup(pid);
            pid = 0;
        }
    }
}

class Keeper {
  public:
    Keeper(pid_t program, int list, int signals)
        : program_(program), list_(list), signals_(signals) {}

    /// Until nothing is left of the program.
    void watch() {
        while (reap()) {
            if (isToEnd_ || (isAlone_ && (program_ == 0 || nowInNanoseconds() > endAlone_))) {
                endAll();
                return;
            }
            pollfd waited[] = {{.fd = isAlone_ ? -1 : controlFD, .events = POLLIN, .revents = 0},
                               {.fd = signals_, .events = POLLIN, .revents = 0}};
            ::poll(waited, 2, isAlone_ ? 100 : -1);
            if (waited[1].revents != 0) takeSignals();
            if (waited[0].revents != 0) obey();
        }
    }

  private:
    /// Takes note of the children that have ended. False when there is none any more.
    bool reap() {
        int status = 0;
        pid_t pid = 0;
        while ((pid = ::waitpid(-1, &status, WNOHANG)) > 0) {
            if (pid != program_) continue;
            program_ = 0;
            tell(News::exited, WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
        }
        return pid == 0;
    }

    void takeSignals() const {
        signalfd_siginfo taken{};
        while (::read(signals_, &taken, sizeof taken) > 0) {}
    }

    void obey() {
        Order order{};
        const ssize_t got = ::recv(controlFD, &order, sizeof order, MSG_DONTWAIT);
        if (got < 0 && (errno == EAGAIN || errno == EINTR)) return;
        if (got != sizeof order) {
            isAlone_ = true;
            endAlone_ = nowInNanoseconds() + graceWhenAlone;
            terminate();
        } else if (order == Order::terminate) {
            terminate();
        } else if (order == Order::end) {
            isToEnd_ = true;
        }
    }

    /// The program is not reaped yet, so its number is nobody else's.
    void terminate() const {
        if (program_ == 0) return;
        for (const int number : {SIGTERM, SIGCONT}) { // one that was stopped could not obey
            ::kill(-program_, number);
            if (::getpgid(program_) != program_) ::kill(program_, number); // it has changed groups
        }
    }

    /// By force, again and again: a child that ends leaves its own children to us. One that forks
    /// and ends at once, for ever, is caught sooner or later between the two.
    void endAll() {
        std::int64_t pause = 0;
        for (;;) {
            endChildren(list_);
            if (!reap()) return;
            // At first only as long as a signal takes; one that cannot be ended costs little.
            pollfd waited{.fd = signals_, .events = POLLIN, .revents = 0};
            const timespec time{.tv_sec = 0, .tv_nsec = static_cast<long>(pause)};
            if (::ppoll(&waited, 1, &time, nullptr) > 0) {
                takeSignals();
                pause = 0;
            } else {
                pause = pause == 0 ? 20'000 : pause * 2;
                if (pause > 50 * millisecond) pause = 50 * millisecond;
            }
        }
    }

    pid_t program_; ///< 0: reaped
    int list_;
    int signals_;
    bool isToEnd_ = false;
    bool isAlone_ = false;
    std::int64_t endAlone_ = 0;
};

/// Waits for the first order. False when there is no need for the program any more.
bool isToldToStart() {
    Order order{};
    ssize_t got = 0;
    do {
        got = ::recv(controlFD, &order, sizeof order, 0);
    } while (got < 0 && errno == EINTR);
    return got == sizeof order && order == Order::start;
}

/// Returns errno; 0 when the program runs.
int startProgram(const char* path, char** arguments, pid_t& pid) {
    sigset_t all{};
    sigset_t none{};
    ::sigfillset(&all);
    ::sigemptyset(&none);
    posix_spawnattr_t attributes{};
    if (const int failed = ::posix_spawnattr_init(&attributes); failed != 0) return failed;
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF |
                                                POSIX_SPAWN_SETSIGMASK);
    ::posix_spawnattr_setpgroup(&attributes, 0);
    ::posix_spawnattr_setsigdefault(&attributes, &all);
    ::posix_spawnattr_setsigmask(&attributes, &none);
    const int failed = ::posix_spawn(&pid, path, nullptr, &attributes, arguments, environ);
    ::posix_spawnattr_destroy(&attributes);
    return failed;
}

} // namespace

int main(int count, char** arguments) {
    if (count < 4 || std::strcmp(arguments[1], protocolVersion) != 0) return 64;
    // The program may send its signals to whoever is in its session; none but SIGKILL counts here.
    sigset_t all{};
    ::sigfillset(&all);
    ::sigprocmask(SIG_BLOCK, &all, nullptr); // NOLINT(concurrency-mt-unsafe): the only thread
    ::fcntl(controlFD, F_SETFD, FD_CLOEXEC);

    pid_t program = 0;
    const int list = openListOfChildren();
    int failed = list < 0 ? errno : 0;
    sigset_t children{};
    ::sigemptyset(&children);
    ::sigaddset(&children, SIGCHLD);
    const int signals = ::signalfd(-1, &children, SFD_CLOEXEC | SFD_NONBLOCK);
    if (failed == 0 && signals < 0) failed = errno;
    if (failed == 0 && ::prctl(PR_SET_CHILD_SUBREAPER, 1UL, 0UL, 0UL, 0UL) != 0) failed = errno;
    // What could not be ended is not started.
    if (failed == 0 && !isToldToStart()) return 0;
    if (failed == 0) failed = startProgram(arguments[2], arguments + 3, program);
    tell(News::started, failed);
    if (failed != 0) return 0;

    // The pipes end when the program's side has closed them; its folder may be removed.
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::close(fd);
    static_cast<void>(::chdir("/") == 0);
    Keeper(program, list, signals).watch();
    return 0;
}

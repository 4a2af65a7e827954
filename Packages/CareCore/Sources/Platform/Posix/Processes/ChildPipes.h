#pragma once

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <expected>
#include <span>
#include <string>

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include "Base/SystemError.h"
#include "Platform/Posix/Processes/Descriptor.h"
#include "Platform/Processes/ChildProcess.h"

/// What the bodies of `ChildProcess` share: the pipes to a program, and how one is spawned.
namespace tidyro::platform {

/// Only our end of a pipe: the program would be surprised.
[[nodiscard]] inline bool makeNonBlocking(const Descriptor& end) {
    const int flags = ::fcntl(end.get(), F_GETFL);
    return flags >= 0 && ::fcntl(end.get(), F_SETFL, flags | O_NONBLOCK) == 0;
}

/// Our ends of what a program reads and writes. Each is closed at its end.
struct ChildPipes {
    std::array<Descriptor, 2> streams; ///< by `ChildStream`
    Descriptor input;

    [[nodiscard]] Descriptor& stream(ChildStream which) {
        return streams[static_cast<std::size_t>(which)];
    }
    /// As `ChildProcess::read`.
    [[nodiscard]] std::size_t read(ChildStream which, std::span<std::byte> into) {
        Descriptor& end = stream(which);
        if (!end.isOpen()) return 0;
        ssize_t got = 0;
        do {
            got = ::read(end.get(), into.data(), into.size());
        } while (got < 0 && errno == EINTR);
        if (got > 0) return static_cast<std::size_t>(got);
        if (got == 0 || errno != EAGAIN) end.close();
        return 0;
    }
};

/// What is to happen in a new process before its program runs in it. The first step that cannot be
/// noted is the error of `spawn`.
class SpawnActions {
  public:
    /// `flags` beside those of the signals, of which none is held or ignored in the program.
    explicit SpawnActions(int flags) {
        note(::posix_spawn_file_actions_init(&files_));
        note(::posix_spawnattr_init(&attributes_));
        sigset_t all{};
        sigset_t none{};
        sigfillset(&all); // macros on some systems
        sigemptyset(&none);
        note(::posix_spawnattr_setsigdefault(&attributes_, &all));
        note(::posix_spawnattr_setsigmask(&attributes_, &none));
        note(::posix_spawnattr_setpgroup(&attributes_, 0)); // where the flags ask for a group
        note(::posix_spawnattr_setflags(
            &attributes_,
            static_cast<short>(flags | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK)));
    }
    ~SpawnActions() {
        ::posix_spawn_file_actions_destroy(&files_);
        ::posix_spawnattr_destroy(&attributes_);
    }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;

    void give(const Descriptor& end, int as) {
        note(::posix_spawn_file_actions_adddup2(&files_, end.get(), as));
    }
    /// Standard input: what `input` holds, or nothing at all.
    void giveInput(const Descriptor& input) {
        if (input.isOpen()) return give(input, STDIN_FILENO);
        note(::posix_spawn_file_actions_addopen(&files_, STDIN_FILENO, "/dev/null", O_RDONLY, 0));
    }
    void enter(const std::string& folder) {
        note(::posix_spawn_file_actions_addchdir_np(&files_, folder.c_str()));
    }
    /// For steps that only one system knows.
    template <class Add>
    void add(Add step) {
        note(step(&files_));
    }
    [[nodiscard]] std::expected<pid_t, SystemError> spawn(const std::string& file, char** arguments,
                                                          char** environment) {
        pid_t pid = 0;
        if (failed_ == 0) {
            note(::posix_spawn(&pid, file.c_str(), &files_, &attributes_, arguments, environment));
        }
        if (failed_ != 0) return std::unexpected(SystemError{failed_});
        return pid;
    }

  private:
    void note(int result) {
        if (failed_ == 0) failed_ = result;
    }

    posix_spawn_file_actions_t files_{};
    posix_spawnattr_t attributes_{};
    int failed_ = 0;
};

} // namespace tidyro::platform

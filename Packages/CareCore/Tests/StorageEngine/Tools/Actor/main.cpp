// Plays the programs that a shell script cannot play:
//
//     ToolActor --version       prints what the file "version" in its HOME holds
//     ToolActor chain|leaving   a chain of forks without end; "leaving": each in its own session
//     ToolActor bomb            each of its processes forks again and again, and none ends; some
//                               hundred in all, every other one in its own session
//     ToolActor leave           its child leaves for another session and stays, and itself ends
//     ToolActor hold            the same, and the child goes on writing
//     ToolActor killparent      ends what started it, and stays
//     ToolActor descriptors     prints the descriptors that are open
//     ToolActor group           ends with 0 when it leads a group, and no signal is held or ignored
//     ToolActor cache prune     prunes the cache at UV_CACHE_DIR as the file "behaviour" in its
//     HOME
//                               says, and tells in the file "seen" there how it was started

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <new>
#include <string>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

[[noreturn]] void stay() {
    for (;;) ::pause();
}

[[noreturn]] void goOnForking(bool isLeaving) {
    for (;;) {
        if (::fork() > 0) ::_exit(0);
        if (isLeaving) ::setsid();
    }
}

[[noreturn]] void forkInAllDirections() {
    // The machine that runs the test must survive it, also when nobody ends the processes.
    constexpr int maxProcesses = 300;
    constexpr unsigned maxSeconds = 20;
    void* const shared = ::mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE,
                                MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) ::_exit(1);
    auto& made = *new (shared) std::atomic<int>(1);
    std::signal(SIGTERM, SIG_IGN);
    for (;;) {
        ::alarm(maxSeconds); // none inherits it
        const int number = made++;
        if (number >= maxProcesses) stay();
        if (::fork() == 0 && number % 2 == 0) ::setsid();
        ::usleep(200);
    }
}

[[noreturn]] void leave(bool isWriting) {
    if (::fork() > 0) ::_exit(7);
    ::setsid();
    std::signal(SIGTERM, SIG_IGN);
    if (!isWriting) {
        for (int fd = 0; fd < 3; ++fd) ::close(fd);
        stay();
    }
    for (;;) {
        if (::write(STDOUT_FILENO, "x", 1) != 1) ::_exit(1);
        ::usleep(1'000);
    }
}

int prune() {
    const std::string home = std::getenv("HOME");
    const std::string cache = std::getenv("UV_CACHE_DIR");
    std::string behaviour;
    std::ifstream(home + "/behaviour") >> behaviour;
    std::ofstream seen(home + "/seen");
    seen << std::filesystem::current_path().native() << '\n';
    for (char** variable = environ; *variable != nullptr; ++variable) seen << *variable << '\n';
    seen.close();
    const int lock = ::open((cache + "/.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    ::flock(lock, LOCK_EX);
    if (behaviour == "slow") stay();
    if (behaviour == "failing") {
        std::cerr << "error: the cache is broken\n";
        return 2;
    }
    const std::string line = behaviour == "chatty" ? std::string(3'000'000, 'x') : "Removed 1 file";
    std::filesystem::remove_all(cache + "/archive-v0/dangling");
    std::cout << line << '\n';
    std::cerr << line << '\n';
    return 0;
}

} // namespace

int main(int count, char** arguments) {
    const std::string role = count > 1 ? arguments[1] : "";
    if (role == "--version") {
        std::cout << std::ifstream(std::string(std::getenv("HOME")) + "/version").rdbuf();
    } else if (role == "chain" || role == "leaving") {
        if (::fork() == 0) goOnForking(role == "leaving");
        stay();
    } else if (role == "bomb") {
        forkInAllDirections();
    } else if (role == "leave" || role == "hold") {
        leave(role == "hold");
    } else if (role == "killparent") {
        ::kill(::getppid(), SIGKILL);
        stay();
    } else if (role == "cache") {
        return prune();
    } else if (role == "group") {
        sigset_t held{};
        ::sigprocmask(SIG_BLOCK, nullptr, &held);
        return ::getpgrp() == ::getpid() && ::sigismember(&held, SIGTERM) == 0 &&
                       std::signal(SIGPIPE, SIG_DFL) == SIG_DFL
                   ? 0
                   : 1;
    } else if (role == "descriptors") {
        for (int fd = 0; fd < 1'024; ++fd) {
            if (::fcntl(fd, F_GETFD) >= 0) std::cout << fd << ' ';
        }
    }
    return 0;
}

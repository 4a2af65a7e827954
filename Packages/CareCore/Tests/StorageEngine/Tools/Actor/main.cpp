// Plays the programs that a shell script cannot play:
//
//     ToolActor --version       prints what the file "version" in its HOME holds
//     ToolActor chain|leaving   a chain of forks without end; "leaving": each in a session of its
//     own ToolActor leave           its child leaves for another session and stays, and itself ends
//     ToolActor hold            the same, and the child goes on writing
//     ToolActor killparent      ends what started it, and stays
//     ToolActor descriptors     prints the descriptors that are open
//     ToolActor group           ends with 0 when it leads a group, and no signal is held or ignored

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>

#include <fcntl.h>
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

} // namespace

int main(int count, char** arguments) {
    const std::string role = count > 1 ? arguments[1] : "";
    if (role == "--version") {
        std::cout << std::ifstream(std::string(std::getenv("HOME")) + "/version").rdbuf();
    } else if (role == "chain" || role == "leaving") {
        if (::fork() == 0) goOnForking(role == "leaving");
        stay();
    } else if (role == "leave" || role == "hold") {
        leave(role == "hold");
    } else if (role == "killparent") {
        ::kill(::getppid(), SIGKILL);
        stay();
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

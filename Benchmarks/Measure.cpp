// Runs a command as a whole process, its output thrown away, and prints what it took:
//
//     Measure COMMAND [ARGUMENT...]   ->   "0.482 0.101 0.912 35640"
//
// wall seconds, user seconds, system seconds, peak memory in KiB. Its exit status is the command's.

#include <chrono>
#include <cstdio>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

} // namespace

int main(int count, char** arguments) {
    if (count < 2) return 64;
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = ::fork();
    if (child == 0) {
        const int nowhere = ::open("/dev/null", O_RDWR);
        if (nowhere < 0) ::_exit(127);
        ::dup2(nowhere, STDIN_FILENO);
        ::dup2(nowhere, STDOUT_FILENO);
        ::dup2(nowhere, STDERR_FILENO);
        ::execvp(arguments[1], arguments + 1);
        ::_exit(127);
    }
    int status = 0;
    rusage used{};
    if (child < 0 || ::wait4(child, &status, 0, &used) != child) return 1;
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
    std::printf("%.4f %.4f %.4f %ld\n", wall.count(), seconds(used.ru_utime),
                seconds(used.ru_stime), used.ru_maxrss);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

// Runs programs under bounds, and prints what the bounds cost:
//
//     RunProgram [GIGABYTES]     10 when left out
//
// First /bin/true, again and again, bare and bounded by turns: the middle of each, in milliseconds.
// Then a program that prints so many gigabytes: how fast they are taken, against "cat" to
// /dev/null, and how much memory that takes in all, against twice what is kept.

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Base/Stopwatch.h"
#include "StorageEngine/Tools/BoundedProcess.h"

namespace {

using tidyro::BoundedProcess;
using tidyro::FileURL;

/// Megabytes that this process took at most so far.
double peakMegabytes() {
    rusage used{};
    ::getrusage(RUSAGE_SELF, &used);
#ifdef __APPLE__
    return static_cast<double>(used.ru_maxrss) / 1e6;
#else
    return static_cast<double>(used.ru_maxrss) * 1'024 / 1e6;
#endif
}

BoundedProcess bounded(const std::string& program, std::vector<std::string> arguments,
                       std::size_t outputLimit) {
    return {.executable = FileURL::file(program),
            .arguments = std::move(arguments),
            .environment = BoundedProcess::defaultEnvironment(FileURL::folder("/")),
            .currentDirectory = FileURL::folder("/"),
            .timeout = 3'600,
            .outputLimit = outputLimit,
            .terminationGrace = 5};
}

/// Waits for a program that is given nothing but what this process has.
bool runBare(std::vector<std::string> arguments) {
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    pid_t pid = 0;
    int status = 0;
    return ::posix_spawn(&pid, pointers[0], nullptr, nullptr, pointers.data(), environ) == 0 &&
           ::waitpid(pid, &status, 0) == pid && status == 0;
}

double middle(std::vector<double> times) {
    std::ranges::sort(times);
    return times[times.size() / 2];
}

bool compareStarts() {
    constexpr int runs = 300;
    std::vector<double> bare;
    std::vector<double> within;
    for (int run = 0; run < runs; ++run) {
        tidyro::Stopwatch watch;
        if (!runBare({"/bin/true"})) return false;
        bare.push_back(watch.milliseconds());
        watch.restart();
        if (!bounded("/bin/true", {}, 1'000).run()) return false;
        within.push_back(watch.milliseconds());
    }
    std::printf("/bin/true: bare %.2f ms, bounded %.2f ms, %.2f ms more\n", middle(bare),
                middle(within), middle(within) - middle(bare));
    return true;
}

bool comparePrinting(double gigabytes) {
    constexpr std::size_t limit = 64'000'000;
    const std::string print =
        "head -c " + std::to_string(static_cast<long long>(gigabytes * 1e9)) + " /dev/zero";
    const double before = peakMegabytes();
    std::array<std::vector<double>, 2> times;
    for (int turn = 0; turn < 3; ++turn) {
        tidyro::Stopwatch watch;
        if (!runBare({"/bin/sh", "-c", print + " | cat >/dev/null"})) return false;
        times[0].push_back(watch.seconds());
        watch.restart();
        const auto output = bounded("/bin/sh", {"-c", "exec " + print}, limit).run();
        times[1].push_back(watch.seconds());
        if (!output || output->standardOutput.size() != limit || !output->standardOutputTruncated) {
            return false;
        }
    }
    const double cat = gigabytes / middle(times[0]);
    const double ours = gigabytes / middle(times[1]);
    std::printf("%.0f GB: cat %.2f GB/s, bounded %.2f GB/s, %.2f of it\n", gigabytes, cat, ours,
                ours / cat);
    const double taken = peakMegabytes() - before;
    std::printf("memory: %.1f MB, %.2f times what is kept\n", taken,
                taken / (static_cast<double>(limit) / 1e6));
    return true;
}

} // namespace

int main(int count, char** arguments) {
    const double gigabytes = count > 1 ? std::atof(arguments[1]) : 10; // NOLINT(cert-err34-c)
    return compareStarts() && comparePrinting(gigabytes) ? 0 : 1;
}

// Runs the smart cleanup scan over a home and prints what a whole scan takes, without the time
// between its looks, and what it holds in memory at most.
//
//     CleanupScan HOME
//
// The clock is set ahead by years, so files that were made a moment ago count as old.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>

#include "StorageEngine/Suggestions/SmartCleanupScan.h"

namespace {

using namespace tidyro;

/// Bytes in memory as the kernel counts them: now ("VmRSS:") or at most since the beginning
/// ("VmHWM:").
std::uint64_t memory(const std::string& wanted) {
    std::ifstream status("/proc/self/status");
    std::string word;
    std::uint64_t kibibytes = 0;
    while (status >> word) {
        if (word == wanted && status >> kibibytes) return kibibytes * 1'024;
    }
    return 0;
}

} // namespace

int main(int count, char** arguments) {
    if (count < 2) return 64;
    const FileURL home = FileURL::folder(arguments[1]);
    LocalRuntimeSafetyContextProvider contexts(home);
    const platform::LiveVolumes volumes;
    constexpr double years = 10 * 365 * 86'400.0;
    const auto now = std::chrono::steady_clock::now;
    auto between = now();
    const SmartCleanupScan scan(home, contexts, volumes,
                                {.secondsBetweenLooks = 0,
                                 .clock = [] { return Timestamp::now().adding(years); },
                                 .betweenLooks = [&] { between = now(); }});
    const std::uint64_t before = memory("VmRSS:");
    const auto start = now();
    const auto report = scan.run();
    const std::chrono::duration<double> first = between - start;
    const std::chrono::duration<double> second = now() - between;
    if (!report) {
        std::fprintf(stderr, "%s\n", SmartCleanupScan::description(report.error()).c_str());
        return 1;
    }
    SmartCleanupTotals held;
    for (const SmartCleanupGroup& group : report->groups) held.add(group.held);
    const std::uint64_t candidates = report->safe().itemCount + report->review().itemCount;
    const std::uint64_t taken = memory("VmHWM:") - before;
    std::printf(
        "%.3f s (%.3f and %.3f), %ju candidates, %ju held, %.1f MB at most, "
        "%.0f bytes a candidate\n",
        first.count() + second.count(), first.count(), second.count(), std::uintmax_t{candidates},
        std::uintmax_t{held.itemCount}, static_cast<double>(taken) / 1e6,
        candidates == 0 ? 0.0 : static_cast<double>(taken) / static_cast<double>(candidates));
    return 0;
}

#include <cstdlib>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include <sys/wait.h>

#include <gtest/gtest.h>

#include "Interrupted.h"
#include "Support/OtherCircumstances.h"
#include "Support/TemporaryFolder.h"
#include "Witness.h"

namespace tidyro::crash {
namespace {

/// What a killed process had acknowledged; the last line may be torn.
std::vector<Acknowledged> acknowledgedIn(const std::string& path) {
    std::vector<Acknowledged> all;
    std::ifstream lines(path);
    int what = 0;
    int cleanup = 0;
    std::size_t count = 0;
    while (lines >> what >> cleanup >> count) {
        all.push_back({.what = static_cast<Acknowledged::What>(what),
                       .cleanup = static_cast<Cleanup>(cleanup),
                       .count = count});
    }
    return all;
}

/// The kernel's own calls, so nothing depends on who calls them in the product. Only the process
/// dies: what it changed stays in the system's memory.
TEST(KilledCleanup, LosesNothingWhicheverCallItDiesIn) {
    if (testing::isSanitized()) GTEST_SKIP() << "a traced sanitizer takes minutes";
    if (!testing::runQuietly("strace -e trace=none true")) GTEST_SKIP() << "needs strace";
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    if (!mayBePlanned(testing::TemporaryFolder().path())) {
        GTEST_SKIP() << "needs a temporary folder that is no part of the system";
    }
    const std::vector<std::pair<std::string, std::size_t>> calls{
        {"renameat2", 6}, {"unlinkat", 5}, {"fsync", 14}, {"openat", 125}};
    for (const auto& [call, step] : calls) {
        std::size_t killed = 0;
        for (std::size_t number = 1;; number += step) {
            const testing::TemporaryFolder place;
            const Places places{.items = place / "top",
                                .data = place / ("top/" + std::string(dataBelowItems)),
                                .itemsOfFolder = 2};
            prepare(places);
            const std::string acknowledged = place / "acknowledged";
            // A process that is killed cannot remove its own folder, so it makes it in this one.
            const std::string command =
                "TMPDIR='" + place.path() + "' strace -f -qq -o /dev/null -e trace=" + call +
                " -e inject=" + call + ":signal=KILL:when=" + std::to_string(number) + " " +
                CRASH_STATES + " --carry-out '" + place.path() + "' any 1 0 0 2 </dev/zero >'" +
                acknowledged + "' 2>/dev/null";
            const int status = std::system(command.c_str()); // NOLINT
            platform::LiveFolderChanges changes;
            const auto faults =
                judge(places, acknowledgedIn(acknowledged), [&] { settle(places, changes); });
            EXPECT_TRUE(faults.empty()) << call << " " << number << ": " << faults[0];
            if (WIFEXITED(status) && WEXITSTATUS(status) == 0) break;
            ++killed;
            ASSERT_LT(number, 20'000U) << "it never comes to its end";
        }
        RecordProperty(call, std::to_string(killed));
        EXPECT_GE(killed, 3U) << call;
    }
}

} // namespace
} // namespace tidyro::crash

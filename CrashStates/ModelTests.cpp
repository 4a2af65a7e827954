#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Failure.h"
#include "Interrupted.h"
#include "Platform/Testing/ScheduledChangeGate.h"
#include "Platform/Testing/ScheduledFolderChanges.h"
#include "Platform/Testing/UnflushedChanges.h"
#include "Support/OtherCircumstances.h"
#include "Support/TemporaryFolder.h"
#include "Witness.h"

namespace tidyro::crash {
namespace {

using testing::TemporaryFolder;
using testing::UnflushedChanges;

/// How much of what was not flushed a crash takes.
enum class Lost : std::uint8_t { nothing, one, allFromOneOn };

struct Crash {
    std::size_t end = UnflushedChanges::never;
    Lost lost = Lost::nothing;
    std::size_t number = 0; ///< of the change
    bool isSlow = false;
    std::size_t flushLeftOut = UnflushedChanges::never;
};

struct Ended {
    std::size_t changes = 0;
    std::vector<std::size_t> flushes = {};
    std::size_t unflushed = 0;
    std::string lost = "nothing";
    std::vector<std::string> faults = {};
};

/// Carries everything out until the crash, and judges what it leaves. None when no crash leaves
/// that.
std::optional<Ended> interrupt(const Crash& crash) {
    const TemporaryFolder place;
    place.folder("aside");
    const Places places{.items = place / "top",
                        .data = place / ("top/" + std::string(dataBelowItems)),
                        .itemsOfFolder = 1};
    prepare(places);
    UnflushedChanges disk({.watched = places.data,
                           .aside = place / "aside",
                           .end = crash.end,
                           .flushLeftOut = crash.flushLeftOut});
    std::vector<Acknowledged> acknowledged;
    try {
        carryOut(places, {.isSlow = crash.isSlow, .changes = &disk.folders(), .gate = &disk.gate()},
                 [&](const Acknowledged& each) { acknowledged.push_back(each); });
    } catch (const Failure&) {
        // The process is dead.
    }
    Ended ended{
        .changes = disk.count(), .flushes = disk.flushes(), .unflushed = disk.unflushedCount()};
    if (crash.lost != Lost::nothing) ended.lost = disk.unflushed(crash.number);
    if (crash.lost == Lost::one && !disk.forget(crash.number)) return std::nullopt;
    if (crash.lost == Lost::allFromOneOn && !disk.forgetFrom(crash.number)) return std::nullopt;
    // No power is lost while it settles, so flushes need not wait for the machine's own disk.
    testing::ChangeSchedule undisturbed;
    testing::ScheduledFolderChanges changes(undisturbed,
                                            testing::ScheduledFolderChanges::ExclusiveRename::known,
                                            testing::Flushes::counted);
    testing::ScheduledChangeGate gate(undisturbed, testing::Flushes::counted);
    ended.faults = judge(places, acknowledged, [&] { settle(places, changes, gate); });
    return ended;
}

/// The first fault that a crash at one moment shows: with everything that was done until then,
/// without any one change that was not flushed, and without all of them or their later half.
std::optional<std::string> faultAt(Crash crash) {
    std::size_t unflushed = 0;
    const auto fault = [&]() -> std::optional<std::string> {
        const auto ended = interrupt(crash);
        if (crash.lost == Lost::nothing) unflushed = ended->unflushed;
        if (!ended || ended->faults.empty()) return std::nullopt;
        return "after " + std::to_string(crash.end) + " changes, without " + ended->lost +
               (crash.lost == Lost::allFromOneOn ? " and what came later: " : ": ") +
               ended->faults[0];
    };
    if (auto found = fault()) return found;
    crash.lost = Lost::one;
    for (crash.number = 0; crash.number < unflushed; ++crash.number) {
        if (auto found = fault()) return found;
    }
    crash.lost = Lost::allFromOneOn;
    for (const std::size_t number : {std::size_t{0}, unflushed / 2}) {
        crash.number = number;
        if (number >= unflushed) continue;
        if (auto found = fault()) return found;
    }
    return std::nullopt;
}

/// All moments take minutes; usually some are tried, others each time.
bool isThorough() {
    return std::getenv("TIDYRO_ALL_CRASHES") != nullptr; // NOLINT(concurrency-mt-unsafe)
}

TEST(CrashModel, LosesNothingWhateverTheDiskForgets) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    if (!mayBePlanned(TemporaryFolder().path())) {
        GTEST_SKIP() << "needs a temporary folder that is no part of the system";
    }
    for (const bool isSlow : {true, false}) {
        const auto whole = interrupt({.isSlow = isSlow});
        ASSERT_TRUE(whole->faults.empty()) << whole->faults[0];
        EXPECT_GT(whole->changes, 50U);
        const std::size_t step = isThorough() ? 1U : isSlow ? 9U : 27U;
        for (std::size_t end = 1 + std::random_device()() % step; end <= whole->changes;
             end += step) {
            const auto fault = faultAt({.end = end, .isSlow = isSlow});
            EXPECT_FALSE(fault) << *fault << (isSlow ? ", folder by folder" : "");
        }
    }
}

/// Counts the flushes without which the model shows a fault at one of the next moments. Usually a
/// few are enough: they prove that the model can show any.
TEST(CrashModel, ShowsFlushesThatAreLeftOut) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    if (!mayBePlanned(TemporaryFolder().path())) {
        GTEST_SKIP() << "needs a temporary folder that is no part of the system";
    }
    const auto whole = interrupt({.isSlow = true});
    std::size_t shown = 0;
    std::size_t tried = 0;
    std::string hidden;
    constexpr std::size_t enough = 2;
    for (std::size_t flush = 0; flush < whole->flushes.size(); flush += isThorough() ? 1U : 8U) {
        if (shown == enough && !isThorough()) break;
        bool isShown = false;
        for (std::size_t later = 0; later < 8 && !isShown; ++later) {
            const std::size_t end = std::max<std::size_t>(1, whole->flushes[flush] + later);
            isShown = faultAt({.end = end, .isSlow = true, .flushLeftOut = flush}).has_value();
        }
        ++tried;
        shown += isShown ? 1 : 0;
        if (!isShown)
            hidden += std::to_string(flush) + "@" + std::to_string(whole->flushes[flush]) + " ";
    }
    EXPECT_GE(shown, enough) << "of " << tried;
    if (isThorough()) std::printf("%zu of %zu, but not %s\n", shown, tried, hidden.c_str());
}

} // namespace
} // namespace tidyro::crash

#include <algorithm>
#include <cstdlib>
#include <map>
#include <optional>
#include <random>
#include <regex>
#include <set>
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
    bool isTellingPaths = false;
    /// The cleanups end after so many changes and flushes, of which none is lost. What crashes is
    /// the settling then. Never: the cleanups themselves.
    std::size_t settlingAfter = UnflushedChanges::never;
};

struct Ended {
    std::size_t changes = 0;
    std::vector<UnflushedChanges::Flush> flushes = {};
    std::size_t unflushed = 0;
    std::vector<std::size_t> leftBehind = {};
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
                           .otherDisk = places.data + "/Harborline",
                           .end = crash.end,
                           .flushLeftOut = crash.flushLeftOut,
                           .isTellingPaths = crash.isTellingPaths});
    std::vector<Acknowledged> acknowledged;
    const auto carryOutOn = [&](UnflushedChanges& on) {
        try {
            carryOut(places, {.isSlow = crash.isSlow, .changes = &on.folders(), .gate = &on.gate()},
                     [&](const Acknowledged& each) { acknowledged.push_back(each); });
        } catch (const Failure&) {
            // The process is dead.
        }
    };
    if (crash.settlingAfter == UnflushedChanges::never) {
        carryOutOn(disk);
    } else {
        place.folder("aside before");
        UnflushedChanges before(
            {.watched = places.data, .aside = place / "aside before", .end = crash.settlingAfter});
        carryOutOn(before);
        // What was recorded and not done yet is put back, and its record corrected.
        std::erase_if(acknowledged, [](const Acknowledged& each) {
            return each.what == Acknowledged::What::recorded;
        });
        try {
            settle(places, disk.folders(), disk.gate());
            for (const Cleanup cleanup : allCleanups) {
                const auto isTold = [&](Acknowledged::What what) {
                    return std::ranges::any_of(acknowledged, [&](const Acknowledged& each) {
                        return each.what == what && each.cleanup == cleanup;
                    });
                };
                using What = Acknowledged::What;
                if (!isTold(What::begun) || isTold(What::closed)) continue;
                acknowledged.push_back({.what = What::closed, .cleanup = cleanup});
            }
        } catch (const Failure&) {
            // Dead as well.
        }
    }
    Ended ended{.changes = disk.count(),
                .flushes = disk.flushes(),
                .unflushed = disk.unflushedCount(),
                .leftBehind = disk.leftBehind()};
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
        const std::size_t step = isThorough() ? 1U : isSlow ? 13U : 39U;
        for (std::size_t end = 1 + std::random_device()() % step; end <= whole->changes;
             end += step) {
            const auto fault = faultAt({.end = end, .isSlow = isSlow});
            EXPECT_FALSE(fault) << *fault << (isSlow ? ", folder by folder" : "");
        }
    }
}

/// The settling of a cleanup that was cut short may be cut short as well, on the same disk.
TEST(CrashModel, SettlingLosesNothingWhateverTheDiskForgets) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    if (!mayBePlanned(TemporaryFolder().path())) {
        GTEST_SKIP() << "needs a temporary folder that is no part of the system";
    }
    const std::size_t last = interrupt({.isSlow = true})->changes;
    const std::size_t step = isThorough() ? 5U : 60U;
    for (std::size_t after = 1 + std::random_device()() % step; after <= last; after += step) {
        Crash crash{.isSlow = true, .settlingAfter = after};
        const auto whole = interrupt(crash);
        ASSERT_TRUE(whole->faults.empty()) << after << ": " << whole->faults[0];
        const std::size_t pace = isThorough() ? 3U : 12U;
        for (crash.end = 1 + std::random_device()() % pace; crash.end <= whole->changes;
             crash.end += pace) {
            const auto fault = faultAt(crash);
            EXPECT_FALSE(fault) << "settled after " << after << ", " << *fault;
        }
    }
}

/// A fault that a crash shows when one flush was left out; none when no crash does. Only what that
/// flush would have confirmed is lost: the rest is asked above.
std::optional<std::string> faultWithout(std::size_t number, Crash crash, const Ended& whole) {
    crash.isTellingPaths = false;
    crash.flushLeftOut = number;
    for (crash.end = whole.flushes[number].at; crash.end <= whole.changes; ++crash.end) {
        crash.lost = Lost::nothing;
        const auto kept = interrupt(crash);
        if (!kept->faults.empty()) return kept->faults[0];
        if (kept->leftBehind.empty()) return std::nullopt;
        for (const Lost lost : {Lost::one, Lost::allFromOneOn}) {
            crash.lost = lost;
            for (const std::size_t change : kept->leftBehind) {
                crash.number = change;
                const auto ended = interrupt(crash);
                if (ended && !ended->faults.empty()) return ended->faults[0];
            }
        }
    }
    return std::nullopt;
}

/// What each flush of a run is of, below the folder of the data or the top, with its number among
/// those of one name.
std::vector<std::string> namesOf(const std::vector<UnflushedChanges::Flush>& flushes) {
    const std::regex uuid("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}");
    const std::regex top("/top/(" + std::string(dataBelowItems) + "/?)?");
    std::map<std::string, int> counts;
    std::vector<std::string> names;
    for (const auto& flush : flushes) {
        const std::string name =
            std::regex_replace(std::regex_replace(flush.what, uuid, "*"), top, "");
        names.push_back(name + " " + std::to_string(++counts[name]));
    }
    return names;
}

/// The flushes that no crash misses, and why they stay. docs/file-formats.md tells them as well.
const std::set<std::string> needlessFlushes{
    // Of the name of the folder for keys. In a first cleanup the folder of the intents is made in
    // the same folder, and flushed, before anything is touched; in a later one it is there already.
    "folder Harborline 1",
};

/// Each flush is left out once. The table is exact: a flush that is needed nowhere else shows here,
/// and so does one that turns out to be missed after all.
TEST(CrashModel, MissesEachFlushThatIsLeftOut) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    if (!mayBePlanned(TemporaryFolder().path())) {
        GTEST_SKIP() << "needs a temporary folder that is no part of the system";
    }
    for (const bool isSlow : {true, false}) {
        const Crash crash{.isSlow = isSlow, .isTellingPaths = true};
        const auto whole = interrupt(crash);
        ASSERT_TRUE(whole->faults.empty()) << whole->faults[0];
        const auto names = namesOf(whole->flushes);
        EXPECT_GT(names.size(), 30U);
        const std::size_t step = isThorough() ? 1U : 32U;
        const std::size_t first = std::random_device()() % step;
        for (std::size_t number = 0; number < names.size(); ++number) {
            EXPECT_FALSE(whole->flushes[number].confirmed.empty())
                << names[number] << " is a repeat";
            if (number % step != first) continue;
            const auto fault = faultWithout(number, crash, *whole);
            EXPECT_NE(fault.has_value(), needlessFlushes.contains(names[number]))
                << names[number] << (isSlow ? ", folder by folder: " : ": ")
                << fault.value_or("nothing misses it");
        }
    }
}

} // namespace
} // namespace tidyro::crash

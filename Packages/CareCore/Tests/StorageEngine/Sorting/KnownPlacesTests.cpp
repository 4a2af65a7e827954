#include "StorageEngine/Sorting/KnownPlaces.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Base/PathText.h"
#include "Base/StableHash.h"

namespace tidyro {
namespace {

const FileURL& homeFolder() {
    static const FileURL folder = FileURL::folder("/home/ada");
    return folder;
}

std::string idAt(std::string_view belowHome) {
    const KnownPlace* place = KnownPlaces::place(path::joined(homeFolder().path(), belowHome),
                                                 homeFolder(), OperatingSystem::linux_);
    return place == nullptr ? "" : std::string(place->id);
}

TEST(KnownPlaces, ListsEachPlaceOnce) {
    std::set<std::string_view> ids;
    std::set<std::string_view> patterns;
    std::map<DiskGroup, int> inGroup;
    std::map<double, int> quietFor;
    for (const KnownPlace& place : KnownPlaces::all(OperatingSystem::macOS)) {
        ids.insert(place.id);
        patterns.insert(place.pattern);
        ++inGroup[place.group];
        ++quietFor[place.quietPeriod];
        EXPECT_EQ(KnownPlaces::place(place.id, OperatingSystem::macOS), &place);
    }
    EXPECT_EQ(ids.size(), 34U);
    EXPECT_EQ(patterns.size(), 34U);
    EXPECT_EQ(inGroup, (std::map<DiskGroup, int>{{DiskGroup::appleDeveloper, 6},
                                                 {DiskGroup::packageCaches, 24},
                                                 {DiskGroup::applicationCaches, 2},
                                                 {DiskGroup::sandboxedCaches, 1},
                                                 {DiskGroup::logs, 1}}));
    EXPECT_EQ(quietFor, (std::map<double, int>{{600, 28}, {3'600, 2}, {86'400, 4}}));
    EXPECT_EQ(KnownPlaces::place("Caches"), nullptr);
    EXPECT_EQ(KnownPlaces::place("yay-builds", OperatingSystem::macOS), nullptr);
}

std::uint64_t rowsHash(std::span<const KnownPlace> places) {
    StableHashState state;
    state.addNumber(places.size());
    for (const KnownPlace& place : places) {
        const bool isWhole = place.unit == KnownPlace::Unit::wholePlace;
        state.addText(std::string(place.id) + "|" + std::string(place.pattern) +
                      (isWhole ? "|wholePlace|" : "|eachChild|") +
                      std::to_string(static_cast<int>(place.group)) + "|" +
                      std::to_string(std::lround(place.quietPeriod)));
    }
    return state.value();
}

TEST(KnownPlaces, AreThePublishedOnes) {
    const auto all = KnownPlaces::all(OperatingSystem::linux_);
    EXPECT_EQ(rowsHash(all.first(34)), 0x8b56'4cc3'2ac6'b787);
    EXPECT_EQ(rowsHash(all.subspan(34)), 0x9e84'503a'3f41'3e7d);
    const KnownPlace* caches = KnownPlaces::place("linux-caches", OperatingSystem::linux_);
    ASSERT_NE(caches, nullptr);
    EXPECT_EQ(
        std::set(caches->excludedChildren.begin(), caches->excludedChildren.end()),
        (std::set<std::string_view>{"uv", "huggingface", "pre-commit", "ccache", "rclone", "deno",
                                    "evolution", "kioexec", "obexd", "zsh", "bash", "lm-studio"}));
}

// No place hides another: each takes its own items.
TEST(KnownPlaces, TakeTheirOwnItems) {
    for (const KnownPlace& place : KnownPlaces::all(OperatingSystem::linux_)) {
        std::string own(place.pattern);
        if (const auto star = own.find('*'); star != std::string::npos) own.replace(star, 1, "any");
        const bool isWhole = place.unit == KnownPlace::Unit::wholePlace;
        const std::string around = own.starts_with("Library/Caches/") ? "caches"
                                   : own.starts_with(".cache/")       ? "linux-caches"
                                                                      : "";
        EXPECT_EQ(idAt(own), isWhole ? place.id : around);
        EXPECT_EQ(idAt(own + "/some item/in it"), place.id);
        EXPECT_EQ(idAt(own + "/.DS_Store"), isWhole ? place.id : around);
        EXPECT_EQ(idAt(own + "2"), around);
        for (const std::string_view child : place.excludedChildren) {
            EXPECT_EQ(idAt(path::joined(own, child)), "") << child;
            EXPECT_EQ(idAt(path::joined(path::joined(own, child), "x")), "") << child;
        }
    }
}

TEST(KnownPlaces, TheMostSpecificTakesAPath) {
    const std::vector<std::pair<std::string_view, std::vector<std::string_view>>> taken{
        {"yarn-cache", {"Library/Caches/Yarn/v6"}},
        {"caches", {"Library/Caches/yarn"}}, // names are as they are written
        {"sandboxed-caches", {"Library/Containers/a/Data/Library/Caches/x/y"}},
        {"pip-cache-dot", {"../ada/./.cache/pip/"}},
        {"",
         {"", "x/Library/Caches/y", "../adams/.cache/pip", "Library/Caches/.localized",
          "Library/Caches/CloudKit", "Library/Containers/a/b/Data/Library/Caches/x",
          "Library/Containers/Data/Library/Caches/x",
          "Library/Developer/Xcode/DerivedData/CompilationCache.noindex",
          "Library/Developer/CoreSimulator/Devices/device_set.plist"}}};
    for (const auto& [id, paths] : taken) {
        for (const std::string_view path : paths) EXPECT_EQ(idAt(path), id) << path;
    }
    EXPECT_EQ(KnownPlaces::place("/.cache/torch/hub", FileURL())->id, "torch-cache");

    const auto sorted = KnownPlaces::mostSpecificFirst();
    EXPECT_EQ(std::set(sorted.begin(), sorted.end()).size(), KnownPlaces::all().size());
    EXPECT_TRUE(std::ranges::is_sorted(sorted, std::ranges::greater{}, [](const KnownPlace* place) {
        return path::components(place->pattern).size();
    }));
}

} // namespace
} // namespace tidyro

#include "StorageEngine/Sorting/KnownPlaces.h"

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Base/PathText.h"

namespace tidyro {
namespace {

const FileURL& homeFolder() {
    static const FileURL folder = FileURL::folder("/home/ada");
    return folder;
}

std::string idAt(std::string_view belowHome) {
    const KnownPlace* place =
        KnownPlaces::place(path::joined(homeFolder().path(), belowHome), homeFolder());
    return place == nullptr ? "" : std::string(place->id);
}

TEST(KnownPlaces, ListsEachPlaceOnce) {
    std::set<std::string_view> ids;
    std::set<std::string_view> patterns;
    std::map<DiskGroup, int> inGroup;
    std::map<double, int> quietFor;
    for (const KnownPlace& place : KnownPlaces::all()) {
        ids.insert(place.id);
        patterns.insert(place.pattern);
        ++inGroup[place.group];
        ++quietFor[place.quietPeriod];
        EXPECT_EQ(KnownPlaces::place(place.id), &place);
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
}

// No place hides another: each takes its own items.
TEST(KnownPlaces, TakeTheirOwnItems) {
    for (const KnownPlace& place : KnownPlaces::all()) {
        std::string own(place.pattern);
        if (const auto star = own.find('*'); star != std::string::npos) own.replace(star, 1, "any");
        const bool isWhole = place.unit == KnownPlace::Unit::wholePlace;
        EXPECT_EQ(idAt(own), isWhole ? place.id : "");
        EXPECT_EQ(idAt(own + "/some item/in it"), place.id);
        EXPECT_EQ(idAt(own + "/.DS_Store"), isWhole ? place.id : "");
        EXPECT_EQ(idAt(own + "2"), own.starts_with("Library/Caches/") ? "caches" : "");
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

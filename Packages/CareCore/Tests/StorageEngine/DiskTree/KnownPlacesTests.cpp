#include "StorageEngine/DiskTree/KnownPlaces.h"

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Base/PathText.h"

namespace tidyro {
namespace {

const FileURL& home() {
    static const FileURL folder = FileURL::folder("/home/ada");
    return folder;
}

std::string idAt(std::string_view belowHome) {
    const KnownPlace* place = KnownPlaces::place(path::joined(home().path(), belowHome), home());
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
    struct Case {
        std::string_view belowHome, id;
    };
    for (const auto& [belowHome, id] :
         std::vector<Case>{{"Library/Caches/Yarn/v6", "yarn-cache"},
                           {"Library/Caches/yarn", "caches"}, // names are as they are written
                           {"Library/Caches/CloudKit", ""},
                           {"Library/Containers/a/Data/Library/Caches/x/y", "sandboxed-caches"},
                           {"Library/Containers/*/Data/Library/Caches/x", "sandboxed-caches"},
                           {"Library/Containers/a/b/Data/Library/Caches/x", ""},
                           {"Library/Containers/Data/Library/Caches/x", ""},
                           {"Library/Developer/Xcode/DerivedData/CompilationCache.noindex", ""},
                           {"Library/Developer/CoreSimulator/Devices/device_set.plist", ""},
                           {"Library/Caches/.localized", ""},
                           {"x/Library/Caches/y", ""},
                           {"../ada/./.cache/pip/", "pip-cache-dot"},
                           {"../adams/.cache/pip", ""},
                           {"", ""}}) {
        EXPECT_EQ(idAt(belowHome), id) << belowHome;
    }
    EXPECT_EQ(KnownPlaces::place("/.cache/torch/hub", FileURL())->id, "torch-cache");
}

TEST(KnownPlaces, StandMostSpecificFirst) {
    const auto sorted = KnownPlaces::mostSpecificFirst();
    std::vector<const KnownPlace*> every;
    for (const KnownPlace& place : KnownPlaces::all()) every.push_back(&place);
    EXPECT_THAT(sorted, testing::UnorderedElementsAreArray(every));
    for (std::size_t i = 1; i < sorted.size(); ++i) {
        const auto before = path::components(sorted[i - 1]->pattern).size();
        const auto after = path::components(sorted[i]->pattern).size();
        EXPECT_TRUE(before > after || (before == after && sorted[i - 1] < sorted[i]))
            << sorted[i]->id;
    }
}

} // namespace
} // namespace tidyro

#include "Rooms/Find/Services/Index/FindPlaces.h"

#include <string_view>
#include <utility>

#include <gtest/gtest.h>

#include "Base/PathText.h"
#include "Rooms/Find/Services/Index/FindTrees.h"

namespace tidyro {
namespace {

FindPlace placeOf(std::string_view path) {
    auto place = FindPlace::top;
    for (const std::string_view component : path::components(path)) {
        place = findPlaceInside(place, component, component.ends_with(".app"));
    }
    return place;
}

TEST(FindPlaces, RatesFoldersByTheirNamesAndThoseAbove) {
    using enum FindPlace;
    const std::pair<std::string_view, FindPlace> table[] = {
        {"/", top},
        {"/home", homes},
        {"/users/ada", home},
        {"/root", home},
        {"/home/ada/documents/docs of mine", own},
        {"/home/ada/docs", own}, // documents of a person
        {"/home/ada/projects/x/docs", aside},
        {"/home/ada/projects/x/node_modules", store},
        {"/home/ada/projects/x/node_modules/y/bin", noise},
        {"/home/ada/projects/x/build/src", noise},
        {"/home/ada/projects/x/.git", noise},
        {"/home/ada/.config/app", hidden},
        {"/home/ada/.local/bin", programs},
        {"/home/ada/.cache/bin", noise},
        {"/home/ada/library", aside},
        {"/usr", plain},
        {"/usr/bin", programs},
        {"/opt/tool/sbin", programs},
        {"/usr/lib/x", library},
        {"/usr/include/c++", aside},
        {"/usr/share/doc/x", aside},
        {"/usr/src", own},
        {"/usr/src/linux-headers-6.1", aside},
        {"/usr/lib/python3/dist-packages", store},
        {"/etc/x", plain},
        {"/var/tmp", noise},
        {"/proc/1", noise},
        {"/srv/proc", plain}, // only at the top
        {"/applications/mail.app/contents", aside},
    };
    for (const auto& [path, place] : table) EXPECT_EQ(placeOf(path), place) << path;
}

TEST(FindPlaces, NeverTakesARootForNoise) {
    EXPECT_EQ(findPlaceOfRoot("/"), FindPlace::top);
    EXPECT_EQ(findPlaceOfRoot("/home/Ada"), FindPlace::home);
    EXPECT_EQ(findPlaceOfRoot("/home/ada/work"), FindPlace::own);
    EXPECT_EQ(findPlaceOfRoot("/tmp/made"), FindPlace::plain);
    EXPECT_EQ(findPlaceOfRoot("/home/ada/.config"), FindPlace::plain);
}

TEST(FindPlaces, AreRatedAsEntriesCome) {
    FindIndexStorage storage = testing::indexOf({{"bin/"}, {"bin/x"}, {"build/"}, {"build/y"}});
    storage.extendPlaces();
    storage.appendLooseChildren(*storage.lookup("/home/ada/bin"),
                                testing::listing({testing::file("later")}));
    storage.extendPlaces();
    const auto cost = [&storage](std::string_view path) {
        return storage.placeCost(storage.lookup(path).value_or(0));
    };
    EXPECT_EQ(cost("/home/ada/bin/later"), findPlaceCost(FindPlace::programs));
    EXPECT_EQ(cost("/home/ada/build"), findPlaceCost(FindPlace::home));
    EXPECT_EQ(cost("/home/ada/build/y"), maxFindPlaceCost);
}

} // namespace
} // namespace tidyro

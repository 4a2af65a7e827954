#include "Rooms/Find/Services/Listing/FindHitListing.h"

#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Rooms/Find/Services/Index/FindTrees.h"

namespace tidyro {
namespace {

using ::testing::ElementsAre;

TEST(FindHitListing, SortsAndWritesHits) {
    FindIndexStorage index = testing::indexOf({{.path = "b.txt", .size = 7, .mtime = 1'000},
                                               {.path = "A.TXT", .size = 9, .mtime = 3'000},
                                               {.path = "x/", .size = 0, .mtime = 2'000},
                                               {.path = "x/a.txt", .size = 8, .mtime = 3'000}});
    // In the order of the items: 1 b.txt, 2 A.TXT, 3 x, 4 x/a.txt
    const auto sorted = [&](FindHitOrder order) {
        std::vector<FindIndexStorage::Entry> hits{4, 1, 3, 2};
        FindHitListing::sort(index, hits, order);
        return hits;
    };
    EXPECT_THAT(sorted(FindHitOrder::best), ElementsAre(4, 1, 3, 2));
    EXPECT_THAT(sorted(FindHitOrder::name), ElementsAre(2, 4, 1, 3));
    EXPECT_THAT(sorted(FindHitOrder::path), ElementsAre(2, 1, 3, 4));
    EXPECT_THAT(sorted(FindHitOrder::size), ElementsAre(2, 3, 4, 1)) << "x holds 8 bytes";
    EXPECT_THAT(sorted(FindHitOrder::date), ElementsAre(2, 4, 3, 1));

    using enum FindHitForm;
    EXPECT_EQ(FindHitListing::text(index, 4, line), "/home/ada/x/a.txt\n");
    EXPECT_EQ(FindHitListing::text(index, 4, zeroEnded), std::string("/home/ada/x/a.txt") + '\0');
    EXPECT_EQ(FindHitListing::text(index, 4, json),
              R"({"path":"/home/ada/x/a.txt","kind":"document","size":8,)"
              R"("date":"1970-01-01T00:50:00Z"})"
              "\n");
    const auto odd = index.appendLooseChildren(
        0, testing::listing({{.name = "\xFF\n\"", .type = FindObjectType::symlink, .size = 1}}));
    EXPECT_EQ(FindHitListing::text(index, odd, json),
              "{\"path\":\"/home/ada/\xEF\xBF\xBD\\n\\\"\",\"pathBytes\":\"L2hvbWUvYWRhL/8KIg==\","
              "\"kind\":\"link\",\"size\":1,\"date\":\"1970-01-01T00:00:00Z\"}\n");
}

} // namespace
} // namespace tidyro

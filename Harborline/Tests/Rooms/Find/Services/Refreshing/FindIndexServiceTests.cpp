#include "Rooms/Find/Services/Refreshing/FindIndexService.h"

#include <filesystem>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Rooms/Find/Services/Refreshing/RefreshedTrees.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using testing::TemporaryFolder;

class FindIndexServiceTest : public ::testing::Test {
  protected:
    FindIndexService service(const std::string& root) {
        return FindIndexService(
            {.rootPath = root,
             .file = FileURL::file(place / "kept/name-index-v1.bin"),
             .refresh = {.settledAfter = std::chrono::nanoseconds(testing::settling).count()}});
    }
    static std::vector<std::string> paths(FindIndexService& service, std::string_view query) {
        FindSearchEngine engine;
        const auto answer =
            service.search(engine, query, {.in = service.index(), .now = Timestamp::now()});
        std::vector<std::string> paths;
        for (const auto hit : answer.found.hits) {
            paths.push_back(service.index().storage()->path(hit));
        }
        EXPECT_EQ(answer.found.matchCount, paths.size());
        return paths;
    }

    const TemporaryFolder place;
};

TEST_F(FindIndexServiceTest, OpensOnlyWhatIsOfUse) {
    place.file("tree/a");
    place.file("other/a");
    FindIndexService first = service(place / "tree");
    EXPECT_EQ(first.open(Timestamp::now()).error(), "");
    EXPECT_FALSE(first.refresh()) << "nothing is open";
    ASSERT_TRUE(first.build());
    ASSERT_TRUE(first.save(Timestamp::now()));
    EXPECT_THAT(service(place / "other").open(Timestamp::now()).error(),
                HasSubstr("is the index of " + place / "tree"));
    EXPECT_THAT(service(place / "tree").open(Timestamp::now().adding(-60)).error(),
                HasSubstr("was made in the future"));
    FindIndexService again = service(place / "tree");
    ASSERT_TRUE(again.open(Timestamp::now()));
    EXPECT_TRUE(again.refresh());
    std::filesystem::rename(place / "tree", place / "away");
    place.file("tree/b");
    EXPECT_EQ(again.refresh().error(), FindIndexRefresh::Error(FindIndexRefresh::RootChanged{}));
}

TEST_F(FindIndexServiceTest, SavesWhenMuchHasChangedWithoutWhatWasDeleted) {
    for (int i = 0; i < 300; ++i) place.file(fmt::format("tree/{}/file", i));
    FindIndexService kept = service(place / "tree");
    ASSERT_TRUE(kept.build());
    testing::waitUntilSettled();
    EXPECT_TRUE(kept.refresh().value().isWorthSaving) << "the stamps settled";
    EXPECT_FALSE(kept.refresh().value().isWorthSaving);
    place.file("tree/7/new");
    EXPECT_FALSE(kept.refresh().value().isWorthSaving);
    for (int i = 0; i < 50; ++i) {
        std::filesystem::remove_all(fmt::format("{}/{}", place / "tree", i));
    }
    EXPECT_TRUE(kept.refresh().value().isWorthSaving);
    ASSERT_TRUE(kept.save(Timestamp::now()));
    FindIndexService again = service(place / "tree");
    ASSERT_TRUE(again.open(Timestamp::now()));
    EXPECT_EQ(again.index().storage()->deletedCount, 0);
    testing::waitUntilSettled();
    EXPECT_LE(again.refresh().value().read, 2) << "the stamps were kept";
    EXPECT_EQ(testing::contentsOf(*again.index().storage()),
              testing::contentsOf(testing::builtIndex(place / "tree")));
}

TEST_F(FindIndexServiceTest, AnswersWithWhatIsStillThereAndAsItIsNow) {
    place.file("tree/report one", "1");
    place.file("tree/report two", "1");
    place.file("tree/small", "1");
    place.file("tree/large", std::string(5'000, 'x'));
    FindIndexService kept = service(place / "tree");
    ASSERT_TRUE(kept.build());
    std::filesystem::remove(place / "tree/report two");
    EXPECT_THAT(paths(kept, "report"), ElementsAre(place / "tree/report one"));
    EXPECT_FALSE(kept.index().storage()->lookup(place / "tree/report two"));
    place.file("tree/small", std::string(9'000, 'x'));
    place.file("tree/large", "1");
    EXPECT_THAT(paths(kept, "size:>4kb -kind:folder"), ElementsAre(place / "tree/small"));
    EXPECT_THAT(paths(kept, "-size:>4kb l !kind:folder"), ElementsAre(place / "tree/large"));
    place.times("tree/large", 1, 1'000'000'000);
    EXPECT_THAT(paths(kept, "dm:2001 | exact:nothing"), ElementsAre(place / "tree/large"));
}

TEST_F(FindIndexServiceTest, OfTenAtOnceEachIsRightAndOnePairStays) {
    for (int i = 0; i < 100; ++i) place.file(fmt::format("tree/{}/file", i));
    ASSERT_TRUE(service(place / "tree").build());
    FindIndexService first = service(place / "tree");
    ASSERT_TRUE(first.build());
    ASSERT_TRUE(first.save(Timestamp::now()));
    place.file("tree/new");
    std::vector<std::jthread> threads;
    for (int i = 0; i < 10; ++i) {
        threads.emplace_back([&] {
            FindIndexService one = service(place / "tree");
            EXPECT_TRUE(one.open(Timestamp::now()));
            EXPECT_TRUE(one.refresh());
            EXPECT_TRUE(one.index().storage()->lookup(place / "tree/new"));
            EXPECT_TRUE(one.save(Timestamp::now()));
        });
    }
    threads.clear();
    EXPECT_TRUE(service(place / "tree").open(Timestamp::now()));
}

} // namespace
} // namespace tidyro

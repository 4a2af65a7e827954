#include "Rooms/Find/Services/Refreshing/FindIndexRefresh.h"

#include <filesystem>
#include <stop_token>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Rooms/Find/Services/Refreshing/FindEntryLooks.h"
#include "Rooms/Find/Services/Refreshing/RefreshedTrees.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

using testing::builtIndex;
using testing::contentsOf;
using testing::refreshed;
using testing::TemporaryFolder;
using testing::waitUntilSettled;

/// An index whose stamps are settled.
FindIndexStorage settledIndex(const std::string& root) {
    FindIndexStorage index = builtIndex(root);
    waitUntilSettled();
    refreshed(index);
    return index;
}

TEST(FindIndexRefresh, ReadsOnlyWhatChangedAndKnowsWhatWasMoved) {
    const TemporaryFolder place;
    for (int i = 0; i < 20; ++i) place.file(fmt::format("a/{}/in/it/file", i), "12345");
    place.file("b/file");
    FindIndexStorage index = settledIndex(place.path());
    auto counts = refreshed(index);
    EXPECT_EQ(counts.lookedAt, 63);
    EXPECT_EQ(counts.read, 0);
    EXPECT_TRUE(testing::quickRefresh().look(index)->folders.empty());

    place.file("a/7/in/another", "1");
    place.times("a/7/in", 1'000, 1'000); // as unpacking leaves it
    counts = refreshed(index);
    EXPECT_EQ(counts.read, 1);
    EXPECT_TRUE(index.lookup(place / "a/7/in/another"));
    EXPECT_EQ(contentsOf(index), contentsOf(builtIndex(place.path())));

    std::filesystem::rename(place / "a", place / "moved");
    counts = refreshed(index);
    EXPECT_LE(counts.read, 5) << "the root, what was moved, and what is not settled";
    EXPECT_GE(counts.taken, 58);
    EXPECT_EQ(contentsOf(index), contentsOf(builtIndex(place.path())));
}

TEST(FindIndexRefresh, RefusesAnotherRoot) {
    const TemporaryFolder place;
    place.file("root/a");
    FindIndexStorage index = settledIndex(place / "root");
    using Error = FindIndexRefresh::Error;
    std::filesystem::rename(place / "root", place / "before");
    EXPECT_EQ(testing::quickRefresh().look(index).error(),
              Error(FindIndexRefresh::Unreadable{{ENOENT}}));
    place.file("root/a");
    EXPECT_EQ(testing::quickRefresh().look(index).error(), Error(FindIndexRefresh::RootChanged{}));
    index.folderStamps = {};
    EXPECT_EQ(testing::quickRefresh().look(index).error(), Error(FindIndexRefresh::RootChanged{}));
}

TEST(FindIndexRefresh, FollowsWhatIsClosedAndOpenedAgain) {
    const std::string told = testing::asOrdinaryUser([]() -> std::string {
        const TemporaryFolder place;
        place.file("closed/inside/file", "123");
        place.file("open/file");
        FindIndexStorage index = settledIndex(place.path());
        for (const unsigned mode : {0U, 0755U, 0400U, 0700U}) {
            place.permissions("closed", mode);
            refreshed(index);
            const FindIndexStorage fresh = builtIndex(place.path());
            if (contentsOf(index) != contentsOf(fresh)) return fmt::format("{:o} differs", mode);
            if (index.deniedCount != fresh.deniedCount) return fmt::format("{:o} count", mode);
        }
        return "";
    });
    EXPECT_EQ(told, "");
}

TEST(FindIndexRefresh, NeverEntersWhatIsMountedMeanwhile) {
    const TemporaryFolder place;
    place.file("tree/mount/own", "1");
    place.file("tree/loop/own", "1");
    place.file("other/foreign", "12");
    const auto told = testing::inMountNamespace([&]() -> std::string {
        FindIndexStorage index = settledIndex(place / "tree");
        if (!testing::bindMount(place / "other", place / "tree/mount")) return "no mount";
        if (!testing::bindMount(place / "tree", place / "tree/loop")) return "no mount";
        refreshed(index);
        if (contentsOf(index) != contentsOf(builtIndex(place / "tree"))) return "mounted";
        if (index.lookup(place / "tree/mount/foreign")) return "entered";
        if (!testing::runQuietly("umount " + place / "tree/mount")) return "no mount";
        refreshed(index);
        if (!index.lookup(place / "tree/mount/own")) return "not seen again";
        return contentsOf(index) == contentsOf(builtIndex(place / "tree")) ? "" : "unmounted";
    });
    if (!told || *told == "no mount") GTEST_SKIP() << "mount namespaces need root";
    EXPECT_EQ(*told, "");
}

TEST(FindIndexRefresh, ReadsSubvolumesAndLeavesOutWhatItIsToldTo) {
    const auto image = testing::MountedImage::make("btrfs");
    if (image == nullptr) GTEST_SKIP() << "no btrfs here";
    const TemporaryFolder& place = image->folder();
    place.file("a/file");
    FindIndexStorage index = settledIndex(place.path());
    if (!testing::runQuietly("btrfs subvolume create '" + place / "a/sub" + "'")) {
        GTEST_SKIP() << "no tool for btrfs here";
    }
    place.file("a/sub/inside");
    refreshed(index);
    EXPECT_TRUE(index.lookup(place / "a/sub/inside"));
    place.file("a/sub/later");
    refreshed(index);
    EXPECT_EQ(contentsOf(index), contentsOf(builtIndex(place.path())));
}

TEST(FindIndexRefresh, LeavesOutWhatItIsToldTo) {
    const TemporaryFolder place;
    place.file("kept/file");
    place.file("skipped/file");
    FindIndexStorage index = settledIndex(place.path());
    const std::set<std::string> skipping{place / "skipped"};
    refreshed(index, testing::quickRefresh(skipping));
    EXPECT_EQ(contentsOf(index), contentsOf(builtIndex(place.path(), skipping)));
}

TEST(FindIndexRefresh, ReportsAndEndsWhenItIsCancelled) {
    const TemporaryFolder place;
    for (int i = 0; i < 50; ++i) place.file(fmt::format("{}/in/file", i));
    const FindIndexStorage index = builtIndex(place.path());
    const FindIndexRefresh refresh({.progressInterval = 0});
    std::stop_source stop;
    std::int64_t last = 0;
    const auto changes = refresh.look(
        index,
        [&](const FindIndexRefresh::Progress& progress) {
            EXPECT_GE(progress.lookedAt, last);
            last = progress.lookedAt;
            stop.request_stop();
        },
        stop.get_token());
    ASSERT_FALSE(changes);
    EXPECT_EQ(changes.error(), FindIndexRefresh::Error(CancellationError{}));
    EXPECT_GT(last, 0);
}

TEST(FindEntryLooks, TellsWhatGrewAndWhatIsGone) {
    const TemporaryFolder place;
    for (int i = 0; i < 1'100; ++i) place.file(fmt::format("folder/{}", i), "1");
    FindIndexStorage index = builtIndex(place.path());
    std::vector<FindIndexStorage::Entry> all(index.count() - 1);
    for (std::size_t i = 0; i < all.size(); ++i) all[i] = static_cast<std::uint32_t>(i + 1);
    EXPECT_TRUE(FindEntryLooks::look(index, all).empty());
    place.file("folder/7", "12345");
    place.times("folder/8", 5, 1'000);
    std::filesystem::remove(place / "folder/9");
    std::filesystem::remove(place / "folder/10");
    place.folder("folder/10");
    place.times("folder", 5, index.mtime[1]);
    const auto seen = FindEntryLooks::look(index, all);
    EXPECT_EQ(seen.size(), 4U);
    FindEntryLooks::apply(seen, index);
    EXPECT_EQ(index.size(*index.lookup(place / "folder/7")), 5U);
    EXPECT_EQ(index.mtime[*index.lookup(place / "folder/8")], 1'000U);
    EXPECT_FALSE(index.lookup(place / "folder/9"));
    EXPECT_FALSE(index.lookup(place / "folder/10"));
    EXPECT_EQ(index.size(0), 1'102U);
}

} // namespace
} // namespace tidyro

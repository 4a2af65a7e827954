#include "Rooms/Find/Services/Index/FindIndex.h"

#include <thread>

#include <gtest/gtest.h>

#include "Rooms/Find/Services/Index/FindTrees.h"

namespace tidyro {
namespace {

using testing::file;
using testing::folder;
using testing::listing;

FindIndexStorage sample() {
    FindIndexStorage storage("/");
    storage.appendRoot("/", 0);
    storage.appendBlock(0, listing({folder("usr"), folder(".h"), folder("M.app"), folder("d")}));
    for (const std::uint32_t at : {1U, 2U, 3U, 4U}) {
        storage.appendBlock(at, listing({folder("sub")}));
        storage.appendBlock(storage.count() - 1, listing({file("f")}));
    }
    storage.markDeleted(10); // 5 usr/sub, 6 its f, 7 .h/sub, 8 its f, 9 M.app/sub, 10 its f
    storage.markDeleted(11); // d/sub, 12 its f
    return storage;
}

std::vector<unsigned> taking(const FindIndex& index, FindScope scope) {
    const auto mask = index.mask(index.storage(), scope);
    std::vector<unsigned> found;
    for (std::uint32_t i = 0; i < index.storage()->count(); ++i) {
        if (mask->has(i)) found.push_back(i);
    }
    return found;
}

TEST(FindIndex, MasksWhatAScopeLeavesOut) {
    FindIndex index;
    EXPECT_EQ(index.storage(), nullptr);
    EXPECT_EQ(index.summary().itemCount, 0);
    index.replace(sample(),
                  {.builtAt = Timestamp::since1970(9.0), .savedAt = Timestamp::since1970(9.0)});
    using Found = std::vector<unsigned>;
    EXPECT_EQ(taking(index, {}), (Found{1, 2, 3, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(taking(index, {.system = false}), (Found{2, 3, 4, 7, 8, 9}));
    EXPECT_EQ(taking(index, {.hidden = false}), (Found{1, 3, 4, 5, 6, 9}));
    EXPECT_EQ(taking(index, {.packageContents = false}), (Found{1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(taking(index, {.hidden = false, .system = false, .packageContents = false}),
              (Found{3, 4}));
    EXPECT_EQ(index.summary().itemCount, 11);
    EXPECT_EQ(index.summary().updatedAt, Timestamp::since1970(9.0));
}

TEST(FindIndex, CountsChangesAndLetsGoOfWhatWasBefore) {
    FindIndex index;
    index.replace(sample(), {});
    const auto before = index.storage();
    const auto generation = index.generation();
    const auto mask = index.mask(before, {});
    EXPECT_EQ(index.mask(before, {}), mask) << "remembered";
    FindIndexStorage changed = *before;
    changed.markDeleted(1);
    index.update(std::move(changed), {});
    EXPECT_EQ(index.generation(), generation);
    EXPECT_EQ(index.revision(), 2U);
    EXPECT_FALSE(index.mask(index.storage(), {})->has(5));
    EXPECT_TRUE(index.mask(before, {})->has(5)) << "a search that goes on";
    EXPECT_EQ(before.use_count(), 1);
}

TEST(FindIndex, IsSearchedWhileItChanges) {
    FindIndex index;
    index.replace(sample(), {});
    std::jthread updates([&] {
        for (int i = 0; i < 300; ++i) {
            FindIndexStorage next = *index.storage();
            next.appendLooseChildren(4, listing({file("n" + std::to_string(i))}));
            if (i % 50 == 49) {
                index.replace(next.compacted(), {});
            } else {
                index.update(std::move(next), {});
            }
        }
    });
    std::uint64_t last = 0;
    while (last < 301) {
        const auto storage = index.storage();
        const auto mask = index.mask(storage, {.hidden = false});
        ASSERT_EQ(mask->capacity(), storage->count());
        ASSERT_GE(index.revision(), last);
        last = index.revision();
        EXPECT_GE(index.summary().itemCount, 10);
    }
}

TEST(FindIndex, IsUsedAsItsHeaderSays) {
    FindIndexStorage storage = sample();
    const Timestamp now = Timestamp::since1970(9.0);
    FindIndex index;
    index.replace(std::move(storage), {.builtAt = now, .savedAt = now});
    const auto searched = index.storage();
    const auto mask = index.mask(searched, {.hidden = false});
    EXPECT_FALSE(mask->has(2));
    EXPECT_EQ(index.metadata().builtAt, now);
}

} // namespace
} // namespace tidyro

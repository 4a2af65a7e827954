#include "Rooms/Find/Services/Saving/FindIndexPair.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Platform/Files/DurableFile.h"
#include "Rooms/Find/Services/Building/FindIndexBuilder.h"
#include "Rooms/Find/Services/Index/FindTrees.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

using testing::everythingOnce;
using testing::TemporaryFolder;
using PairedError = FindIndexPersistenceError;

const PairedError extraError{PairedError::Inconsistent{"extra"}};

FindIndexMetadata numbered(std::uint64_t event) {
    return {.lastEventID = event, .builtAt = {}, .savedAt = {}};
}

FindIndexStorage stampedOnce() {
    FindIndexStorage storage = everythingOnce();
    storage.folderStamps.add(0, {.changed = 1'700'000'000'123'456'789,
                                 .identity = {.device = 0x1234'5678'9ABC, .inode = ~0ULL}});
    storage.folderStamps.add(
        2, {.changed = FindFolderStamp::unsettled, .identity = {.device = 2, .inode = 3}});
    return storage;
}

std::string readWhole(const FileURL& url) {
    return platform::readWholeFile(url.path(), 1U << 30).value_or("");
}

void overwrite(const FileURL& url, std::string_view bytes) {
    std::ofstream(url.path(), std::ios::binary | std::ios::trunc) << bytes;
}

TEST(FindIndexPair, OpensWhatItWroteAndLaysItOutAsIsWrittenDown) {
    const TemporaryFolder place;
    const FileURL url = FileURL::file(place / "a/name-index-v1.bin");
    const FindIndexStorage storage = stampedOnce();
    ASSERT_TRUE(FindIndexPair::write(storage, numbered(7), url));
    const auto opened = FindIndexPair::read(url);
    ASSERT_TRUE(opened) << opened.error().description();
    EXPECT_TRUE(opened->storage.folderStamps.rows == storage.folderStamps.rows);
    EXPECT_EQ(opened->metadata.lastEventID, 7U);
    // The index's own file is the same with and without another beside it.
    const FileURL alone = FileURL::file(place / "alone");
    ASSERT_TRUE(FindIndexPersistence::write(storage, numbered(7), alone));
    EXPECT_EQ(readWhole(url), readWhole(alone));

    const std::string extra = readWhole(FileURL::file(place / "a/name-index-v1.extra"));
    const auto number = [&](std::size_t at, unsigned width) {
        std::uint64_t value = 0;
        for (unsigned i = 0; i < width; ++i) {
            value |= std::uint64_t{static_cast<unsigned char>(extra.at(at + i))} << (8 * i);
        }
        return value;
    };
    ASSERT_EQ(extra.size(), 40U + 2 * 28 + 8);
    EXPECT_EQ(extra.substr(0, 8), "TIDYROFX");
    EXPECT_EQ(number(8, 8), 1U);
    EXPECT_EQ(number(16, 8), readWhole(url).size());
    EXPECT_EQ(number(32, 8), 2U);
    EXPECT_EQ(number(40, 8), 1'700'000'000'123'456'789U);
    EXPECT_EQ(number(48, 8), 0x8000'0000'0000'0000U);
    EXPECT_EQ(number(56, 8), 0x1234'5678'9ABCU);
    EXPECT_EQ(number(72, 8), ~0ULL);
    EXPECT_EQ(number(88, 4), 0U);
    EXPECT_EQ(number(92, 4), 2U);
}

TEST(FindIndexPair, NoticesEveryChangedByteAndEveryCutOfEitherFile) {
    const TemporaryFolder place;
    const FileURL url = FileURL::file(place / "name-index-v1.bin");
    ASSERT_TRUE(FindIndexPair::write(stampedOnce(), {}, url));
    for (const FileURL& file : {url, FindIndexPair::extraURL(url)}) {
        const std::string whole = readWhole(file);
        for (std::size_t at = 0; at < whole.size(); ++at) {
            std::string changed = whole;
            changed[at] = static_cast<char>(changed[at] ^ (1 << at % 8));
            overwrite(file, changed);
            ASSERT_FALSE(FindIndexPair::read(url)) << file.path() << " at " << at;
            if (at % 7 != 0) continue;
            overwrite(file, std::string_view(whole).substr(0, at));
            ASSERT_FALSE(FindIndexPair::read(url)) << file.path() << " cut at " << at;
        }
        overwrite(file, whole + '\0');
        EXPECT_FALSE(FindIndexPair::read(url));
        overwrite(file, whole);
        EXPECT_TRUE(FindIndexPair::read(url));
    }
}

TEST(FindIndexPair, OpensNoHalfOfAPair) {
    const TemporaryFolder place;
    const FileURL url = FileURL::file(place / "name-index-v1.bin");
    const FileURL extra = FindIndexPair::extraURL(url);
    const FindIndexStorage storage = stampedOnce();
    ASSERT_TRUE(FindIndexPair::write(storage, numbered(1), url));
    const std::string firstIndex = readWhole(url);
    const std::string firstExtra = readWhole(extra);
    ASSERT_TRUE(FindIndexPair::write(storage, numbered(2), url));
    overwrite(extra, firstExtra); // as after a crash between the two
    EXPECT_EQ(FindIndexPair::read(url).error(), extraError);
    overwrite(url, firstIndex);
    EXPECT_TRUE(FindIndexPair::read(url));
    std::filesystem::remove(extra.path());
    EXPECT_EQ(FindIndexPair::read(url).error(), extraError);
    overwrite(extra, firstExtra);
    std::filesystem::remove(url.path());
    EXPECT_EQ(FindIndexPair::read(url).error(), PairedError{PairedError::Unreadable{}});
    // A failed write of the second file leaves a pair that does not fit.
    std::filesystem::remove(extra.path());
    place.folder("name-index-v1.extra/in the way");
    EXPECT_FALSE(FindIndexPair::write(storage, numbered(3), url));
    EXPECT_EQ(FindIndexPair::read(url).error(), extraError);
}

TEST(FindIndexPair, IsOfOneWriterHoweverManyWriteAndRead) {
    const TemporaryFolder place;
    const FileURL url = FileURL::file(place / "name-index-v1.bin");
    ASSERT_TRUE(FindIndexPair::write(stampedOnce(), {}, url));
    std::vector<std::jthread> threads;
    std::atomic<int> failures = 0;
    for (std::uint64_t i = 0; i < 6; ++i) {
        threads.emplace_back([&, i] {
            for (int turn = 0; turn < 5; ++turn) {
                const bool isDone =
                    i % 2 == 0 ? FindIndexPair::write(stampedOnce(), numbered(i), url).has_value()
                               : FindIndexPair::read(url).has_value();
                if (!isDone) ++failures;
            }
        });
    }
    threads.clear();
    EXPECT_EQ(failures, 0);
    EXPECT_TRUE(FindIndexPair::read(url));
}

TEST(FindIndexPair, BuildingStampsEveryFolderThatWasRead) {
    const TemporaryFolder place;
    place.file("a/b/c", "1");
    place.link("link", "a");
    const auto storage = FindIndexBuilder({.rootPath = place.path()}).run();
    ASSERT_TRUE(storage);
    ASSERT_EQ(storage->folderStamps.rows.size(), 3U);
    for (const auto& row : storage->folderStamps.rows) {
        const auto folder = platform::FolderDescriptor::openRoot(storage->path(row.folder));
        ASSERT_TRUE(folder);
        const auto facts = folder->facts();
        ASSERT_TRUE(facts);
        EXPECT_EQ(row.stamp.identity, facts->identity);
        EXPECT_EQ(row.stamp.changed, FindFolderStamp::unsettled) << "it was made just now";
        const auto settled = FindFolderStamp::taken(*facts, facts->changed + 3'000'000'001);
        EXPECT_EQ(settled.changed, facts->changed);
        EXPECT_NE(facts->changed % 1'000'000'000, 0) << "nanoseconds";
        EXPECT_EQ(FindFolderStamp::taken(*facts, facts->changed + 3'000'000'000).changed,
                  FindFolderStamp::unsettled);
    }
    EXPECT_EQ(storage->compacted().folderStamps.rows.size(), 3U);
}

} // namespace
} // namespace tidyro

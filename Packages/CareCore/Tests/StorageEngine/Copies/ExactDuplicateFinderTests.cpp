#include "StorageEngine/Copies/ExactDuplicateFinder.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <limits>
#include <map>
#include <random>
#include <set>
#include <span>
#include <thread>

#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include "Platform/Machine/SHA256.h"
#include "StorageEngine/Copies/DuplicateScan.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {
namespace {

using testing::TemporaryFolder;
using Unreadable = ExactDuplicateFinder::Unreadable;

FileObservation observed(const std::string& path, std::uint64_t bytes) {
    return {.id = {.rawValue = path},
            .url = FileURL::file(path),
            .kind = FileKind::regularFile,
            .byteCount = bytes,
            .isReadable = true,
            .isCloudPlaceholder = false,
            .isInProjectRepository = false,
            .isBackupArtifact = false,
            .linkCount = 1};
}

FileObservation made(const TemporaryFolder& place, std::string_view name, std::string_view contents,
                     std::optional<double> modified = std::nullopt) {
    place.file(name, contents);
    FileObservation file = observed(place / name, contents.size());
    if (modified) file.modificationDate = Timestamp::sinceReference(*modified);
    return file;
}

/// "a b|c d|" for two groups of two.
std::string names(std::span<const ExactDuplicateGroup> groups) {
    std::string text;
    for (const ExactDuplicateGroup& group : groups) {
        for (const FileObservation& member : group.members) {
            text += std::string(member.url.lastComponent()) + " ";
        }
        text.back() = '|';
    }
    return text;
}

TEST(ExactDuplicateFinder, IsUsedAsItsHeaderShows) {
    const TemporaryFolder place;
    const std::vector observations{made(place, "a", "same"), observed(place / "none", 4)};
    std::string shown;
    const auto show = [&](const std::string& text) { shown = text; };

    const auto groups = ExactDuplicateFinder().findGroups(observations);
    if (!groups) show(ExactDuplicateFinder::description(groups.error()));

    EXPECT_EQ(shown, "Tidyro could not read " + place / "none" + " (No such file or directory).");
}

TEST(ExactDuplicateFinder, GroupsByContentsInAFixedOrder) {
    const TemporaryFolder place;
    const auto groups = ExactDuplicateFinder().findGroups(std::vector{
        made(place, "z", "twelve bytes"), made(place, "b", "ab"), made(place, "other", "xy"),
        made(place, "\xFF", "ab"), made(place, "B", "ab"), made(place, "c1", "c"),
        made(place, "c2", "c"), made(place, "d2", "d"), made(place, "d1", "d"),
        made(place, "y", "twelve bytes"), made(place, "empty 1", ""), made(place, "empty 2", "")});
    ASSERT_TRUE(groups);
    // 12 bytes, 2 x 2 bytes, and of two that free one byte each the smaller digest.
    EXPECT_EQ(names(*groups), "y z|B b \xFF|d1 d2|c1 c2|");
    EXPECT_EQ(groups->at(1).byteCountPerItem, 2U);
    EXPECT_EQ(groups->at(1).contentDigest,
              "fb8e20fc2e4c3f248c60c39bd652f3c1347298bb977b8b4d5903b85055620603");
}

TEST(ExactDuplicateFinder, OpensOnlyWhatMayBeReadAndSharesItsSize) {
    const TemporaryFolder place;
    // None of these exists: opening any of them would end the search.
    std::vector<FileObservation> files(7, observed(place / "none", 5));
    files[0].kind = FileKind::directory;
    files[1].kind = FileKind::other;
    files[2].isReadable = false;
    files[3].isCloudPlaceholder = true;
    files[4].byteCount = 1;
    files[5].byteCount = 2;
    files[6] = observed(place / ".tidyro-0F0E0D0C-0B0A-0908-0706-050403020100/none", 5);
    files.push_back(made(place, "a", "12345"));
    files.push_back(made(place, "b", "12345"));
    const auto groups = ExactDuplicateFinder().findGroups(files);
    ASSERT_TRUE(groups);
    EXPECT_EQ(names(*groups), "a b|");
}

TEST(ExactDuplicateFinder, EndsWithTheFileThatCannotBeRead) {
    const TemporaryFolder place;
    const FileObservation good = made(place, "good", "12345");
    place.folder("folder");
    place.link("link", "good");
    place.pipe("pipe");
    for (const auto& [name, code] : std::map<std::string, int>{
             {"none", ENOENT}, {"folder", EISDIR}, {"link", ELOOP}, {"pipe", ESPIPE}}) {
        const FileObservation bad = observed(place / name, 5);
        const auto groups = ExactDuplicateFinder().findGroups(std::vector{good, bad});
        ASSERT_FALSE(groups) << name;
        ASSERT_TRUE(std::holds_alternative<Unreadable>(groups.error())) << name;
        EXPECT_EQ(std::get<Unreadable>(groups.error()), (Unreadable{bad.url, {code}})) << name;
    }
    EXPECT_EQ(ExactDuplicateFinder::description(Unreadable{FileURL::file("/a b"), {ENOENT}}),
              "Tidyro could not read /a b (No such file or directory).");
}

TEST(ExactDuplicateFinder, StopsBetweenChunks) {
    const TemporaryFolder place;
    constexpr std::uint64_t hoursLong = 1ULL << 40U;
    place.hole("a", hoursLong);
    place.hole("b", hoursLong);
    const std::vector files{observed(place / "a", hoursLong), observed(place / "b", hoursLong)};
    std::stop_source source;
    const std::jthread stopper([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        source.request_stop();
    });
    for (int again = 0; again < 2; ++again) { // and one that was stopped before
        const auto groups = ExactDuplicateFinder().findGroups(files, source.get_token());
        ASSERT_FALSE(groups);
        EXPECT_TRUE(std::holds_alternative<CancellationError>(groups.error()));
    }
    EXPECT_FALSE(DuplicateScanner({.maximumBytesRead = ~0ULL}).scan(files, source.get_token()));
}

std::string digestOf(const std::string& text) {
    platform::SHA256 hash;
    hash.update(std::as_bytes(std::span(text)));
    return platform::hexText(hash.finish());
}

TEST(ExactDuplicateFinder, AgreesWithComparingEverythingWithEverything) {
    EXPECT_EQ(ExactDuplicateFinder(1).readChunkSize(), 4096);
    EXPECT_EQ(ExactDuplicateFinder(4097).readChunkSize(), 4097);
    constexpr std::int64_t endless = std::numeric_limits<std::int64_t>::max();
    for (std::uint32_t seed = 0; seed < 8; ++seed) {
        std::mt19937 random(seed);
        const TemporaryFolder place;
        std::vector<FileObservation> files;
        std::map<std::string, std::set<std::string>> expected; // by contents
        for (int i = 0; i < 60; ++i) {
            // Around the chunk's size, and for some of them one byte changed.
            std::string text(4096 * (random() % 3) + random() % 3 + 1, 'a');
            if (random() % 2 == 0) text[std::array{0UL, text.size() - 1}[random() % 2]] = '#';
            files.push_back(made(place, std::to_string(i), text));
            expected[text].insert(std::to_string(i));
        }
        std::set<std::string> wanted;
        for (const auto& [text, members] : expected) {
            if (members.size() > 1)
                wanted.insert(digestOf(text) + fmt::format("{}|", fmt::join(members, " ")));
        }
        for (const std::int64_t chunk : {std::int64_t{1}, std::int64_t{4097}, endless}) {
            const auto groups = ExactDuplicateFinder(chunk).findGroups(files);
            ASSERT_TRUE(groups);
            std::set<std::string> found;
            for (const ExactDuplicateGroup& group : *groups) {
                found.insert(group.contentDigest + names({&group, 1}));
            }
            EXPECT_EQ(found, wanted) << "seed " << seed << ", chunk " << chunk;
        }
    }
}

TEST(DuplicateScanner, TakesTheOldestForTheOriginal) {
    const TemporaryFolder place;
    const auto result =
        DuplicateScanner({.minimumFileSize = 3})
            .scan(std::vector{
                made(place, "a", "1234"), made(place, "c", "1234", 1e12), made(place, "b", "1234"),
                made(place, "e", "1234", 5), made(place, "d", "1234", 5),
                made(place, "f", "123456", 1), made(place, "g", "123456"),
                made(place, "h", "abcdef"), made(place, "i", "abcdef"), made(place, "j", "123"),
                made(place, "k", "123"), made(place, "l", "12"), made(place, "m", "12")});
    ASSERT_TRUE(result);
    std::string text;
    for (const DuplicateSet& set : result->sets) {
        text += std::string(set.original.url.lastComponent()) + ":";
        for (const auto& copy : set.copies) text += copy.url.lastComponent();
    }
    // The two sets of six bytes free the same and stay as the finder gave them.
    EXPECT_EQ(text, "d:ecabf:gh:ij:k");
    EXPECT_EQ(result->filesHashed, 11);
    EXPECT_FALSE(result->wasTruncated);
    EXPECT_GT(result->duration, 0);

    DuplicateSet set = result->sets.front();
    EXPECT_EQ(set.reclaimableByteCount(), 16U);
    set.byteCountPerItem = ~0ULL;
    EXPECT_EQ(set.reclaimableByteCount(), ~0ULL);
}

TEST(DuplicateScanner, StopsAtTheFirstSizeThatExceedsABound) {
    const TemporaryFolder place;
    const std::vector files{made(place, "a", "12345"), made(place, "b", "12345"),
                            made(place, "c", "123"),   made(place, "d", "123"),
                            made(place, "e", "123"),   made(place, "f", "12"),
                            made(place, "g", "12"),    made(place, "only", "1234")};
    struct Case {
        DuplicateScanner::Options options;
        std::int64_t hashed;
        bool isTruncated;
    };
    for (const Case& one : std::vector<Case>{
             {{.minimumFileSize = 2}, 7, false},
             {{.maximumFilesHashed = 7, .minimumFileSize = 2}, 7, false},
             {{.maximumFilesHashed = 6, .minimumFileSize = 2}, 5, true},
             {{.maximumFilesHashed = 4, .minimumFileSize = 2}, 2, true}, // the pair would fit
             {{.maximumFilesHashed = 0, .minimumFileSize = 2}, 2, true},
             {{.maximumFilesHashed = -1, .minimumFileSize = 5}, 2, false},
             {{.maximumBytesRead = 19, .minimumFileSize = 3}, 5, false},
             {{.maximumBytesRead = 18, .minimumFileSize = 3}, 2, true},
             {{.maximumBytesRead = 9, .minimumFileSize = 0}, 0, true}}) {
        const auto result = DuplicateScanner(one.options).scan(files);
        ASSERT_TRUE(result);
        EXPECT_EQ(result->filesHashed, one.hashed) << one.options.maximumFilesHashed;
        EXPECT_EQ(result->wasTruncated, one.isTruncated) << one.options.maximumBytesRead;
    }
    DuplicateScanner::minimumFileSize = 5;
    EXPECT_EQ(DuplicateScanner().scan(files)->filesHashed, 2);
    DuplicateScanner::minimumFileSize = 1'048'576;
    EXPECT_EQ(DuplicateScanner().scan(files)->filesHashed, 0);
    // Sizes whose sum cannot be counted are over every bound, not within it.
    const std::vector huge(3, observed(place / "none", 1ULL << 63U));
    EXPECT_TRUE(DuplicateScanner({.maximumBytesRead = ~0ULL - 1}).scan(huge)->wasTruncated);
}

} // namespace
} // namespace tidyro

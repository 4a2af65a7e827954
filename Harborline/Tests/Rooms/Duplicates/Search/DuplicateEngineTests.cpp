#include "Rooms/Duplicates/Search/DuplicateEngine.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <sstream>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Platform/Files/FileMetadata.h"
#include "Rooms/Duplicates/Search/QuietSearch.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

using testing::quietEngine;
using testing::searching;
using testing::TemporaryFolder;

std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

/// Each group as the paths of its copies below the place, further names in brackets.
using Groups = std::set<std::vector<std::string>>;

Groups told(const DuplicateReport& report, const TemporaryFolder& place) {
    Groups groups;
    for (const DuplicateGroup& group : report.groups) {
        std::vector<std::string> copies;
        for (const DuplicateCopy& copy : group.copies) {
            std::string text = copy.path.substr(place.path().size() + 1);
            for (const std::string& name : copy.otherNames) {
                text += " (" + name.substr(place.path().size() + 1) + ")";
            }
            copies.push_back(std::move(text));
        }
        groups.insert(std::move(copies));
    }
    return groups;
}

/// Everything compared with everything.
Groups naively(const std::set<std::string>& names, const TemporaryFolder& place) {
    std::map<std::uint64_t, std::vector<std::string>> files; // by inode, names ascending
    for (const std::string& name : names) {
        files[platform::fileMetadata(place / name)->identity.inode].push_back(name);
    }
    std::map<std::string, std::vector<std::string>> byContents;
    for (const auto& [inode, all] : files) {
        std::string text = all.front();
        for (std::size_t i = 1; i < all.size(); ++i) text += " (" + all[i] + ")";
        const std::string whole = contents(place / all.front());
        if (!whole.empty()) byContents[whole].push_back(text);
    }
    Groups groups;
    for (auto& [whole, copies] : byContents) {
        std::ranges::sort(copies);
        if (copies.size() > 1) groups.insert(copies);
    }
    return groups;
}

TEST(DuplicateEngine, FindsWhatComparingEverythingFinds) {
    constexpr std::array<std::size_t, 14> sizes{1,       2,       4'095,     4'096,    4'097,
                                                65'535,  65'536,  65'537,    131'071,  131'072,
                                                131'073, 200'000, 1'048'576, 1'048'577};
    for (unsigned seed = 1; seed <= 4; ++seed) {
        std::mt19937 random(seed);
        const auto upTo = [&](std::size_t bound) { return random() % bound; };
        const TemporaryFolder place;
        std::set<std::string> names;
        for (int i = 0; i < 150; ++i) {
            const std::string name =
                fmt::format("{}/{}/file{}", upTo(4), upTo(3), random() % 100'000);
            if (names.contains(name)) continue;
            if (!names.empty() && upTo(8) == 0) {
                place.file(name); // for the folders
                std::remove((place / name).c_str());
                place.hardLink(name,
                               *std::next(names.begin(), static_cast<long>(upTo(names.size()))));
            } else {
                // Few bases, so that many are copies or differ in one byte only.
                std::string text(sizes[upTo(sizes.size())], static_cast<char>('a' + upTo(2)));
                const std::size_t near = upTo(5);
                if (near < 3) text[near * (text.size() - 1) / 2] ^= 1; // start, middle, end
                place.file(name, text);
            }
            names.insert(name);
        }
        const auto report = quietEngine().run(searching(place));
        ASSERT_TRUE(report);
        EXPECT_EQ(told(*report, place), naively(names, place)) << "seed " << seed;
        EXPECT_EQ(report->filesLookedAt, std::ssize(names));
        for (const DuplicateGroup& group : report->groups) {
            EXPECT_EQ(group.digest.size(), 64U);
            EXPECT_EQ(group.storageCount(), std::ssize(group.copies));
        }
    }
}

TEST(DuplicateEngine, RunsAsItsHeaderShows) {
    const TemporaryFolder place;
    place.file("a", "same");
    place.file("b", "same");
    const FileURL folder = FileURL::folder(place.path());
    const FileURL home = FileURL::folder("/nowhere/ada");
    std::string shown;
    const auto show = [&](const std::string& text, std::uint64_t bytes = 0) {
        shown += fmt::format("{} {}", text, bytes);
    };
    const auto report = DuplicateEngine().run({.roots = {folder}, .home = home});
    if (!report) return show(DuplicateEngine::description(report.error()));
    for (const DuplicateGroup& group : report->groups) show(group.name(), group.wastedBytes());
    EXPECT_EQ(shown, "a 4");
}

TEST(DuplicateEngine, TreatsAllNamesOfAFileAsOne) {
    const TemporaryFolder place;
    place.file("b/one", "contents");
    for (int i = 0; i < 300; ++i) place.hardLink(fmt::format("b/name{:03}", i), "b/one");
    place.hardLink("a", "b/one");
    const auto alone = quietEngine().run(searching(place));
    EXPECT_TRUE(alone->groups.empty());
    EXPECT_EQ(alone->hardLinkedFiles, 301);

    place.file("copy", "contents");
    auto options = searching(place);
    options.roots = {FileURL::folder(place / "b"), FileURL::folder(place.path() + "//b/"),
                     FileURL::folder(place.path())}; // one in another, one twice
    const auto report = quietEngine().run(options);
    ASSERT_EQ(report->groups.size(), 1U);
    const DuplicateGroup& group = report->groups.front();
    EXPECT_EQ(group.copies[0].path, place / "a") << "the first of its names";
    EXPECT_EQ(group.copies[0].otherNames.size(), 301U);
    EXPECT_EQ(group.copies[0].otherNames.back(), place / "b/one");
    EXPECT_EQ(group.copies[0].heldBecause,
              "This file has another name on the disk (a hard link), so moving one name frees "
              "nothing.");
    EXPECT_EQ(group.copies[1].path, place / "copy");
    EXPECT_EQ(report->filesLookedAt, 303);
    EXPECT_EQ(report->wastedBytes(), 8U);
}

TEST(DuplicateEngine, DropsWhatIsNotWhatWasListed) {
    const std::string text(200'000, 'x');
    struct Change {
        const char* what;
        std::function<void(const TemporaryFolder&)> make;
        bool stays = false;
    };
    const std::array<Change, 9> changes{
        {{"nothing", [](const auto&) {}, true},
         {"vanished", [](const auto& at) { std::remove((at / "d/b").c_str()); }},
         {"cut", [&](const auto& at) { at.file("d/b", text.substr(1)); }},
         {"grown", [&](const auto& at) { at.file("d/b", text + "x"); }},
         {"other contents", [&](const auto& at) { at.file("d/b", std::string(200'000, 'y')); }},
         {"a link to the copy",
          [](const auto& at) {
              std::remove((at / "d/b").c_str());
              at.link("d/b", "../a");
          }},
         {"a pipe",
          [](const auto& at) {
              std::remove((at / "d/b").c_str());
              at.pipe("d/b");
          }},
         {"another name of the copy",
          [](const auto& at) {
              std::remove((at / "d/b").c_str());
              at.hardLink("d/b", "a");
          }},
         {"its folder is a link", [](const auto& at) {
              std::rename((at / "d").c_str(), (at / "e").c_str());
              at.link("d", "e");
          }}}};
    for (const Change& change : changes) {
        const TemporaryFolder place;
        place.file("a", text);
        place.file("d/b", text);
        const auto report = quietEngine([&] { change.make(place); }).run(searching(place));
        ASSERT_TRUE(report) << change.what;
        EXPECT_EQ(!report->groups.empty(), change.stays) << change.what;
    }
}

TEST(DuplicateEngine, NoticesWhatIsWrittenAfterItWasRead) {
    const TemporaryFolder place;
    for (const char* name : {"a", "b", "c"}) {
        place.file(name, std::string(1'000, 'x'));
        place.times(name, 1'600'000'000, 1'600'000'000);
    }
    place.noise("large1", 3'000'000);
    place.noise("large2", 3'000'000);
    // The small ones have been read once the large ones are: then one is written to, and its date
    // set back.
    bool isDone = false;
    const auto report =
        quietEngine().run(searching(place), nullptr, [&](const DuplicateProgress& progress) {
            const bool isLarge = progress.currentPath.find("large") != std::string::npos;
            if (isDone || !isLarge || progress.phase != DuplicateProgress::Phase::verifying) return;
            isDone = true;
            place.file("b", std::string(1'000, 'y'));
            place.times("b", 1'600'000'000, 1'600'000'000);
        });
    ASSERT_TRUE(report);
    EXPECT_EQ(told(*report, place), (Groups{{"a", "c"}, {"large1", "large2"}}));
}

TEST(DuplicateEngine, LooksOnlyWhereItMay) {
    const TemporaryFolder place;
    for (const char* name : {"a", "b", "left out/c", "named only/d", "deep/e", "small"}) {
        place.file(name, std::string(name[0] == 's' ? 4 : 5, 'x'));
    }
    place.link("link", "a");
    place.file("empty1");
    place.file("empty2");
    place.pipe("pipe1");
    place.socket("socket");
    place.hole("hole1", 300'000);
    place.hole("hole2", 300'000);
    auto options = searching(place);
    options.minimumBytes = 5;
    options.skipping = {place / "left out"};
    options.skippingContentsOf = {place / "named only"};
    const Groups expected{{"a", "b", "deep/e"}, {"hole1", "hole2"}};
    const auto walked = quietEngine().run(options);
    EXPECT_EQ(told(*walked, place), expected);
    EXPECT_EQ(walked->filesLookedAt, 5);

    const auto tree = DiskTreeScanner().scan(FileURL::folder(place.path()));
    ASSERT_TRUE(tree);
    const auto fromTree = quietEngine().run(options, &*tree);
    EXPECT_EQ(told(*fromTree, place), expected);
    EXPECT_EQ(fromTree->filesLookedAt, 5);
    const DiskTree without = tree->removing({place / "deep"});
    EXPECT_EQ(told(*quietEngine().run(options, &without), place),
              (Groups{{"a", "b"}, {"hole1", "hole2"}}));

    options.minimumBytes = UINT64_MAX;
    EXPECT_EQ(quietEngine().run(options)->filesLookedAt, 0);
    options.roots = {FileURL::folder(place / "none")};
    EXPECT_FALSE(quietEngine().run(options));
    // A volume of the system need not be there.
    options.roots = {FileURL::folder(place.path())};
    options.includeSystemVolumes = true;
    EXPECT_TRUE(quietEngine().run(options));
}

TEST(DuplicateEngine, TellsItsProgressAndStopsWhenAsked) {
    const TemporaryFolder place;
    for (unsigned i = 0; i < 300; ++i) place.noise(fmt::format("{}", i), 300'000, 1 + i % 2);
    std::vector<DuplicateProgress> all;
    const auto report = quietEngine().run(
        searching(place), nullptr, [&](const DuplicateProgress& one) { all.push_back(one); });
    ASSERT_TRUE(report);
    EXPECT_EQ(report->groups.size(), 2U);
    for (std::size_t i = 1; i < all.size(); ++i) {
        EXPECT_GE(all[i].phase, all[i - 1].phase);
        if (all[i].phase == all[i - 1].phase) {
            EXPECT_GE(all[i].bytesDone, all[i - 1].bytesDone);
        }
        EXPECT_LE(all[i].fraction().value_or(0), 1.0);
    }
    EXPECT_EQ(all.back().phase, DuplicateProgress::Phase::verifying);
    EXPECT_EQ(all.back().bytesTotal, 300U * 300'000U);

    for (const auto phase : allCases<DuplicateProgress::Phase>()) {
        std::stop_source stopping;
        const auto stopped = quietEngine().run(
            searching(place), nullptr,
            [&](const DuplicateProgress& one) {
                if (one.phase == phase) stopping.request_stop();
            },
            stopping.get_token());
        ASSERT_FALSE(stopped);
        EXPECT_EQ(stopped.error(), DuplicateEngine::Error(CancellationError{}));
    }
}

TEST(DuplicateEngine, LeavesOutWhatIsClosed) {
    const std::string told = testing::asOrdinaryUser([] {
        const TemporaryFolder place;
        for (const char* name : {"a", "b", "closed file", "closed/c"}) place.file(name, "same");
        place.permissions("closed file", 0);
        place.permissions("closed", 0);
        const auto report = quietEngine().run(searching(place));
        place.permissions("closed", 0700);
        return fmt::format("{} {} {} {}", report->groups.size(), report->groups[0].copies.size(),
                           report->deniedFolders, report->unreadFiles.value_or(-1));
    });
    EXPECT_EQ(told, "1 2 1 1");
}

TEST(DuplicateEngine, SearchesARootThatIsMountedInAnother) {
    const auto said = testing::inMountNamespace([]() -> std::string {
        const TemporaryFolder place;
        place.folder("outer/mounted");
        if (!testing::runQuietly("mount -t tmpfs none " + (place / "outer/mounted"))) {
            return "cannot mount";
        }
        place.file("outer/mounted/a", "same");
        place.file("outer/mounted/b", "same");
        auto options = searching(place);
        options.roots = {FileURL::folder(place / "outer"),
                         FileURL::folder(place / "outer/mounted")};
        const auto report = quietEngine().run(options);
        const std::size_t groups = report->groups.size();
        return testing::runQuietly("umount " + (place / "outer/mounted"))
                   ? fmt::format("{}", groups)
                   : "cannot unmount";
    });
    EXPECT_TRUE(!said || *said == "cannot mount" || *said == "1") << *said;
}

TEST(DuplicateEngine, KnowsAFileByTwoMounts) {
    const auto said = testing::inMountNamespace([]() -> std::string {
        const TemporaryFolder place;
        place.file("real/a", "same");
        place.file("other/copy", "same");
        place.folder("again");
        if (!testing::bindMount(place / "real", place / "again")) return "cannot mount";
        auto options = searching(place);
        options.roots = {FileURL::folder(place / "other"), FileURL::folder(place / "again"),
                         FileURL::folder(place / "real")};
        const auto report = quietEngine().run(options);
        std::string text;
        for (const auto& copies : told(*report, place)) {
            for (const std::string& copy : copies) text += copy + " ";
        }
        return testing::runQuietly("umount " + (place / "again")) ? text : "cannot unmount";
    });
    EXPECT_TRUE(!said || *said == "cannot mount" || *said == "again/a (real/a) other/copy ")
        << *said;
}

} // namespace
} // namespace tidyro

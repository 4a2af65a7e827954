#include "Rooms/Duplicates/Search/DuplicateEngine.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <thread>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Base/JSONRecords.h"
#include "Platform/Files/FileLease.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Machine/OperatingSystem.h"
#include "Platform/Mounts/Volumes.h"
#include "Rooms/Duplicates/Choosing/DuplicatesModel.h"
#include "StorageEngine/PickedItems/DiskItemRefusal.h"
#include "Support/OtherCircumstances.h"
#include "Support/QuietMachine.h"

namespace tidyro {
namespace {

using testing::TemporaryFolder;

std::shared_ptr<const SafetyPolicyContext> quietContext() {
    return std::make_shared<const SafetyPolicyContext>(testing::quietMachine());
}

DuplicateEngine engine(std::function<void()> afterListing = nullptr) {
    return DuplicateEngine(DuplicateEngine::Settings{
        .context = quietContext, .progressInterval = 0, .afterListing = std::move(afterListing)});
}

/// Until a change to a file gets another date than one that was made before.
void waitForTheNextDate() { std::this_thread::sleep_for(std::chrono::milliseconds(50)); }

DuplicateSearchOptions searching(const TemporaryFolder& place) {
    return {.roots = {FileURL::folder(place.path())}, .home = FileURL::folder("/nowhere/ada")};
}

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
        const auto report = engine().run(searching(place));
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
    const auto alone = engine().run(searching(place));
    EXPECT_TRUE(alone->groups.empty());
    EXPECT_EQ(alone->hardLinkedFiles, 301);

    place.file("copy", "contents");
    auto options = searching(place);
    options.roots = {FileURL::folder(place / "b"), FileURL::folder(place.path() + "//b/"),
                     FileURL::folder(place.path())}; // one in another, one twice
    const auto report = engine().run(options);
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
        const auto report = engine([&] { change.make(place); }).run(searching(place));
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
        engine().run(searching(place), nullptr, [&](const DuplicateProgress& progress) {
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
    const auto walked = engine().run(options);
    EXPECT_EQ(told(*walked, place), expected);
    EXPECT_EQ(walked->filesLookedAt, 5);

    const auto tree = DiskTreeScanner().scan(FileURL::folder(place.path()));
    ASSERT_TRUE(tree);
    const auto fromTree = engine().run(options, &*tree);
    EXPECT_EQ(told(*fromTree, place), expected);
    EXPECT_EQ(fromTree->filesLookedAt, 5);
    const DiskTree without = tree->removing({place / "deep"});
    EXPECT_EQ(told(*engine().run(options, &without), place),
              (Groups{{"a", "b"}, {"hole1", "hole2"}}));

    options.minimumBytes = UINT64_MAX;
    EXPECT_EQ(engine().run(options)->filesLookedAt, 0);
    options.roots = {FileURL::folder(place / "none")};
    EXPECT_FALSE(engine().run(options));
    // A volume of the system need not be there.
    options.roots = {FileURL::folder(place.path())};
    options.includeSystemVolumes = true;
    EXPECT_TRUE(engine().run(options));
}

TEST(DuplicateEngine, HoldsCopiesThatMustStay) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    const TemporaryFolder place;
    const auto seen = platform::fileMetadata(place.path());
    for (const char* name : {"home/letters/a", "home/Tool.app/Contents/a", "outside/a", "system/a",
                             "home/projects/.git/a", "home/.ssh/a"}) {
        place.file(name, "same");
        place.times(name, 1'600'000'000, 1'600'000'000);
    }
    waitForTheNextDate();
    DuplicateSearchOptions options{
        .roots = {FileURL::folder(place / "home"), FileURL::folder(place / "system")},
        .includeSystemVolumes = true,
        .home = FileURL::folder(place / "home")};
    options.systemVolumeRoots = {FileURL::folder(place / "system")};
    const auto tree = DiskTreeScanner().scan(FileURL::folder(place.path()));
    const auto volume = platform::LiveVolumes().mounted();
    ASSERT_TRUE(seen && tree && volume);
    const auto identifier = platform::volumeOf(*seen, *volume);
    const DuplicateEngine judging(DuplicateEngine::Settings{.context = [&] {
        SafetyPolicyFacts facts = testing::quietMachine();
        if (identifier != nullptr) {
            facts.internalLocalVolumeIdentifiers.insert(identifier->identifier);
        }
        facts.additionalProtectedRoots = {FileURL::folder(place / "home/.ssh")};
        return std::make_shared<const SafetyPolicyContext>(std::move(facts));
    }});
    const auto report = judging.run(options, &*tree);
    ASSERT_TRUE(report);
    ASSERT_EQ(report->groups.size(), 1U);
    std::map<std::string, std::string> held;
    for (const DuplicateCopy& copy : report->groups.front().copies) {
        held[copy.path.substr(place.path().size() + 1)] = copy.heldBecause.value_or("");
        EXPECT_EQ(copy.isSystem, copy.path == place / "system/a");
    }
    EXPECT_EQ(held["home/Tool.app/Contents/a"],
              "Inside an app or library, which would break without it.");
    EXPECT_EQ(held["system/a"], platform::systemText(SystemText::belongsToSystem));
    EXPECT_EQ(held["outside/a"], explanation(DiskItemRefusal::outsideChosenFolders));
    EXPECT_EQ(held["home/projects/.git/a"], explanation(DiskItemRefusal::repositoryData));
    EXPECT_EQ(held["home/.ssh/a"], explanation(DiskItemRefusal::protectedPlace));
    EXPECT_EQ(held["home/letters/a"], "") << "this one may go";

    // Without a view of what runs nothing may.
    const auto blind = DuplicateEngine(DuplicateEngine::Settings{.context = [] {
                           return nullptr;
                       }}).run(options, &*tree);
    for (const DuplicateCopy& copy : blind->groups.front().copies) {
        EXPECT_TRUE(copy.heldBecause) << copy.path;
    }
}

/// What a search on a quiet machine says of each copy of a made home: its place, whether others may
/// go because it stays ("!" if not) and whether it is held (the first words of the reason).
class MadeHome {
  public:
    void file(const std::string& name, const std::string& contents = "same") const {
        place.file("home/" + name, contents);
        place.times("home/" + name, 1'600'000'000, 1'600'000'000);
    }
    [[nodiscard]] std::map<std::string, std::string> judged() {
        waitForTheNextDate();
        const auto volume = platform::LiveVolumes().mounted();
        const auto* own = platform::volumeOf(*platform::fileMetadata(home()), *volume);
        if (own != nullptr) facts.internalLocalVolumeIdentifiers.insert(own->identifier);
        const DuplicateEngine judging(DuplicateEngine::Settings{
            .context = [&] { return std::make_shared<const SafetyPolicyContext>(facts); }});
        const auto report =
            judging.run({.roots = {FileURL::folder(searched.empty() ? home() : searched)},
                         .home = FileURL::folder(home())});
        std::map<std::string, std::string> found;
        for (const DuplicateGroup& group : report->groups) {
            const auto states = DuplicatesModel().states(group, {});
            for (std::size_t i = 0; i < group.copies.size(); ++i) {
                const DuplicateCopy& copy = group.copies[i];
                std::string text(rawValue(copy.standing->place));
                if (!copy.standing->isReason) text += "!";
                text += " " + toJSON(states[i]).begin().key();
                if (copy.heldBecause) text += ": " + copy.heldBecause->substr(0, 16);
                found[copy.path.substr(home().size() + 1)] = text;
            }
        }
        return found;
    }
    [[nodiscard]] std::string home() const { return place / "home"; }

    TemporaryFolder place;
    SafetyPolicyFacts facts = testing::quietMachine();
    std::string searched; ///< the home where it is empty
};

TEST(DuplicateEngine, RanksThePlacesOfCopiesAndHoldsProgramsParts) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    using Judged = std::map<std::string, std::string>;
    const std::string hidden = "disposable held: In a hidden fold";
    const std::string store = "disposable held: Part of a store ";
    const std::string environment = "disposable held: Part of an envir";
    const std::string project = "own held: Part of a projec";
    MadeHome made;
    made.place.file("home/.git/HEAD"); // settings of the home, which make it no project
    made.place.file("home/package.json");
    made.place.file("home/.config/user-dirs.dirs", "XDG_DESKTOP_DIR=\"$HOME/Schirm\"\n");
    Judged expected{{"Documents/a", "own kept"},
                    {"Documents/report/b", "own extra"},
                    {"Photos/a", "own extra"},
                    {"Downloads/a", "landing extra"},
                    {"Desktop/a", "landing extra"},
                    {"Schirm/a", "landing extra"},
                    {"Documents/tmp/a", "disposable extra"},
                    {"Documents/build/a", "disposable extra"},
                    {".cache/app/a", hidden},
                    {".local/share/app/a", hidden},
                    {".hidden", hidden},
                    {"snap/a/common/a", hidden},
                    {"go/pkg/mod/m/a", store},
                    {"code/lib/site-packages/a", store},
                    {"code/node_modules/m/a", store},
                    {"miniconda3/lib/a", store},
                    {"tools/env/lib/a", environment},
                    {"code/app/src/a", project}};
    made.place.file("home/tools/env/pyvenv.cfg");
    made.place.file("home/code/app/Cargo.toml");
    int number = 0;
    for (const char* mark : {".git", ".hg", ".jj", ".svn", "_darcs", ".bzr", ".pijul", ".sl",
                             ".fslckout", "_FOSSIL_"}) {
        const std::string folder = fmt::format("code/{}", ++number);
        made.place.file("home/" + folder + "/" + mark + (number < 9 ? "/x" : ""));
        expected[folder + "/deep/a"] = project;
    }
    for (const auto& [name, judged] : expected) made.file(name);
    made.place.times("home/Documents/a", 1'500'000'000, 1'500'000'000);
    // Dates of birth cannot be set, so the newest rule tells nothing here: only places differ.
    Judged found = made.judged();
    for (Judged* one : {&expected, &found}) {
        for (auto& [name, judged] : *one) {
            if (judged == "own kept") judged = "own extra"; // chance of birth decides among equals
        }
    }
    EXPECT_EQ(found, expected);
}

TEST(DuplicateEngine, LeavesOutTheTrash) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    MadeHome made;
    for (const char* name : {"Documents/a", ".local/share/Trash/files/a", ".Trash/a",
                             "Disk/.Trash-1000/files/a", "Disk/.Trashes/501/a"}) {
        made.file(name);
    }
    EXPECT_TRUE(made.judged().empty());
    made.searched = made.home() + "/.local/share/Trash";
    made.file(".local/share/Trash/files/b");
    EXPECT_TRUE(made.judged().empty());
    made.searched.clear();
    made.file("Documents/Trash/a"); // a name like any other there
    EXPECT_EQ(made.judged().size(), 2U);
}

TEST(DuplicateEngine, TakesNoCopyForAReasonThatMayVanishOrChange) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    using Judged = std::map<std::string, std::string>;
    MadeHome made;
    // Each older than the copy in Documents, which would be the extra one by its date.
    made.file("Archive/x.backupdb/a", "1");
    made.file("Documents/a", "1");
    made.file("Lists/b.sqlite", "2");
    made.file("Documents/b", "2");
    made.file("Dropbox/c", "3");
    made.file("Documents/c", "3");
    EXPECT_EQ(made.judged(), (Judged{{"Archive/x.backupdb/a", "own! held: This is a backup"},
                                     {"Documents/a", "own kept"},
                                     {"Lists/b.sqlite", "own! held: This is a databa"},
                                     {"Documents/b", "own kept"},
                                     {"Dropbox/c", "own! held: This is kept in "},
                                     {"Documents/c", "own kept"}}));
}

TEST(DuplicateEngine, HoldsAllCopiesOfAFileInUseAndOfPrograms) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    for (const bool isOpen : {false, true}) {
        MadeHome made;
        for (const char* name : {"Documents/a", "Pictures/a", "Videos/a"}) made.file(name);
        if (isOpen) made.facts.openByProcessPaths.insert(made.home() + "/Videos/a");
        std::size_t held = 0;
        for (const auto& [name, judged] : made.judged()) held += judged.find(": ") < 99 ? 1U : 0U;
        EXPECT_EQ(held, isOpen ? 3U : 0U);
    }
    for (const std::string_view beginning :
         {std::string_view("\x7F"
                           "ELF"),
          std::string_view("#!/bin/sh"), std::string_view("\xCF\xFA\xED\xFE"),
          std::string_view("\xCA\xFE\xBA\xBE")}) {
        MadeHome made;
        made.file("Documents/a", std::string(beginning) + " and more");
        made.file("Documents/b", std::string(beginning) + " and more");
        for (const auto& [name, judged] : made.judged()) {
            EXPECT_NE(judged.find(": This is a progr"), judged.npos) << judged;
        }
    }
}

TEST(DuplicateEngine, HoldsAllCopiesOfAFileThatIsOpenByAnotherName) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    MadeHome made;
    // The policy looks no further at a part of a backup, and finds the others free.
    for (const char* name : {"Documents/a", "Pictures/a", "Archive/x.backupdb/a"}) made.file(name);
    made.place.hardLink("elsewhere", "home/Archive/x.backupdb/a");
    waitForTheNextDate();
    const auto heldBesideTheBackup = [&] {
        std::size_t held = 0;
        for (const auto& [name, judged] : made.judged()) {
            if (judged.find(": A program has") != judged.npos) ++held;
        }
        return held;
    };
    EXPECT_EQ(heldBesideTheBackup(), 0U);
    const std::fstream writer(made.place / "elsewhere");
    const auto folder = platform::FolderDescriptor::openRoot(made.place.path());
    if (platform::fileUse(*folder, "elsewhere") != platform::FileUse::inUse) {
        GTEST_SKIP() << "this file system does not tell who has a file open";
    }
    EXPECT_EQ(heldBesideTheBackup(), 2U);
}

TEST(DuplicateEngine, HoldsWhatWasChangedWithinTheStepOfItsDate) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    MadeHome made;
    made.file("Documents/a");
    made.file("Documents/b");
    std::map<std::string, std::string> found;
    for (int attempt = 0; attempt < 5; ++attempt) {
        found = made.judged();
        EXPECT_EQ(found.size(), 2U);
        for (const auto& [name, judged] : found) EXPECT_EQ(judged.find('!'), judged.npos) << judged;
        // The same length, right before reading begins.
        const auto report =
            engine([&] { made.place.file("home/Documents/a", "same"); }).run(searching(made.place));
        ASSERT_EQ(report->groups.size(), 1U);
        EXPECT_FALSE(report->groups[0].copies[0].standing->isReason);
    }
}

TEST(DuplicateEngine, TellsItsProgressAndStopsWhenAsked) {
    const TemporaryFolder place;
    for (unsigned i = 0; i < 300; ++i) place.noise(fmt::format("{}", i), 300'000, 1 + i % 2);
    std::vector<DuplicateProgress> all;
    const auto report = engine().run(searching(place), nullptr,
                                     [&](const DuplicateProgress& one) { all.push_back(one); });
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
        const auto stopped = engine().run(
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
        const auto report = engine().run(searching(place));
        place.permissions("closed", 0700);
        return fmt::format("{} {} {} {}", report->groups.size(), report->groups[0].copies.size(),
                           report->deniedFolders, report->unreadFiles.value_or(-1));
    });
    EXPECT_EQ(told, "1 2 1 1");
}

/// What two kinds of file systems that share blocks have in common.
void checkClones(const std::string& type) {
    const auto image = testing::MountedImage::make(type);
    if (image == nullptr) GTEST_SKIP() << "cannot mount a " << type << " image here";
    const TemporaryFolder& place = image->folder();
    const auto clone = [&](const std::string& from, const std::string& to) {
        return testing::runQuietly("cp --reflink=always " + (place / from) + " " + (place / to));
    };
    place.noise("pair/a", 500'000, 1);
    place.noise("three/a", 500'000, 2);
    place.noise("three/other", 500'000, 2);
    place.noise("written/a", 500'000, 3);
    place.noise("written/copy", 500'000, 3);
    ASSERT_TRUE(clone("pair/a", "pair/b"));
    ASSERT_TRUE(clone("three/a", "three/b"));
    ASSERT_TRUE(clone("written/a", "written/b"));
    // The same contents again, but in blocks of its own.
    ASSERT_TRUE(testing::runQuietly("dd if=" + (place / "written/copy") +
                                    " of=" + (place / "written/b") + " conv=notrunc && sync"));
    place.hole("holes/a", 10'000'000);
    place.hole("holes/b", 10'000'000);
    place.noise("sparse/a", 300'000, 4);
    ASSERT_TRUE(testing::runQuietly("truncate -s 5000000 " + (place / "sparse/a")));
    ASSERT_TRUE(clone("sparse/a", "sparse/b"));
    const auto report = engine().run(searching(place));
    ASSERT_TRUE(report);
    EXPECT_EQ(report->cloneOnlyGroups, 3) << "nothing but holes takes nothing";
    ASSERT_EQ(report->groups.size(), 2U);
    const auto storages = [&](const std::string& folder) {
        std::vector<std::int64_t> numbers;
        for (const DuplicateGroup& group : report->groups) {
            if (!group.copies.front().path.starts_with(place / folder)) continue;
            for (const DuplicateCopy& copy : group.copies) numbers.push_back(copy.storage);
        }
        return numbers;
    };
    EXPECT_EQ(storages("three"), (std::vector<std::int64_t>{0, 0, 1}));
    EXPECT_EQ(storages("written"), (std::vector<std::int64_t>{0, 1, 2}));
    EXPECT_EQ(report->wastedBytes(), 3U * 500'000U);
}

TEST(DuplicateEngine, TellsClonesOnBtrfs) { checkClones("btrfs"); }
TEST(DuplicateEngine, TellsClonesOnXFS) { checkClones("xfs"); }

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
        const auto report = engine().run(options);
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
        const auto report = engine().run(options);
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

#include "Rooms/Duplicates/Search/DuplicateGrouping.h"

#include <chrono>
#include <fstream>
#include <map>
#include <string>
#include <thread>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Base/JSONCoding.h"
#include "Base/JSONRecords.h"
#include "Platform/Files/FileLease.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Machine/OperatingSystem.h"
#include "Platform/Mounts/Volumes.h"
#include "Rooms/Duplicates/Choosing/DuplicatesModel.h"
#include "Rooms/Duplicates/Search/QuietSearch.h"
#include "StorageEngine/PickedItems/DiskItemRefusal.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

using testing::quietEngine;
using testing::searching;
using testing::TemporaryFolder;

/// Until a change to a file gets another date than one that was made before.
void waitForTheNextDate() { std::this_thread::sleep_for(std::chrono::milliseconds(50)); }

TEST(DuplicateGrouping, HoldsCopiesThatMustStay) {
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

TEST(DuplicateGrouping, HoldsCopiesThatToolsKeep) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    const TemporaryFolder place;
    for (const char* name :
         {"home/.codex/sessions/a", "home/.codex/generated_images/a.png", "home/letters/a"}) {
        place.file(name, "same");
        place.times(name, 1'600'000'000, 1'600'000'000);
    }
    const auto report = DuplicateEngine().run(
        {.roots = {FileURL::folder(place / "home")}, .home = FileURL::folder(place / "home")});
    ASSERT_TRUE(report);
    ASSERT_EQ(report->groups.size(), 1U);
    for (const DuplicateCopy& copy : report->groups.front().copies) {
        const bool isKept = copy.heldBecause == explanation(DiskItemRefusal::protectedPlace);
        EXPECT_EQ(isKept, copy.path == place / "home/.codex/sessions/a") << copy.path;
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

TEST(DuplicateGrouping, RanksThePlacesOfCopiesAndHoldsProgramsParts) {
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

TEST(DuplicateGrouping, LeavesOutTheTrash) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    MadeHome made;
    for (const char* name :
         {"Documents/a", ".local/share/Trash/files/a", ".Trash/a", "Disk/.Trash-1000/files/a",
          "Disk/.Trashes/501/a", "Pictures/.tidyro-0F0E0D0C-0B0A-0908-0706-050403020100/a"}) {
        made.file(name);
    }
    EXPECT_TRUE(made.judged().empty());
    made.searched = made.home() + "/.local/share/Trash";
    made.file(".local/share/Trash/files/b");
    EXPECT_TRUE(made.judged().empty());
    made.searched = made.home() + "/Pictures/.tidyro-0F0E0D0C-0B0A-0908-0706-050403020100";
    made.file("Pictures/.tidyro-0F0E0D0C-0B0A-0908-0706-050403020100/deep/b");
    EXPECT_TRUE(made.judged().empty());
    made.searched.clear();
    made.file("Documents/Trash/a"); // a name like any other there
    EXPECT_EQ(made.judged().size(), 2U);
}

TEST(DuplicateGrouping, TakesNoCopyForAReasonThatMayVanishOrChange) {
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

TEST(DuplicateGrouping, HoldsAllCopiesOfAFileInUseAndOfPrograms) {
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

TEST(DuplicateGrouping, HoldsAllCopiesOfAFileThatIsOpenByAnotherName) {
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

TEST(DuplicateGrouping, HoldsWhatWasChangedWithinTheStepOfItsDate) {
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
        const auto report = quietEngine([&] {
                                made.place.file("home/Documents/a", "same");
                            }).run(searching(made.place));
        ASSERT_EQ(report->groups.size(), 1U);
        EXPECT_FALSE(report->groups[0].copies[0].standing->isReason);
    }
}

} // namespace
} // namespace tidyro

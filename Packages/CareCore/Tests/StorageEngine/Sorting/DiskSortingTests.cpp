#include "StorageEngine/Sorting/DiskSorting.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Base/PathText.h"
#include "Base/RoomText.h"

namespace tidyro {
namespace {

using Files = std::vector<DiskTree::ExampleFile>;
/// What a sorting placed: paths by group, nothing for an empty group. "~" stands for the home.
using Placed = std::map<std::string_view, std::set<std::string>>;

constexpr double day = 86'400;
constexpr std::uint64_t gigabyte = 1'000'000'000;
constexpr Timestamp now = Timestamp::since1970(1'700'000'000);
constexpr std::string_view home = "/home/ada";

std::string expanded(std::string_view path) {
    return path.starts_with('~') ? std::string(home).append(path.substr(1)) : std::string(path);
}
std::string shortened(const std::string& path) {
    return path::isInsideOrEqual(path, home) ? "~" + path.substr(home.size()) : path;
}

/// Says yes to the folders that it is given, and must be asked for no others than tools generate.
class FakeJudge final : public ProjectFolderJudge {
  public:
    explicit FakeJudge(std::set<std::string> generated = {}) : generated_(std::move(generated)) {}
    [[nodiscard]] bool isGenerated(const DiskTree& tree, NodeNumber folder) const override {
        EXPECT_TRUE(mayBeGenerated(tree.name(folder))) << tree.path(folder);
        return generated_.contains(shortened(tree.path(folder)));
    }

  private:
    std::set<std::string> generated_;
};

DiskTree::ExampleFile fileOf(std::string_view path, std::uint64_t bytes, double daysUnused = 0) {
    return {.path = expanded(path), .bytes = bytes, .modified = now.adding(-daysUnused * day)};
}

/// The tree of those files that lie in the root.
DiskTree treeAt(std::string_view root, const Files& files) {
    Files inside;
    for (const DiskTree::ExampleFile& file : files) {
        if (path::isInsideOrEqual(file.path, expanded(root))) inside.push_back(file);
    }
    return DiskTree::example(FileURL::folder(expanded(root)), inside);
}

Placed sorted(const DiskTree& tree, const ProjectFolderJudge& judge = FakeJudge()) {
    const DiskSorting sorting(
        tree, judge,
        {.home = FileURL::folder(home),
         .now = now,
         .trash = {.home = FileURL::folder(home).appendingFolder(".bin/files"),
                   .belowVolume = {".Trash-7"}}});
    Placed placed;
    for (const DiskGroup group : allCases<DiskGroup>()) {
        std::uint64_t bytes = 0;
        for (const NodeNumber node : sorting.items(group)) {
            const std::string path = shortened(tree.path(node));
            EXPECT_TRUE(placed[rawValue(group)].insert(path).second) << path;
            bytes += tree.size(node, {.onDisk = true});
        }
        EXPECT_EQ(sorting.bytes(group), bytes);
    }
    return placed;
}

const Files wholeDisk{fileOf("~/.bin/files/thrown/away.dmg", 1, 400),
                      fileOf("~/src/app/node_modules/left/node_modules/pad.js", 2),
                      fileOf("~/src/app/build/big", 2 * gigabyte, 800),
                      fileOf("~/src/app/target", 1),
                      fileOf("~/Library/Developer/Xcode/DerivedData/App-x/Build/o", 3),
                      fileOf("~/Library/Developer/CoreSimulator/Caches/dyld/c", 3),
                      fileOf("~/Library/Caches/pip/1/x", 4),
                      fileOf("~/.npm/_cacache/index/x", 4),
                      fileOf("~/.npm/_logs/x", 4),
                      fileOf("~/go/pkg/mod", 4), // a file is no place
                      fileOf("~/Library/Caches/web/data", 5),
                      fileOf("~/Library/Caches/lone.db", 5),
                      fileOf("~/Library/Caches/CloudKit/data", 5),
                      fileOf("~/Library/Containers/a/Data/Library/Caches/x/y", 6),
                      fileOf("~/Library/Logs/huge.log", 7 * gigabyte, 900),
                      fileOf("~/Downloads/old.dmg", 8, 91),
                      fileOf("~/Downloads/old/a/b", 8, 91),
                      fileOf("~/Downloads/.hidden", 8, 91),
                      fileOf("~/Downloads/new.txt", 8),
                      fileOf("~/Downloads/new.iso", 9),
                      fileOf("~/Downloads/new/tool.deb", 9 * gigabyte, 900),
                      fileOf("~/Downloads/new/T.pkg/Contents/x", 9),
                      fileOf("~/Downloads/new/film.mov", 10 * gigabyte, 900),
                      fileOf("~/Documents/film.mov", 10 * gigabyte, 366),
                      fileOf("~/Documents/old.dmg", 10, 900),
                      fileOf("/srv/.Trash-7/old", 1),
                      fileOf("/srv/Downloads/old.dmg", 10, 900),
                      fileOf("/srv/Library/Caches/x/y", 10)};

const FakeJudge diskJudge({"~/src/app/node_modules", "~/src/app/build", "~/src/app/target",
                           "~/src/app/node_modules/left/node_modules"});

const Placed placedOfDisk{
    {"trash", {"~/.bin/files/thrown"}},
    {"projectFolders", {"~/src/app/node_modules", "~/src/app/build"}},
    {"appleDeveloper",
     {"~/Library/Developer/Xcode/DerivedData/App-x", "~/Library/Developer/CoreSimulator/Caches"}},
    {"packageCaches", {"~/Library/Caches/pip", "~/.npm/_cacache"}},
    {"applicationCaches", {"~/Library/Caches/web", "~/Library/Caches/lone.db"}},
    {"sandboxedCaches", {"~/Library/Containers/a/Data/Library/Caches/x"}},
    {"logs", {"~/Library/Logs/huge.log"}},
    {"oldDownloads", {"~/Downloads/old.dmg", "~/Downloads/old"}},
    {"installers", {"~/Downloads/new.iso", "~/Downloads/new/tool.deb", "~/Downloads/new/T.pkg"}},
    {"largeFiles", {"~/Downloads/new/film.mov", "~/Documents/film.mov"}}};

// Whether the tree holds the home, is it, lies in it or has nothing to do with it: an item is the
// same item.
TEST(DiskSorting, PlacesTheSameItemsFromEveryRoot) {
    const std::vector<std::string_view> roots{"/",
                                              "/home",
                                              "~",
                                              "~/Library",
                                              "~/Library/Caches",
                                              "~/Library/Caches/pip",
                                              "~/.npm",
                                              "~/Library/Caches/web",
                                              "~/Library/Caches/pip/1",
                                              "~/Library/Containers/a",
                                              "~/.bin",
                                              "~/.bin/files",
                                              "~/.bin/files/thrown",
                                              "~/src/app",
                                              "~/src/app/build",
                                              "~/Downloads",
                                              "~/Downloads/new",
                                              "~/Downloads/new/T.pkg",
                                              "~/Downloads/old",
                                              "~/Documents"};
    for (const std::string_view root : roots) {
        Placed expected;
        for (const auto& [group, paths] : placedOfDisk) {
            for (const std::string& path : paths) {
                if (path::isInsideOrEqual(expanded(path), expanded(root))) {
                    expected[group].insert(path);
                }
            }
        }
        EXPECT_EQ(sorted(treeAt(root, wholeDisk), diskJudge), expected) << root;
    }
    EXPECT_EQ(sorted(treeAt("/srv", wholeDisk)), (Placed{{"trash", {"/srv/.Trash-7/old"}}}));
}

TEST(DiskSorting, TheFirstGroupTakesAnItem) {
    const DiskTree tree = treeAt(
        "~", {fileOf("~/.bin/files/node_modules/x", 1), fileOf("~/Library/Caches/build/x", 1),
              fileOf("~/.gradle/caches/x", 1), fileOf("~/Downloads/target/x.dmg", 1, 900),
              fileOf("~/Downloads/old.pkg", 2 * gigabyte, 900),
              fileOf("~/Library/Logs/x", 2 * gigabyte, 900)});
    EXPECT_EQ(sorted(tree),
              (Placed{{"trash", {"~/.bin/files/node_modules"}},
                      {"packageCaches", {"~/.gradle/caches"}},
                      {"applicationCaches", {"~/Library/Caches/build"}},
                      {"logs", {"~/Library/Logs/x"}},
                      {"oldDownloads", {"~/Downloads/target", "~/Downloads/old.pkg"}}}));
    const std::set<std::string> generated{"~/.gradle", "~/Library/Caches/build",
                                          "~/Downloads/target"};
    std::set<std::string> confirmed = generated;
    confirmed.insert("~/.bin/files/node_modules");
    EXPECT_EQ(sorted(tree, FakeJudge(confirmed)),
              (Placed{{"trash", {"~/.bin/files/node_modules"}},
                      {"projectFolders", generated},
                      {"logs", {"~/Library/Logs/x"}},
                      {"oldDownloads", {"~/Downloads/old.pkg"}}}));
}

TEST(DiskSorting, PlacesNothingThatWasMovedAway) {
    const DiskTree tree = treeAt("/", wholeDisk);
    EXPECT_EQ(sorted(tree.removing({"/"}), diskJudge), Placed());
    // What is left of an item is still that item.
    Placed expected = placedOfDisk;
    expected["largeFiles"].erase("~/Documents/film.mov");
    EXPECT_EQ(sorted(tree.removing({expanded("~/Documents"), expanded("~/Library/Caches/pip/1")}),
                     diskJudge),
              expected);
}

TEST(DiskSorting, ReportsAsTheHeaderShows) {
    const std::string trash = platform::trashPlaces().home.path();
    const DiskTree tree = DiskTree::example(FileURL(), {{trash + "/thrown away", 5}});
    std::string report;
    const auto options = DiskSorting::Options::current();
    const DiskSorting sorting(tree, ProjectFolderJudge::live(), options);
    for (const DiskGroup group : allCases<DiskGroup>()) {
        report += std::string(title(group)) + ": ";
        report += RoomText::bytes(sorting.bytes(group)) + "\n";
    }
    EXPECT_TRUE(report.starts_with("Trash: 5 bytes\nGenerated project folders: Zero KB\n"));
}

TEST(DiskSorting, CountsAgesAndSizesToTheSecondAndTheByte) {
    constexpr double second = 1 / day;
    Files files{fileOf("~/Downloads/read", 1, 900),
                fileOf("~/sparse", 9 * gigabyte, 900),
                fileOf("~/read", gigabyte, 900),
                fileOf("~/Downloads/exactly", 1, 90),
                fileOf("~/Downloads/almost", 1, 90 - second),
                fileOf("~/Downloads/one new/a", 1, 900),
                fileOf("~/Downloads/one new/b/c", 1, 90 - second),
                fileOf("~/Downloads/visited/a", 1, 900),
                fileOf("~/exactly", gigabyte, 365),
                fileOf("~/almost", gigabyte, 365 - second),
                fileOf("~/small", gigabyte - 1, 900),
                fileOf("~/link", gigabyte, 900)};
    files[0].accessed = now.adding(-89 * day);
    files[1].allocatedBytes = gigabyte - 1;
    files[2].accessed = now;
    const DiskTree plain = treeAt("~", files);
    const auto at = [&](std::string_view path) {
        return static_cast<std::size_t>(plain.index(expanded(path)).value());
    };
    DiskTree::Columns columns = plain.columns();
    columns.flags[at("~/link")].insert(DiskTree::Flags::symlink);
    // A scan reads folders, which is no use of them.
    columns.accessed[at("~/Downloads/visited")] = 1'700'000'000;
    EXPECT_EQ(sorted(DiskTree(columns)),
              (Placed{{"oldDownloads", {"~/Downloads/exactly", "~/Downloads/visited"}},
                      {"largeFiles", {"~/exactly"}}}));
}

} // namespace
} // namespace tidyro

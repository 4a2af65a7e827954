#include "StorageEngine/DiskTree/DiskSorting.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "Base/PathText.h"

namespace tidyro {
namespace {

using Flags = DiskTree::Flags;
using Files = std::vector<DiskTree::ExampleFile>;
/// What a sorting placed: paths by group, nothing for an empty group.
using Placed = std::map<std::string_view, std::set<std::string>>;

constexpr double day = 86'400;
constexpr std::uint64_t gigabyte = 1'000'000'000;
constexpr Timestamp now = Timestamp::since1970(1'700'000'000);

const DiskSorting::Options& options() {
    static const DiskSorting::Options fixed{
        .home = FileURL::folder("/home/ada"),
        .now = now,
        .trash = {.belowHome = {".bin/files"}, .belowVolume = {".Trash-7"}}};
    return fixed;
}

/// Says yes to the folders that it is given.
class FakeJudge final : public ProjectFolderJudge {
  public:
    explicit FakeJudge(std::set<std::string> generated = {}) : generated_(std::move(generated)) {}
    [[nodiscard]] bool confirms(const DiskTree& tree, NodeNumber folder) const override {
        return generated_.contains(tree.path(folder));
    }

  private:
    std::set<std::string> generated_;
};

DiskTree::ExampleFile fileOf(std::string path, std::uint64_t bytes, double daysUnused = 0) {
    return {.path = std::move(path), .bytes = bytes, .modified = now.adding(-daysUnused * day)};
}

Placed sorted(const DiskTree& tree, const ProjectFolderJudge& judge = FakeJudge()) {
    const DiskSorting sorting(tree, judge, options());
    Placed placed;
    for (const DiskGroup group : allCases<DiskGroup>()) {
        std::uint64_t bytes = 0;
        for (const NodeNumber node : sorting.items(group)) {
            EXPECT_TRUE(placed[rawValue(group)].insert(tree.path(node)).second) << tree.path(node);
            bytes += tree.size(node, true);
        }
        EXPECT_EQ(sorting.bytes(group), bytes);
    }
    return placed;
}

/// The tree of those files, given by absolute paths, that lie in the root.
DiskTree treeAt(std::string_view root, const Files& files) {
    Files inside;
    std::ranges::copy_if(files, std::back_inserter(inside), [&](const DiskTree::ExampleFile& file) {
        return path::isInsideOrEqual(file.path, root);
    });
    return DiskTree::example(FileURL::folder(root), inside);
}

const Files& wholeHome() {
    static const Files files{
        fileOf("/home/ada/.bin/files/thrown/away.dmg", 1, 400),
        fileOf("/home/ada/.bin/info/thrown", 1),
        fileOf("/home/ada/src/app/node_modules/left/node_modules/pad.js", 2),
        fileOf("/home/ada/src/app/build/big", 2 * gigabyte, 800),
        fileOf("/home/ada/src/app/package.json", 1),
        fileOf("/home/ada/Library/Developer/Xcode/DerivedData/App-x/Build/o", 3),
        fileOf("/home/ada/Library/Developer/CoreSimulator/Caches/dyld/c", 3),
        fileOf("/home/ada/Library/Caches/pip/http/1", 4),
        fileOf("/home/ada/.npm/_cacache/index/x", 4),
        fileOf("/home/ada/.npm/_logs/x", 4),
        fileOf("/home/ada/Library/Caches/browser/data", 5),
        fileOf("/home/ada/Library/Caches/lone.db", 5),
        fileOf("/home/ada/Library/Caches/CloudKit/data", 5),
        fileOf("/home/ada/Library/Containers/a/Data/Library/Caches/x/y", 6),
        fileOf("/home/ada/Library/Containers/a/Data/Documents/y", 6),
        fileOf("/home/ada/Library/Logs/huge.log", 7 * gigabyte, 900),
        fileOf("/home/ada/Downloads/old.dmg", 8, 91),
        fileOf("/home/ada/Downloads/old folder/a/b", 8, 91),
        fileOf("/home/ada/Downloads/.hidden", 8, 91),
        fileOf("/home/ada/Downloads/new.txt", 8),
        fileOf("/home/ada/Downloads/new.iso", 9),
        fileOf("/home/ada/Downloads/mixed/tool.deb", 9 * gigabyte, 900),
        fileOf("/home/ada/Downloads/mixed/Tool.pkg/Contents/x", 9),
        fileOf("/home/ada/Downloads/mixed/iso/x", 9),
        fileOf("/home/ada/Downloads/mixed/film.mov", 10 * gigabyte, 900),
        fileOf("/home/ada/Documents/film.mov", 10 * gigabyte, 366),
        fileOf("/home/ada/Documents/old.dmg", 10, 900),
        fileOf("/srv/.Trash-7/old", 1),
        fileOf("/srv/Downloads/old.dmg", 10, 900),
        fileOf("/srv/Library/Caches/x/y", 10)};
    return files;
}

const FakeJudge& homeJudge() {
    static const FakeJudge judge({"/home/ada/src/app/node_modules", "/home/ada/src/app/build",
                                  "/home/ada/src/app/node_modules/left/node_modules",
                                  "/home/ada/src"}); // no tool makes a "src": never asked
    return judge;
}

const Placed& homePlaced() {
    static const Placed placed{
        {"trash", {"/home/ada/.bin/files/thrown"}},
        {"projectFolders", {"/home/ada/src/app/node_modules", "/home/ada/src/app/build"}},
        {"appleDeveloper",
         {"/home/ada/Library/Developer/Xcode/DerivedData/App-x",
          "/home/ada/Library/Developer/CoreSimulator/Caches"}},
        {"packageCaches", {"/home/ada/Library/Caches/pip", "/home/ada/.npm/_cacache"}},
        {"applicationCaches",
         {"/home/ada/Library/Caches/browser", "/home/ada/Library/Caches/lone.db"}},
        {"sandboxedCaches", {"/home/ada/Library/Containers/a/Data/Library/Caches/x"}},
        {"logs", {"/home/ada/Library/Logs/huge.log"}},
        {"oldDownloads", {"/home/ada/Downloads/old.dmg", "/home/ada/Downloads/old folder"}},
        {"installers",
         {"/home/ada/Downloads/new.iso", "/home/ada/Downloads/mixed/tool.deb",
          "/home/ada/Downloads/mixed/Tool.pkg"}},
        {"largeFiles", {"/home/ada/Downloads/mixed/film.mov", "/home/ada/Documents/film.mov"}}};
    return placed;
}

// Whether the tree holds the home, is it, lies in it or has nothing to do with it: an item is the
// same item.
TEST(DiskSorting, PlacesTheSameItemsFromEveryRoot) {
    for (const std::string_view root : {"/",
                                        "/home",
                                        "/home/ada",
                                        "/home/ada/Library",
                                        "/home/ada/Library/Caches",
                                        "/home/ada/Library/Caches/pip",
                                        "/home/ada/Library/Caches/browser",
                                        "/home/ada/Library/Caches/CloudKit",
                                        "/home/ada/Library/Caches/pip/http",
                                        "/home/ada/Library/Containers/a",
                                        "/home/ada/Library/Developer",
                                        "/home/ada/.npm",
                                        "/home/ada/.bin",
                                        "/home/ada/.bin/files",
                                        "/home/ada/.bin/files/thrown",
                                        "/home/ada/src/app",
                                        "/home/ada/src/app/build",
                                        "/home/ada/Downloads",
                                        "/home/ada/Downloads/mixed",
                                        "/home/ada/Downloads/mixed/Tool.pkg",
                                        "/home/ada/Documents",
                                        "/home/ada/Downloads/old folder"}) {
        Placed expected;
        for (const auto& [group, paths] : homePlaced()) {
            for (const std::string& path : paths) {
                if (path::isInsideOrEqual(path, root)) expected[group].insert(path);
            }
        }
        EXPECT_EQ(sorted(treeAt(root, wholeHome()), homeJudge()), expected) << root;
    }
    EXPECT_EQ(sorted(treeAt("/srv", wholeHome())), (Placed{{"trash", {"/srv/.Trash-7/old"}}}));
}

TEST(DiskSorting, TheFirstGroupTakesAnItem) {
    const Files files{fileOf("/home/ada/.bin/files/node_modules/x", 1),
                      fileOf("/home/ada/Library/Caches/build/x", 1),
                      fileOf("/home/ada/.gradle/caches/x", 1),
                      fileOf("/home/ada/Downloads/target/x.dmg", 1, 900),
                      fileOf("/home/ada/Downloads/old.pkg", 2 * gigabyte, 900),
                      fileOf("/home/ada/Library/Logs/x", 2 * gigabyte, 900)};
    const DiskTree tree = treeAt("/home/ada", files);
    const Placed known{{"trash", {"/home/ada/.bin/files/node_modules"}},
                       {"logs", {"/home/ada/Library/Logs/x"}}};
    Placed judged = known;
    judged["projectFolders"] = {"/home/ada/Library/Caches/build", "/home/ada/.gradle",
                                "/home/ada/Downloads/target"};
    judged["oldDownloads"] = {"/home/ada/Downloads/old.pkg"};
    EXPECT_EQ(
        sorted(tree, FakeJudge({"/home/ada/.bin/files/node_modules", "/home/ada/.gradle",
                                "/home/ada/Library/Caches/build", "/home/ada/Downloads/target"})),
        judged);
    Placed unjudged = known;
    unjudged["packageCaches"] = {"/home/ada/.gradle/caches"};
    unjudged["applicationCaches"] = {"/home/ada/Library/Caches/build"};
    unjudged["oldDownloads"] = {"/home/ada/Downloads/target", "/home/ada/Downloads/old.pkg"};
    EXPECT_EQ(sorted(tree), unjudged);
}

TEST(DiskSorting, PlacesNothingThatWasMovedAway) {
    const DiskTree tree = treeAt("/", wholeHome());
    std::set<std::string> paths;
    for (const auto& [group, items] : homePlaced()) {
        for (const std::string& item : items) paths.insert(item);
    }
    paths.insert("/srv");
    EXPECT_EQ(sorted(tree.removing(paths), homeJudge()), Placed());
    EXPECT_EQ(sorted(tree.removing({"/"}), homeJudge()), Placed());
    // What is left of an item is still that item.
    Placed expected = homePlaced();
    expected["largeFiles"].erase("/home/ada/Documents/film.mov");
    EXPECT_EQ(sorted(tree.removing({"/home/ada/Documents", "/home/ada/Library/Caches/pip/http"}),
                     homeJudge()),
              expected);
}

TEST(DiskSorting, CountsAgesAndSizesToTheSecondAndTheByte) {
    constexpr double second = 1 / day;
    Files files{fileOf("/home/ada/Downloads/exactly", 1, 90),
                fileOf("/home/ada/Downloads/almost", 1, 90 - second),
                fileOf("/home/ada/Downloads/read", 1, 900),
                fileOf("/home/ada/Downloads/one new/a", 1, 900),
                fileOf("/home/ada/Downloads/one new/b/c", 1, 90 - second),
                fileOf("/home/ada/exactly", gigabyte, 365),
                fileOf("/home/ada/almost", gigabyte, 365 - second),
                fileOf("/home/ada/small", gigabyte - 1, 900),
                fileOf("/home/ada/sparse", 9 * gigabyte, 900),
                fileOf("/home/ada/read", gigabyte, 900),
                fileOf("/home/ada/link", gigabyte, 900)};
    files[2].accessed = now.adding(-89 * day);
    files[8].allocatedBytes = 4'096;
    files[9].accessed = now;
    const DiskTree plain = treeAt("/home/ada", files);
    DiskTree::Columns columns = plain.columns();
    columns.flags[static_cast<std::size_t>(*plain.index("/home/ada/link"))].insert(Flags::symlink);
    // A scan reads folders, which is no use of them.
    columns.accessed[static_cast<std::size_t>(*plain.index("/home/ada/Downloads"))] = 1'700'000'000;
    EXPECT_EQ(sorted(DiskTree(columns)), (Placed{{"oldDownloads", {"/home/ada/Downloads/exactly"}},
                                                 {"largeFiles", {"/home/ada/exactly"}}}));
}

} // namespace
} // namespace tidyro

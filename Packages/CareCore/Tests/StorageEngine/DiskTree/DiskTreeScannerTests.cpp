// Scans of real trees.
#include "StorageEngine/DiskTree/DiskTreeScanner.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <stop_token>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Base/RoomText.h"
#include "Platform/Machine/OperatingSystem.h"
#include "StorageEngine/DiskTree/ScannedTree.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

using Flags = DiskTree::Flags;
using testing::has;
using testing::scanned;
using testing::TemporaryFolder;

/// Every node's path below the root, with what is told of it.
std::map<std::string, std::string> facts(const DiskTree& tree) {
    std::map<std::string, std::string> all;
    tree.forEachDescendant(DiskTree::root, {.includingSelf = true}, [&](NodeNumber node) {
        const bool isFolder = tree.isDirectory(node);
        all[tree.path(node)] = fmt::format("{} {} {} {} {}", tree.size(node, {.onDisk = false}),
                                           tree.size(node, {.onDisk = true}), tree.fileCount(node),
                                           tree.folderCount(node),
                                           isFolder                                    ? "folder"
                                           : tree.flags(node).contains(Flags::symlink) ? "link"
                                                                                       : "file");
    });
    return all;
}

/// The same facts by the plainest recursion there is.
struct Naive {
    std::map<std::string, std::string> all;
    std::set<std::pair<dev_t, ino_t>> seen;

    struct Sums {
        std::uint64_t logical = 0, allocated = 0, files = 0, folders = 0;
    };

    Sums walk(const std::string& path) {
        Sums sums;
        for (const auto& entry : std::filesystem::directory_iterator(path)) {
            struct stat status{};
            EXPECT_EQ(::lstat(entry.path().c_str(), &status), 0);
            Sums below{.logical = static_cast<std::uint64_t>(status.st_size),
                       .allocated = static_cast<std::uint64_t>(status.st_blocks) * 512};
            if (S_ISDIR(status.st_mode)) {
                below = walk(entry.path().string());
                ++sums.folders;
            } else {
                ++sums.files;
                const bool isExtra =
                    status.st_nlink > 1 && !seen.insert({status.st_dev, status.st_ino}).second;
                if (isExtra) below.logical = below.allocated = 0;
                all[entry.path().string()] =
                    fmt::format("{} {} 0 0 {}", below.logical, below.allocated,
                                S_ISLNK(status.st_mode) ? "link" : "file");
            }
            sums.logical += below.logical;
            sums.allocated += below.allocated;
            sums.files += below.files;
            sums.folders += below.folders;
        }
        all[path] = fmt::format("{} {} {} {} folder", sums.logical, sums.allocated, sums.files,
                                sums.folders);
        return sums;
    }
};

TEST(DiskTreeScanner, AgreesWithAPlainCountWhateverTheNumberOfWorkers) {
    const TemporaryFolder place;
    for (int i = 0; i < 40; ++i) {
        place.noise(fmt::format("many/{}/{}.bin", i % 7, i), static_cast<std::size_t>(i) * 1'111);
    }
    place.folder("empty/in/empty");
    place.file("odd/new\nline", "x");
    place.file("odd/esc\x1B[2Jape", "xy");
    place.file("odd/not utf8 \xFF\xC3", "xyz");
    place.file("odd/" + std::string(255, 'n'), "x");
    place.link("a link to a folder", "many");
    place.link("a broken link", "nowhere at all");
    place.pipe("pipe");
    place.socket("socket");
    place.hole("hole", 5'000'000'000);
    place.noise("linked/first", 70'000);
    place.hardLink("linked/second", "linked/first");

    Naive naive;
    naive.walk(place.path());
    for (const std::int64_t workers : {1, 2, 4, 12}) {
        const DiskTree tree = scanned(place.path(), DiskTreeScanner(workers));
        const std::string first = place / "linked/first";
        const std::string second = place / "linked/second";
        if (naive.all[first].starts_with("0 ")) std::swap(naive.all[first], naive.all[second]);
        EXPECT_EQ(facts(tree), naive.all);
        EXPECT_FALSE(has(tree, first, Flags::extraHardLink));
        EXPECT_TRUE(has(tree, second, Flags::extraHardLink));
        EXPECT_EQ(tree.deniedCount(), 0);
    }
}

TEST(DiskTreeScanner, IsUsedAsItsHeaderShows) {
    const auto count = [](const FileURL& folder) -> std::string {
        const DiskTreeScanner scanner;
        const auto tree = scanner.scan(folder);
        if (!tree) return DiskTreeScanner::description(tree.error());
        return RoomText::counted(tree->fileCount(DiskTree::root), "file", "files");
    };
    const TemporaryFolder place;
    place.file("one", "x");
    EXPECT_EQ(count(FileURL::folder(place.path())), "1 file");
    EXPECT_EQ(count(FileURL::file(place / "one")), place / "one" + " is not a folder.");
}

TEST(DiskTreeScanner, TellsEntriesApart) {
    const TemporaryFolder place;
    place.file("photo.JPG", "x");
    place.file(".hidden/notes.md", "x");
    place.file("Thing.app/Contents/movie.mp4", "x");
    place.file("web/node_modules/a/index.mp3", "x");
    place.file("Caches/song.mp3", "x");
    place.file("Letter.pages/data.zip", "x");
    place.link("target.zip", "photo.JPG");
    place.times("photo.JPG", 2'000'000'000, 1'500'000'000);
    place.file("ancient", "x");
    place.times("ancient", -5, -5);
    const DiskTree tree = scanned(place.path());
    const auto kind = [&](const char* name) { return tree.kind(*tree.index(place / name)); };

    EXPECT_EQ(kind("photo.JPG"), ContentKind::image);
    EXPECT_EQ(kind(".hidden/notes.md"), ContentKind::document);
    EXPECT_EQ(kind("Thing.app"), ContentKind::application);
    EXPECT_EQ(kind("Thing.app/Contents/movie.mp4"), ContentKind::application);
    EXPECT_EQ(kind("web/node_modules/a/index.mp3"), ContentKind::developer);
    EXPECT_EQ(kind("Caches/song.mp3"), ContentKind::cachesAndLogs);
    EXPECT_EQ(kind("Letter.pages/data.zip"), ContentKind::archive);
    EXPECT_TRUE(has(tree, place / "Thing.app", Flags::package));
    EXPECT_TRUE(has(tree, place / "Letter.pages", Flags::package));
    EXPECT_FALSE(has(tree, place / "web", Flags::package));
    EXPECT_TRUE(has(tree, place / ".hidden", Flags::hidden));
    EXPECT_FALSE(has(tree, place / ".hidden/notes.md", Flags::hidden));
    EXPECT_TRUE(has(tree, place / "target.zip", Flags::symlink));
    const NodeNumber photo = *tree.index(place / "photo.JPG");
    EXPECT_EQ(tree.modifiedDate(photo).secondsSince1970(), 1'500'000'000);
    EXPECT_EQ(tree.lastUsedSeconds(photo), 2'000'000'000U);
    EXPECT_EQ(tree.lastUsedSeconds(*tree.index(place / "ancient")), 0U);
}

TEST(DiskTreeScanner, RefusesARootThatIsNoReadableFolder) {
    const TemporaryFolder place;
    place.file("file", "x");
    place.folder("closed");
    place.permissions("closed", 0);
    place.file("listed only/inside", "x");
    place.permissions("listed only", 0444);
    place.folder("real");
    place.link("link", "real");
    const auto told = [&](const std::string& name) {
        const auto tree = DiskTreeScanner().scan(FileURL::folder(place / name));
        return tree ? "fine" : DiskTreeScanner::description(tree.error());
    };
    EXPECT_EQ(told("file"), place / "file" + " is not a folder.");
    const auto notRead = [&](const std::string& name, const char* reason) {
        return fmt::format(fmt::runtime(platform::systemText(SystemText::folderWasNotRead)),
                           fmt::arg("path", place / name), fmt::arg("reason", reason));
    };
    EXPECT_EQ(told("missing"), notRead("missing", "No such file or directory"));
    EXPECT_EQ(told("link"), "fine");
    for (const std::string& name : {std::string("closed"), std::string("listed only")}) {
        EXPECT_EQ(testing::asOrdinaryUser([&] { return told(name); }),
                  notRead(name, "Permission denied"));
    }
}

TEST(DiskTreeScanner, CountsFoldersThatAreClosed) {
    const TemporaryFolder place;
    place.file("open/file", "1234");
    place.file("closed/file", "1234");
    place.file("listed only/file", "1234");
    place.file("searched only/file", "1234");
    place.permissions("closed", 0);
    place.permissions("listed only", 0444);
    place.permissions("searched only", 0111);
    const std::string told = testing::asOrdinaryUser([&] {
        const DiskTree tree = scanned(place.path());
        std::string text = fmt::format("{} denied, {} bytes;", tree.deniedCount(),
                                       tree.size(DiskTree::root, {.onDisk = false}));
        for (const char* name : {"open", "closed", "listed only", "searched only"}) {
            const NodeNumber node = *tree.index(place / name);
            text += fmt::format(" {}:{}{}", name, tree.children(node).size(),
                                tree.flags(node).contains(Flags::denied) ? " denied" : "");
        }
        return text;
    });
    EXPECT_EQ(told, "3 denied, 4 bytes; open:1 closed:0 denied listed only:0 denied "
                    "searched only:0 denied");
}

/// A chain of folders far deeper than any path that the system opens, each with a second folder
/// beside the next, so that many folders wait at once. Returns the number of levels.
int makeDeepComb(const TemporaryFolder& place, int levels) {
    const std::string name(200, 'd');
    int folder = ::open(place.path().c_str(), O_RDONLY | O_DIRECTORY);
    for (int i = 0; i < levels; ++i) {
        EXPECT_EQ(::mkdirat(folder, name.c_str(), 0755), 0);
        EXPECT_EQ(::mkdirat(folder, "beside", 0755), 0);
        const int next = ::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY);
        const int file = ::openat(folder, "beside/file", O_WRONLY | O_CREAT, 0644);
        EXPECT_EQ(::write(file, "x", 1), 1);
        ::close(file);
        ::close(folder);
        folder = next;
    }
    ::close(folder);
    return levels;
}

TEST(DiskTreeScanner, ReadsTreesDeeperThanAnyPathWithFewOpenFiles) {
    const TemporaryFolder place;
    const auto levels = static_cast<std::uint32_t>(makeDeepComb(place, 1'000));
    for (const rlim_t openFiles : {24U, 200U, 1'024U}) {
        const std::string told = testing::inChild([&] {
            const rlimit limit{.rlim_cur = openFiles, .rlim_max = openFiles};
            if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) return std::string("no limit");
            const DiskTree tree = scanned(place.path());
            NodeNumber deepest = 0;
            for (NodeNumber node = 0; node < tree.count(); ++node) {
                if (tree.path(node).size() > tree.path(deepest).size()) deepest = node;
            }
            return fmt::format("{} files, {} folders, {} denied, {}", tree.fileCount(0),
                               tree.folderCount(0), tree.deniedCount(),
                               tree.path(deepest).size() - place.path().size());
        });
        EXPECT_EQ(told, fmt::format("{} files, {} folders, 0 denied, {}", levels, 2 * levels,
                                    201 * levels))
            << openFiles;
    }
}

TEST(DiskTreeScanner, EndsWithFewerOpenFilesThanItsWorkersAskFor) {
    const TemporaryFolder place;
    for (int i = 0; i < 200; ++i) {
        place.file(fmt::format("{}/{}/{}/file", i % 10, i / 10 % 5, i / 50), "1234");
    }
    const auto whole = facts(scanned(place.path()));
    for (const auto& [spare, expected] : std::map<unsigned, std::string>{
             {2, "Too many open files"}, // a way of two names takes two besides the root's
             {3, "the same"},
             {6, "the same"},
             {9, "the same"},
             {14, "the same"}}) {
        EXPECT_EQ(
            testing::inChild([&] {
                ::alarm(30); // a walk that never ends is a failure, not a wait
                if (!testing::leaveOpenFiles(spare)) return std::string("no limit");
                const auto tree = DiskTreeScanner(12).scan(FileURL::folder(place.path()));
                if (!tree) {
                    return std::get<DiskTreeScanner::Unreadable>(tree.error()).error.description();
                }
                return std::string(facts(*tree) == whole ? "the same" : "another tree");
            }),
            expected)
            << spare;
    }
}

TEST(DiskTreeScanner, LeavesOutWhatItIsToldToSkip) {
    const TemporaryFolder place;
    for (const char* name : {"a/x/1", "a/xy/2", "b/x/3", "b/deep/er/4"}) place.file(name, "x");
    DiskTreeScanner scanner;
    scanner.skipping = {place / "a/x", place / "missing", place / "b/deep/er/4"};
    scanner.skippingContentsOf = {place / "b/x"};
    const DiskTree tree = scanned(place.path(), scanner);
    std::set<std::string> found;
    for (const auto& [path, fact] : facts(tree)) found.insert(path.substr(place.path().size()));
    EXPECT_GT(tree.modifiedDate(*tree.index(place / "b/x")).secondsSince1970(), 1'000'000'000);
    EXPECT_THAT(found, ::testing::ElementsAre("", "/a", "/a/xy", "/a/xy/2", "/b", "/b/deep",
                                              "/b/deep/er", "/b/x"));

    const auto guarded = DiskTreeScanner::privacyGuardedFolders(FileURL::folder("/Users/ada"));
    EXPECT_TRUE(guarded.skipping.contains("/Users/ada/Library/CloudStorage"));
    EXPECT_TRUE(guarded.skippingContentsOf.contains("/Users/ada/Library/Group Containers"));
    EXPECT_EQ(guarded.skipping.size() + guarded.skippingContentsOf.size(), 4U);
}

TEST(DiskTreeScanner, LeavesOutWhatVanishesMeanwhile) {
    const TemporaryFolder place;
    for (int i = 0; i < 30; ++i) place.file(fmt::format("{:02}/inside/file", i), "12");
    place.folder("target");
    DiskTreeScanner scanner(1);
    bool isFirst = true;
    scanner.afterBulkRead = [&] {
        if (!std::exchange(isFirst, false)) return;
        for (int i = 0; i < 30; i += 3) { // gone, and replaced by something else
            std::filesystem::remove_all(place / fmt::format("{:02}", i));
            if (i % 2 == 0) place.link(fmt::format("{:02}", i), "target");
        }
    };
    const DiskTree tree = scanned(place.path(), scanner);
    EXPECT_EQ(tree.fileCount(0), 20U);
    EXPECT_EQ(tree.folderCount(0), 41U);
    EXPECT_EQ(tree.size(0, {.onDisk = false}), 40U);
    EXPECT_EQ(tree.deniedCount(), 0);
    EXPECT_FALSE(tree.index(place / "03"));
    EXPECT_EQ(tree.path(*tree.index(place / "29/inside/file")), place / "29/inside/file");
    std::set<NodeNumber> visited;
    tree.forEachDescendant(0, {.includingSelf = true}, [&](NodeNumber node) {
        EXPECT_TRUE(visited.insert(node).second);
        for (const NodeNumber child : tree.children(node)) EXPECT_EQ(tree.parent(child), node);
    });
    EXPECT_EQ(visited.size(), static_cast<std::size_t>(tree.count()));
}

TEST(DiskTreeScanner, EndsSoonWhenItIsCancelled) {
    const TemporaryFolder place;
    for (int i = 0; i < 200; ++i) place.file(fmt::format("{}/file", i), "x");
    std::stop_source source;
    DiskTreeScanner scanner(4);
    std::atomic<int> reads = 0;
    scanner.afterBulkRead = [&] {
        if (++reads == 20) source.request_stop();
    };
    const auto tree = scanner.scan(FileURL::folder(place.path()), nullptr, source.get_token());
    ASSERT_FALSE(tree.has_value());
    EXPECT_TRUE(std::holds_alternative<CancellationError>(tree.error()));
    EXPECT_LT(reads, 60);

    scanner.afterBulkRead = nullptr; // asked before it began
    EXPECT_FALSE(scanner.scan(FileURL::folder(place.path()), nullptr, source.get_token()));
}

TEST(DiskTreeScanner, ReportsProgressAndClampsItsWorkers) {
    const TemporaryFolder place;
    for (int i = 0; i < 50; ++i) place.file(fmt::format("{}/file", i), "123");
    std::vector<DiskTreeScanner::Progress> reports;
    const DiskTreeScanner scanner(1, 0);
    const auto tree = scanner.scan(FileURL::folder(place.path()),
                                   [&](const auto& progress) { reports.push_back(progress); });
    ASSERT_EQ(reports.size(), 51U);
    EXPECT_EQ(reports.back().items, 100U);
    EXPECT_EQ(reports.back().folders, 50U);
    EXPECT_EQ(reports.back().logicalBytes, 150U);
    EXPECT_EQ(reports.front().currentPath, place.path());
    EXPECT_TRUE(std::ranges::is_sorted(reports, {}, &DiskTreeScanner::Progress::items));

    EXPECT_EQ(DiskTreeScanner(0).workerCount, 1);
    EXPECT_EQ(DiskTreeScanner(-7).workerCount, 1);
    EXPECT_EQ(DiskTreeScanner(3).workerCount, 3);
    EXPECT_GE(DiskTreeScanner().workerCount, 4);
    EXPECT_LE(DiskTreeScanner().workerCount, 12);
}

#ifdef __linux__
TEST(DiskTreeScanner, ReadsProcWhileProcessesComeAndGo) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    const DiskTree tree = scanned("/proc");
    EXPECT_GT(tree.count(), 100);
}
#endif

} // namespace
} // namespace tidyro

#include "StorageEngine/DiskTree/DiskTree.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Base/PathText.h"

namespace tidyro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Flags = DiskTree::Flags;
using Files = std::vector<DiskTree::ExampleFile>;

constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();

NodeNumber nodeAt(const DiskTree& tree, std::string_view path) {
    const auto node = tree.index(path);
    EXPECT_TRUE(node) << path;
    return node.value_or(DiskTree::root);
}

// Against naive versions: a random tree and what it was made from -------------------------------

struct Model {
    std::map<std::string, DiskTree::ExampleFile> files; // by absolute path, as the folders
    std::set<std::string> folders;
};

Model randomModel(std::uint32_t seed) {
    std::mt19937 random(seed);
    Model model;
    for (int i = 0; i < 300; ++i) {
        std::string path = "/r";
        for (auto depth = random() % 5; depth > 0; --depth) {
            path += "/d" + std::to_string(random() % 4);
            model.folders.insert(path);
        }
        path += "/F" + std::to_string(random() % 60) + (random() % 2 == 0 ? ".log" : ".Jpg");
        // Few different sizes and dates, so that many are equal.
        model.files[path] = {.path = path,
                             .bytes = random() % 12 * 100,
                             .allocatedBytes = random() % 12 * 4'096,
                             .modified = Timestamp::since1970(static_cast<double>(random() % 8)),
                             .accessed = Timestamp::since1970(static_cast<double>(random() % 8))};
    }
    return model;
}

DiskTree treeOf(const Model& model) {
    Files files;
    for (const auto& [path, file] : model.files) files.push_back(file);
    return DiskTree::example(FileURL::folder("/r"), files);
}

/// Everything that the tree tells of a node, told again from the paths alone.
void expectTotals(const DiskTree& tree, NodeNumber node, const Model& model) {
    const std::string path = tree.path(node);
    SCOPED_TRACE(path);
    std::uint64_t logical = 0, allocated = 0, images = 0, files = 0, folders = 0;
    for (const auto& [filePath, file] : model.files) {
        if (!path::isInsideOrEqual(filePath, path)) continue;
        logical += file.bytes;
        allocated += *file.allocatedBytes;
        if (filePath.ends_with("Jpg")) images += *file.allocatedBytes;
        if (filePath != path) ++files;
    }
    for (const std::string& folder : model.folders) {
        if (folder != path && path::isInsideOrEqual(folder, path)) ++folders;
    }
    EXPECT_EQ(tree.index(path), node);
    EXPECT_NE(tree.isDirectory(node), model.files.contains(path));
    EXPECT_EQ(tree.size(node, false), logical);
    EXPECT_EQ(tree.size(node, true), allocated);
    EXPECT_EQ(tree.fileCount(node), files);
    EXPECT_EQ(tree.folderCount(node), folders);
    const auto byKind = tree.bytesByKind(node, true);
    EXPECT_EQ(byKind[static_cast<std::size_t>(ContentKind::image)], images);
    EXPECT_EQ(byKind[static_cast<std::size_t>(ContentKind::cachesAndLogs)], allocated - images);
    for (const NodeNumber child : tree.children(node)) EXPECT_EQ(tree.parent(child), node);
}

/// A ranking is right when it holds only what is accepted, each once, of the naive sizes.
void expectRanking(const DiskTree& tree, const DiskTree::Ranking& ranking,
                   const std::vector<NodeNumber>& found, const std::set<NodeNumber>& accepted) {
    std::vector<std::uint64_t> naive;
    for (const NodeNumber node : accepted) naive.push_back(tree.size(node, ranking.onDisk));
    std::ranges::sort(naive, std::ranges::greater{});
    naive.resize(
        std::min(naive.size(), static_cast<std::size_t>(std::max<std::int64_t>(ranking.limit, 0))));
    std::vector<std::uint64_t> sizes;
    for (const NodeNumber node : found) sizes.push_back(tree.size(node, ranking.onDisk));
    EXPECT_EQ(sizes, naive) << "limit " << ranking.limit;
    EXPECT_TRUE(std::ranges::includes(accepted, std::set(found.begin(), found.end())));
    EXPECT_EQ(std::set(found.begin(), found.end()).size(), found.size());
}

void expectRankings(const DiskTree& tree, NodeNumber under) {
    std::set<NodeNumber> files, folders, untouched, named;
    const std::function<void(NodeNumber)> collect = [&](NodeNumber folder) {
        for (const NodeNumber node : tree.children(folder)) {
            if (tree.flags(node).contains(Flags::movedAway)) continue;
            (tree.isDirectory(node) ? folders : files).insert(node);
            if (tree.name(node).find('1') != std::string::npos) named.insert(node);
            if (!tree.isDirectory(node) && tree.lastUsedSeconds(node) < 5 &&
                tree.size(node, true) >= 8'192) {
                untouched.insert(node);
            }
            collect(node);
        }
    };
    collect(under);
    for (const std::int64_t limit : {-1, 0, 1, 7, 50, 1'000'000}) {
        const DiskTree::Ranking ranking{.under = under, .limit = limit, .onDisk = true};
        expectRanking(tree, ranking, tree.largestFiles(ranking), files);
        expectRanking(tree, ranking, tree.largestFolders(ranking), folders);
        expectRanking(tree, ranking, tree.untouchedFiles(ranking, 5, 8'192), untouched);
        expectRanking(tree, ranking, tree.matching("1", ranking), named);
    }
}

TEST(DiskTree, AgreesWithNaiveVersions) {
    for (std::uint32_t seed = 1; seed <= 3; ++seed) {
        const Model model = randomModel(seed);
        const DiskTree tree = treeOf(model);
        // The root is neither among the folders nor the files.
        ASSERT_EQ(static_cast<std::size_t>(tree.count()),
                  1 + tree.fileCount(0) + tree.folderCount(0));
        for (NodeNumber node = 0; node < tree.count(); ++node) expectTotals(tree, node, model);
        expectRankings(tree, DiskTree::root);
        expectRankings(tree, nodeAt(tree, "/r/d1"));
        expectRankings(tree, nodeAt(tree, model.files.begin()->first));
    }
}

TEST(DiskTree, AgreesWithNaiveVersionsAfterRemoving) {
    for (std::uint32_t seed = 4; seed <= 6; ++seed) {
        Model model = randomModel(seed);
        const DiskTree whole = treeOf(model);
        // Nested, repeated, in another writing, and not there at all.
        std::set<std::string> gone{"/r/d1/d2", "/r/d1/d2/",  "/r/d1", "/r/d0/../d1/d0",
                                   "/r/none",  "/elsewhere", "",      model.files.begin()->first};
        for (NodeNumber node = 7; node < whole.count(); node += 40) gone.insert(whole.path(node));
        const auto isGone = [&](std::string_view path) {
            return std::ranges::any_of(gone, [&](const std::string& place) {
                return path::isInsideOrEqual(path, path::standardized(place));
            });
        };
        std::erase_if(model.files, [&](const auto& entry) { return isGone(entry.first); });
        std::erase_if(model.folders, isGone);
        DiskTree stepwise = whole; // the last first, so that folders go after what they hold
        for (auto path = gone.rbegin(); path != gone.rend(); ++path) {
            stepwise = stepwise.removing({*path}).removing({*path});
        }
        for (const DiskTree& tree : {whole.removing(gone), stepwise}) {
            ASSERT_EQ(tree.count(), whole.count());
            for (NodeNumber node = 0; node < tree.count(); ++node) {
                if (!isGone(tree.path(node))) expectTotals(tree, node, model);
            }
            expectRankings(tree, DiskTree::root);
        }
        EXPECT_FALSE(whole.flags(nodeAt(whole, "/r/d1")).contains(Flags::movedAway));
    }
}

// By hand ----------------------------------------------------------------------------------------

TEST(DiskTree, TotalsStopAtTheEndsOfTheirRange) {
    const DiskTree tree = DiskTree::example(
        FileURL::folder("/r"), {{.path = "d/a", .bytes = largest}, {.path = "d/b", .bytes = 5}});
    EXPECT_EQ(tree.size(DiskTree::root, false), largest);
    EXPECT_EQ(tree.bytesByKind(DiskTree::root, true)[0], largest);
    const DiskTree left = tree.removing({"/r/d/a", "/r/d/b"});
    EXPECT_EQ(left.size(DiskTree::root, false), 0U);
    EXPECT_EQ(left.fileCount(DiskTree::root), 0U);
    EXPECT_EQ(left.folderCount(DiskTree::root), 1U);
    EXPECT_EQ(left.shareOfParent(nodeAt(left, "/r/d"), true), 0);
}

TEST(DiskTree, LeavesOutWhatWentWithAFolder) {
    const DiskTree tree =
        DiskTree::example(FileURL::folder("/r"), {{.path = "d/a.log", .bytes = 5}})
            .removing({"/r/d"});
    const NodeNumber folder = nodeAt(tree, "/r/d");
    for (const NodeNumber under : {DiskTree::root, folder, nodeAt(tree, "/r/d/a.log")}) {
        EXPECT_THAT(tree.bytesByKind(under, false), testing::Each(0U)) << tree.path(under);
        EXPECT_THAT(tree.largestFiles({.under = under, .limit = 9, .onDisk = false}), IsEmpty());
    }
}

TEST(DiskTree, KeepsPathsAsBytes) {
    const Files files{{.path = "a/b\xFF.txt", .bytes = 1}, {.path = "/usr/lib", .bytes = 2}};
    const DiskTree tree = DiskTree::example(FileURL(), files);
    const NodeNumber node = nodeAt(tree, "/a/b\xFF.txt");
    EXPECT_EQ(tree.path(node), "/a/b\xFF.txt");
    EXPECT_EQ(tree.name(node), "b\uFFFD.txt");
    EXPECT_EQ(tree.url(node), FileURL::file("/a/b\xFF.txt"));
    EXPECT_EQ(tree.url(tree.parent(node)), FileURL::folder("/a"));
    EXPECT_EQ(tree.path(DiskTree::root), "/");
    EXPECT_EQ(tree.index("/"), DiskTree::root);
    EXPECT_EQ(tree.kind(nodeAt(tree, "/usr/lib")), ContentKind::system);
    for (const std::string_view missing : {"", "a", "/b", "/A", "/a/b", "/usr/lib/x"}) {
        EXPECT_FALSE(tree.index(missing)) << missing;
    }
    EXPECT_FALSE(DiskTree::example(FileURL::folder("/r"), {}).index("/"));
}

TEST(DiskTree, IsMadeFromExamples) {
    const Files files{{.path = "x.png", .bytes = 1},
                      {.path = "x.png", .bytes = 7},
                      {.path = "x.png/under", .bytes = 99},
                      {.path = "/r/X.app/x.png", .bytes = 3},
                      {.path = "X.app", .bytes = 99},
                      {.path = ".h/f", .bytes = 0},
                      {.path = "", .bytes = 99}};
    const DiskTree tree = DiskTree::example(FileURL::folder("/r"), files);
    EXPECT_EQ(tree.size(DiskTree::root, true), 10U);
    EXPECT_EQ(tree.count(), 6);
    EXPECT_EQ(tree.kind(nodeAt(tree, "/r/x.png")), ContentKind::image);
    EXPECT_EQ(tree.kind(nodeAt(tree, "/r/X.app/x.png")), ContentKind::application);
    EXPECT_EQ(tree.flags(nodeAt(tree, "/r/X.app")).rawValue(), Flags::directory | Flags::package);
    EXPECT_EQ(tree.flags(nodeAt(tree, "/r/.h")).rawValue(), Flags::directory | Flags::hidden);
}

TEST(DiskTree, AnswersForOneNode) {
    const Timestamp early = Timestamp::since1970(10), late = Timestamp::since1970(20);
    const Files files{
        {.path = "a", .bytes = 30, .allocatedBytes = 1, .modified = late, .accessed = early},
        {.path = "b", .bytes = 10, .modified = early, .accessed = late},
        {.path = "d/c", .bytes = 20, .modified = early}};
    const DiskTree tree = DiskTree::example(FileURL::folder("/r"), files);
    const NodeNumber a = nodeAt(tree, "/r/a"), b = nodeAt(tree, "/r/b"), d = nodeAt(tree, "/r/d"),
                     c = nodeAt(tree, "/r/d/c");
    EXPECT_THAT(tree.sortedChildren(DiskTree::root, false), ElementsAre(a, d, b));
    EXPECT_THAT(tree.sortedChildren(DiskTree::root, true), ElementsAre(d, b, a));
    EXPECT_EQ(tree.shareOfParent(a, false), 0.5);
    EXPECT_EQ(tree.shareOfParent(DiskTree::root, false), 0);
    EXPECT_THAT(tree.ancestors(c), ElementsAre(d, DiskTree::root));
    EXPECT_EQ(tree.modifiedDate(a), late);
    EXPECT_EQ(tree.modifiedDate(b), early);
    for (const NodeNumber node : {a, b}) EXPECT_EQ(tree.lastUsedDate(node), late);
    EXPECT_EQ(tree.lastUsedSeconds(c), 10U);
    const DiskTree::Ranking all{.limit = 9, .onDisk = false};
    EXPECT_THAT(tree.largestFiles(all, [&](NodeNumber n) { return n != a; }), ElementsAre(c, b));
    EXPECT_THAT(tree.untouchedFiles(all, 20, 0), ElementsAre(c));
    EXPECT_THAT(tree.matching("D", all), ElementsAre(d));
}

TEST(DiskTree, FindsGitWorkingCopies) {
    const DiskTree tree =
        DiskTree::example(FileURL::folder("/r"), {{.path = "repo/.git/HEAD", .bytes = 1},
                                                  {.path = "repo/src/a.c", .bytes = 1},
                                                  {.path = "linked/.git", .bytes = 1},
                                                  {.path = "git/x.git", .bytes = 1}});
    const NodeNumber repo = nodeAt(tree, "/r/repo"), src = nodeAt(tree, "/r/repo/src"),
                     file = nodeAt(tree, "/r/repo/src/a.c");
    for (const NodeNumber node : {repo, src, file, nodeAt(tree, "/r/linked/.git")}) {
        EXPECT_TRUE(tree.isInGitWorkingCopy(node)) << tree.path(node);
    }
    EXPECT_TRUE(tree.isInGitWorkingCopy(file, repo));
    EXPECT_FALSE(tree.isInGitWorkingCopy(file, src));
    for (const NodeNumber node : {DiskTree::root, nodeAt(tree, "/r/git/x.git"), -1, tree.count()}) {
        EXPECT_FALSE(tree.isInGitWorkingCopy(node)) << node;
    }
}

TEST(DiskTree, CountsWhatSharingAndCompressionSave) {
    struct Case {
        std::string_view path;
        std::uint64_t compression, clones, shared;
        std::vector<Flags::Flag> flags;
    };
    const std::vector<Case> cases{
        {"/r/plain", 0, 0, 0, {}},
        {"/r/compressed", 5'000 - 4'096, 0, 0, {Flags::compressed}},
        {"/r/first", 0, 0, 5'000, {Flags::sharedStorage}},
        {"/r/further", 0, 8'192, 5'000, {Flags::sharedStorage, Flags::extraClone}},
        {"/r/both", 0, 8'192, 0, {Flags::compressed, Flags::extraClone}}};
    Files files;
    for (const Case& each : cases) {
        files.push_back({.path = std::string(each.path), .bytes = 5'000, .allocatedBytes = 4'096});
    }
    const DiskTree plain = DiskTree::example(FileURL::folder("/r"), files);
    EXPECT_FALSE(plain.hasSharedStorage());
    DiskTree::Columns columns = plain.columns();
    for (const Case& each : cases) {
        for (const Flags::Flag flag : each.flags) {
            columns.flags[static_cast<std::size_t>(nodeAt(plain, each.path))].insert(flag);
        }
    }
    const DiskTree tree(columns);
    EXPECT_TRUE(tree.hasSharedStorage());
    std::uint64_t compression = 0, clones = 0, shared = 0;
    for (const Case& each : cases) {
        const NodeNumber node = nodeAt(tree, each.path);
        EXPECT_EQ(tree.compressionSavings(node), each.compression) << each.path;
        EXPECT_EQ(tree.cloneSavings(node), each.clones) << each.path;
        EXPECT_EQ(tree.sharedStorageBytes(node, false), each.shared) << each.path;
        compression += each.compression;
        clones += each.clones;
        shared += each.shared;
    }
    EXPECT_EQ(tree.compressionSavings(DiskTree::root), compression);
    EXPECT_EQ(tree.cloneSavings(DiskTree::root), clones);
    EXPECT_EQ(tree.sharedStorageBytes(DiskTree::root, false), shared);
}

TEST(DiskTree, GoesDeepWithoutRecursion) {
    constexpr std::uint32_t depth = 100'000;
    std::string path;
    for (std::uint32_t i = 0; i < depth; ++i) path += "d/";
    path += "f";
    const DiskTree tree = DiskTree::example(FileURL::folder("/r"), {{.path = path, .bytes = 3}});
    EXPECT_EQ(tree.folderCount(DiskTree::root), depth);
    const auto files = tree.largestFiles({.limit = 2, .onDisk = true});
    ASSERT_EQ(files.size(), 1U);
    EXPECT_EQ(tree.path(files[0]), "/r/" + path);
    std::uint32_t visited = 0;
    tree.forEachDescendant(DiskTree::root, true, [&](NodeNumber) { ++visited; });
    EXPECT_EQ(visited, depth + 2);
    EXPECT_EQ(tree.removing({"/r/" + path}).size(DiskTree::root, true), 0U);
}

TEST(DiskTreeDeathTest, StopsOnANumberThatIsNoNode) {
    const DiskTree tree = DiskTree::example(FileURL::folder("/r"), {{.path = "a", .bytes = 1}});
    for (const NodeNumber node : {-1, std::numeric_limits<NodeNumber>::min(), tree.count()}) {
        EXPECT_DEATH(static_cast<void>(tree.size(node, true)), "not in its tree");
        EXPECT_DEATH(static_cast<void>(tree.path(node)), "not in its tree");
        EXPECT_DEATH(static_cast<void>(tree.children(node)), "not in its tree");
        EXPECT_DEATH(
            static_cast<void>(tree.largestFiles({.under = node, .limit = 1, .onDisk = true})),
            "not in its tree");
    }
    DiskTree::Columns uneven = tree.columns();
    uneven.kind.push(ContentKind::other);
    EXPECT_DEATH(DiskTree{uneven}, "shorter or longer");
}

} // namespace
} // namespace tidyro

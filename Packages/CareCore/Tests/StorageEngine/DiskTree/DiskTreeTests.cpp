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

#include <gtest/gtest.h>

#include "Base/PathText.h"
#include "Base/RoomText.h"

namespace tidyro {
namespace {

using Flags = DiskTree::Flags;
using Nodes = std::vector<NodeNumber>;
using Files = std::vector<DiskTree::ExampleFile>;

NodeNumber nodeAt(const DiskTree& tree, std::string_view path) {
    const auto node = tree.index(path);
    EXPECT_TRUE(node) << path;
    return node.value_or(DiskTree::root);
}

// Against naive versions: a random tree and what it was made from -------------------------------

/// By absolute path. Few different sizes and dates, so that many are equal.
struct Model {
    std::map<std::string, DiskTree::ExampleFile> files;
    std::set<std::string> folders;
};

Model randomModel(std::uint32_t seed) {
    std::mt19937 random(seed);
    const auto date = [&] { return Timestamp::since1970(static_cast<double>(random() % 8)); };
    Model model;
    for (int i = 0; i < 300; ++i) {
        std::string path = "/r";
        for (auto depth = random() % 5; depth > 0; --depth) {
            path += "/d" + std::to_string(random() % 4);
            model.folders.insert(path);
        }
        path += "/F" + std::to_string(random() % 60) + (random() % 2 == 0 ? ".log" : ".Jpg");
        model.files[path] = {path, random() % 12, random() % 12 * 4'096, date(), date()};
    }
    return model;
}

/// Everything that the tree tells of a node, told again from the paths alone.
void expectTotals(const DiskTree& tree, NodeNumber node, const Model& model) {
    const std::string path = tree.path(node);
    const auto isBelow = [&](const std::string& inside) {
        return inside != path && path::isInsideOrEqual(inside, path);
    };
    std::uint64_t logical = 0, allocated = 0, images = 0, files = 0;
    for (const auto& [filePath, file] : model.files) {
        if (!path::isInsideOrEqual(filePath, path)) continue;
        logical += file.bytes;
        allocated += file.allocatedBytes.value_or(0);
        if (filePath.ends_with("Jpg")) images += file.bytes;
        if (isBelow(filePath)) ++files;
    }
    SCOPED_TRACE(path);
    EXPECT_EQ(tree.index(path), node);
    EXPECT_NE(tree.isDirectory(node), model.files.contains(path));
    EXPECT_EQ(tree.size(node, {.onDisk = false}), logical);
    EXPECT_EQ(tree.size(node, {.onDisk = true}), allocated);
    EXPECT_EQ(tree.fileCount(node), files);
    EXPECT_EQ(tree.folderCount(node), std::ranges::count_if(model.folders, isBelow));
    const auto byKind = tree.bytesByKind(node, {.onDisk = false});
    EXPECT_EQ(byKind[static_cast<std::size_t>(ContentKind::image)], images);
    EXPECT_EQ(byKind[static_cast<std::size_t>(ContentKind::cachesAndLogs)], logical - images);
}

/// Rankings are right when they hold only what is accepted, each once, and the largest sizes.
void expectRankings(const DiskTree& tree, NodeNumber under) {
    std::set<NodeNumber> files, folders, untouched, named;
    const std::function<void(NodeNumber)> collect = [&](NodeNumber folder) {
        for (const NodeNumber node : tree.children(folder)) {
            if (tree.flags(node).contains(Flags::movedAway)) continue;
            const bool isFile = !tree.isDirectory(node);
            (isFile ? files : folders).insert(node);
            if (tree.name(node).find("F1") != std::string::npos) named.insert(node);
            if (isFile && tree.lastUsedSeconds(node) < 5 &&
                tree.size(node, {.onDisk = true}) >= 8'192) {
                untouched.insert(node);
            }
            collect(node);
        }
    };
    collect(under);
    const auto expect = [&](const Nodes& found, const std::set<NodeNumber>& accepted, int limit) {
        std::vector<std::uint64_t> naive, sizes;
        for (const NodeNumber node : accepted) naive.push_back(tree.size(node, {.onDisk = true}));
        for (const NodeNumber node : found) sizes.push_back(tree.size(node, {.onDisk = true}));
        std::ranges::sort(naive, std::ranges::greater{});
        naive.resize(std::min(naive.size(), static_cast<std::size_t>(std::max(limit, 0))));
        EXPECT_EQ(sizes, naive) << "limit " << limit;
        const std::set<NodeNumber> once(found.begin(), found.end());
        EXPECT_TRUE(once.size() == found.size() && std::ranges::includes(accepted, once));
    };
    for (const int limit : {-1, 0, 1, 7, 50, 1'000'000}) {
        const DiskTree::Ranking ranking{.under = under, .limit = limit, .onDisk = true};
        expect(tree.largestFiles(ranking), files, limit);
        expect(tree.largestFolders(ranking), folders, limit);
        expect(tree.untouchedFiles(ranking, 5, 8'192), untouched, limit);
        expect(tree.matching("f1", ranking), named, limit);
    }
}

TEST(DiskTree, AgreesWithNaiveVersions) {
    for (const std::uint32_t seed : {1U, 2U, 3U}) {
        Model model = randomModel(seed);
        Files files;
        for (const auto& [path, file] : model.files) files.push_back(file);
        const DiskTree whole = DiskTree::example(FileURL::folder("/r"), files);
        ASSERT_EQ(static_cast<std::size_t>(whole.count()), 1 + files.size() + model.folders.size());
        for (NodeNumber node = 0; node < whole.count(); ++node) expectTotals(whole, node, model);
        expectRankings(whole, DiskTree::root);
        expectRankings(whole, nodeAt(whole, "/r/d1"));

        // Nested, repeated, in another writing, and not there at all.
        std::set<std::string> gone{"/r/d1/d2", "/r/d1/d2/", "/r/d1", "/r/d0/../d1/d0",
                                   "/r/none",  "/r2",       "",      files[0].path};
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
            for (NodeNumber node = 0; node < whole.count(); ++node) {
                if (!isGone(tree.path(node))) expectTotals(tree, node, model);
            }
            expectRankings(tree, DiskTree::root);
        }
    }
}

// By hand ---------------------------------------------------------------------------------------

TEST(DiskTree, TotalsStopAtTheEndsOfTheirRange) {
    constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();
    const DiskTree tree = DiskTree::example(FileURL::folder("/r"), {{"d/a", largest}, {"d/b", 5}});
    EXPECT_EQ(tree.size(DiskTree::root, {.onDisk = false}), largest);
    EXPECT_EQ(tree.bytesByKind(DiskTree::root, {.onDisk = true})[0], largest);
    const DiskTree left = tree.removing({"/r/d/a", "/r/d/b"});
    EXPECT_EQ(left.size(DiskTree::root, {.onDisk = false}), 0U);
    EXPECT_EQ(left.folderCount(DiskTree::root), 1U);
    EXPECT_EQ(left.shareOfParent(nodeAt(left, "/r/d"), {.onDisk = true}), 0);
}

TEST(DiskTree, LeavesOutWhatWentWithAFolder) {
    const DiskTree tree =
        DiskTree::example(FileURL::folder("/r"), {{"d/a.log", 5}}).removing({"/r/d"});
    for (const std::string_view path : {"/r", "/r/d", "/r/d/a.log"}) {
        const NodeNumber under = nodeAt(tree, path);
        EXPECT_EQ(tree.bytesByKind(under, {.onDisk = false}),
                  decltype(tree.bytesByKind(0, {.onDisk = false})){})
            << path;
        EXPECT_EQ(tree.largestFiles({.under = under, .limit = 9, .onDisk = false}), Nodes())
            << path;
    }
}

TEST(DiskTree, KeepsPathsAsBytes) {
    const DiskTree tree = DiskTree::example(FileURL(), {{"a/b\xFF.txt", 1}, {"/usr/lib", 2}});
    const NodeNumber node = nodeAt(tree, "/a/b\xFF.txt");
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

TEST(DiskTree, AnswersForOneNode) {
    const Timestamp early = Timestamp::since1970(10), late = Timestamp::since1970(20);
    const DiskTree tree =
        DiskTree::example(FileURL::folder("/r"), {{"a", 99},
                                                  {"a", 30, 1, late, early},
                                                  {"a/through a file", 99},
                                                  {"b", 10, 10, early, late},
                                                  {"/r/x.app/c.PNG", 20, 20, early}});
    const NodeNumber a = nodeAt(tree, "/r/a"), b = nodeAt(tree, "/r/b"),
                     app = nodeAt(tree, "/r/x.app"), c = nodeAt(tree, "/r/x.app/c.PNG");
    EXPECT_EQ(tree.sortedChildren(DiskTree::root, {.onDisk = false}), (Nodes{a, app, b}));
    EXPECT_EQ(tree.sortedChildren(DiskTree::root, {.onDisk = true}), (Nodes{app, b, a}));
    EXPECT_EQ(tree.shareOfParent(a, {.onDisk = false}), 0.5);
    EXPECT_EQ(tree.shareOfParent(DiskTree::root, {.onDisk = false}), 0);
    EXPECT_EQ(tree.ancestors(c), (Nodes{app, DiskTree::root}));
    EXPECT_EQ(tree.flags(app).rawValue(), Flags::directory | Flags::package);
    EXPECT_EQ(tree.kind(c), ContentKind::application);
    EXPECT_EQ(tree.modifiedDate(b), early);
    for (const NodeNumber node : {a, b}) EXPECT_EQ(tree.lastUsedDate(node), late);
    const DiskTree::Ranking all{.limit = 9, .onDisk = false};
    EXPECT_EQ(tree.largestFiles(all, [&](NodeNumber node) { return node != a; }), (Nodes{c, b}));
    EXPECT_EQ(tree.untouchedFiles(all, 20, 20), Nodes{c});
    EXPECT_EQ(tree.matching("X.aPP", all), Nodes{app});
}

TEST(DiskTree, FindsGitWorkingCopies) {
    const DiskTree tree = DiskTree::example(
        FileURL::folder("/r"), {{"repo/.git/HEAD", 1}, {"repo/src/a.c", 1}, {"git/x.git", 1}});
    const NodeNumber repo = nodeAt(tree, "/r/repo"), src = nodeAt(tree, "/r/repo/src"),
                     file = nodeAt(tree, "/r/repo/src/a.c");
    for (const NodeNumber node : {repo, src, file}) EXPECT_TRUE(tree.isInGitWorkingCopy(node));
    EXPECT_TRUE(tree.isInGitWorkingCopy(file, repo));
    EXPECT_FALSE(tree.isInGitWorkingCopy(file, src));
    for (const NodeNumber node : {DiskTree::root, nodeAt(tree, "/r/git/x.git"), -1, tree.count()}) {
        EXPECT_FALSE(tree.isInGitWorkingCopy(node)) << node;
    }
}

TEST(DiskTree, CountsWhatSharingAndCompressionSave) {
    const DiskTree plain = DiskTree::example(FileURL::folder("/r"), {{"0 plain", 5'000, 1},
                                                                     {"1 compressed", 5'000, 4'096},
                                                                     {"2 first", 3, 3},
                                                                     {"3 further", 5'000, 0},
                                                                     {"4 both", 1, 0}});
    EXPECT_FALSE(plain.hasSharedStorage());
    DiskTree::Columns columns = plain.columns();
    const auto first = static_cast<std::size_t>(*plain.children(DiskTree::root).begin());
    columns.flags[first + 1].insert(Flags::compressed);
    columns.flags[first + 2].insert(Flags::sharedStorage);
    columns.flags[first + 3] = Flags::fromRawValue(Flags::sharedStorage | Flags::extraClone);
    columns.flags[first + 4] = Flags::fromRawValue(Flags::compressed | Flags::extraClone);
    const DiskTree tree(columns);
    EXPECT_TRUE(tree.hasSharedStorage());
    EXPECT_EQ(tree.compressionSavings(DiskTree::root), 5'000U - 4'096U);
    EXPECT_EQ(tree.cloneSavings(DiskTree::root), 8'192U + 4'096U);
    EXPECT_EQ(tree.sharedStorageBytes(DiskTree::root, {.onDisk = false}), 5'003U);
    EXPECT_EQ(tree.sharedStorageBytes(nodeAt(tree, "/r/2 first"), {.onDisk = true}), 3U);
}

TEST(DiskTree, ListsItsLargestFilesAsTheHeaderShows) {
    const DiskTree tree = DiskTree::example(
        FileURL::folder("/home/ada"), {{"a", 1}, {"film.mov", 3'000'000, 2'000'000}, {"d/b", 500}});
    std::string list;
    for (const NodeNumber node : tree.largestFiles({.limit = 10, .onDisk = true})) {
        list += RoomText::bytes(tree.size(node, {.onDisk = true})) + " ";
        list += tree.path(node) + "\n";
    }
    EXPECT_EQ(list, "2 MB /home/ada/film.mov\n500 bytes /home/ada/d/b\n1 byte /home/ada/a\n");
}

TEST(DiskTree, GoesDeepWithoutRecursion) {
    std::string path = "/r";
    for (int i = 0; i < 100'000; ++i) path += "/d";
    path += "/f";
    const DiskTree tree = DiskTree::example(FileURL::folder("/r"), {{path, 3}});
    EXPECT_EQ(tree.largestFiles({.limit = 2, .onDisk = true}), Nodes{nodeAt(tree, path)});
    NodeNumber visited = 0;
    tree.forEachDescendant(DiskTree::root, {.includingSelf = true}, [&](NodeNumber) { ++visited; });
    EXPECT_EQ(visited, tree.count());
    EXPECT_EQ(tree.removing({path}).size(DiskTree::root, {.onDisk = true}), 0U);
}

TEST(DiskTreeDeathTest, StopsOnANumberThatIsNoNode) {
    const DiskTree tree = DiskTree::example(FileURL::folder("/r"), {{"a", 1}});
    for (const NodeNumber node : {-1, std::numeric_limits<NodeNumber>::min(), tree.count()}) {
        EXPECT_DEATH(static_cast<void>(tree.size(node, {.onDisk = true})), "not in its tree");
        EXPECT_DEATH(static_cast<void>(tree.path(node)), "not in its tree");
        EXPECT_DEATH(
            static_cast<void>(tree.largestFolders({.under = node, .limit = 1, .onDisk = true})),
            "not in its tree");
    }
    DiskTree::Columns uneven = tree.columns();
    uneven.kind.push(ContentKind::other);
    EXPECT_DEATH(DiskTree{uneven}, "shorter or longer");
}

} // namespace
} // namespace tidyro

#include "StorageEngine/DiskTree/SharedFiles.h"

#include <algorithm>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Base/PathText.h"
#include "StorageEngine/DiskTree/ScannedTree.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

using Flags = DiskTree::Flags;
using testing::has;
using ::testing::HasSubstr;
using testing::scanned;
using ::testing::StartsWith;
using testing::TemporaryFolder;

/// The paths that carry bytes, and what the whole tree holds.
std::string carriers(const DiskTree& tree) {
    std::vector<std::string> paths;
    for (NodeNumber node = 1; node < tree.count(); ++node) {
        if (!tree.isDirectory(node) && tree.size(node, {.onDisk = false}) > 0)
            paths.push_back(tree.path(node));
    }
    std::ranges::sort(paths);
    return fmt::format("{} in {}", tree.size(DiskTree::root, {.onDisk = false}),
                       fmt::join(paths, " "));
}

TEST(SharedFiles, CountAFileWithSeveralNamesAtTheSmallestPath) {
    const TemporaryFolder place;
    // "/" comes behind "!" and "-", and before letters.
    for (const char* folder : {"x", "a", "a!", "a-b", "a/b", "ab", "m/n/o", "m"}) {
        place.folder(folder);
    }
    place.noise("x/two", 3'000);
    for (const char* name : {"a/two", "a!/two", "a-b/two", "ab/two"}) place.hardLink(name, "x/two");
    place.noise("m/n/o/deep", 500);
    for (const char* name : {"m/n/p", "m/z", "m/n/o/e"}) place.hardLink(name, "m/n/o/deep");
    place.noise("m/longer name", 70);
    place.hardLink("m/longer", "m/longer name");
    for (int i = 0; i < 300; ++i) {
        const std::string first = fmt::format("many/{}/{}", i % 17, i);
        place.file(first, "12345");
        for (int k = 1; k < 4; ++k) {
            const std::string more = fmt::format("many/{}/{} {}", (i * 7 + k * 5) % 17, i, k);
            place.folder(std::string(path::parent(more)));
            place.hardLink(more, first);
        }
    }
    const std::string once = carriers(scanned(place.path(), DiskTreeScanner(1)));
    for (const char* name : {"a!/two", "m/n/o/deep", "m/longer"}) {
        EXPECT_THAT(once + " ", HasSubstr(place / name + " "));
    }
    EXPECT_THAT(once, StartsWith("5070 in"));
    for (int round = 0; round < 15; ++round) {
        EXPECT_EQ(carriers(scanned(place.path(), DiskTreeScanner(8))), once);
    }
}

class SharedBlocks : public ::testing::TestWithParam<const char*> {};

TEST_P(SharedBlocks, CountOnce) {
    const auto image = testing::MountedImage::make(GetParam());
    if (!image) GTEST_SKIP() << GetParam() << " images need root and its tools";
    const TemporaryFolder& place = image->folder();
    place.noise("original", 1'000'000);
    place.noise("unlike", 1'000'000, 2);
    place.noise("small", 100'000);
    place.folder("copies");
    const auto clones = [&](const std::string& from, const std::string& to) {
        return testing::runQuietly("cp --reflink=always '" + place / from + "' '" + place / to +
                                   "'");
    };
    ASSERT_TRUE(clones("original", "copies/clone") && clones("original", "grown") &&
                clones("small", "small clone"));
    // A program rewrites the middle of one clone, and all of another.
    place.noise("machine", 4'194'304, 3);
    ASSERT_TRUE(clones("machine", "machine middle") && clones("machine", "machine whole"));
    const auto rewrite = [&](const char* name, const char* blocks) {
        return testing::runQuietly("dd if=/dev/urandom of='" + place / name +
                                   "' bs=64K conv=notrunc,fsync " + blocks);
    };
    ASSERT_TRUE(rewrite("machine middle", "seek=16 count=32") &&
                rewrite("machine whole", "count=64"));
    ASSERT_TRUE(testing::runQuietly("head -c 300000 '" + place / "unlike" + "' >> '" +
                                    place / "grown" + "'; sync -f '" + place.path() + "'"));
    const DiskTree tree = scanned(place.path());
    const auto flag = [&](const char* name, Flags::Flag which) {
        return has(tree, place / name, which);
    };
    EXPECT_TRUE(flag("original", Flags::sharedStorage));
    EXPECT_TRUE(flag("copies/clone", Flags::sharedStorage));
    EXPECT_FALSE(flag("copies/clone", Flags::extraClone)) << "the smaller path carries the blocks";
    EXPECT_TRUE(flag("original", Flags::extraClone));
    const auto onDisk = [&](const char* name) {
        return tree.size(*tree.index(place / name), {.onDisk = true});
    };
    EXPECT_TRUE(flag("grown", Flags::extraClone));
    // XFS takes room beforehand for a file that grows.
    EXPECT_GE(onDisk("grown"), 300'000U);
    EXPECT_LE(onDisk("grown"), 300'000U + 131'072U);
    EXPECT_EQ(onDisk("machine"), 4'194'304U);
    EXPECT_EQ(onDisk("machine middle"), 2'097'152U) << "what was rewritten";
    EXPECT_EQ(onDisk("machine whole"), 4'194'304U) << "no clone any more";
    EXPECT_FALSE(flag("unlike", Flags::sharedStorage));
    EXPECT_FALSE(flag("small", Flags::sharedStorage)) << "below the size that is looked at";
    const NodeNumber extra = *tree.index(place / "original");
    EXPECT_EQ(tree.size(extra, {.onDisk = true}), 0U);
    EXPECT_EQ(tree.size(extra, {.onDisk = false}), 1'000'000U);
    EXPECT_EQ(tree.cloneSavings(DiskTree::root),
              1'003'520 + (1'302'528 - onDisk("grown")) + (4'194'304 - onDisk("machine middle")));
    EXPECT_TRUE(tree.hasSharedStorage());
}

INSTANTIATE_TEST_SUITE_P(SharedFiles, SharedBlocks, ::testing::Values("btrfs", "xfs"));

} // namespace
} // namespace tidyro

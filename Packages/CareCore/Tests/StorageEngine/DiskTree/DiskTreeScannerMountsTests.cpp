// Scans where something is mounted.
#include <string>

#include <unistd.h>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "StorageEngine/DiskTree/ScannedTree.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

using Flags = DiskTree::Flags;
using testing::has;
using testing::scanned;
using testing::TemporaryFolder;

TEST(DiskTreeScanner, StaysOnTheVolumeOfItsRoot) {
    const TemporaryFolder place;
    place.noise("elsewhere/large", 100'000);
    place.folder("tree/mounted");
    place.file("tree/mounted file");
    const auto told = testing::inMountNamespace([&] {
        if (!testing::bindMount(place / "elsewhere", place / "tree/mounted") ||
            !testing::bindMount(place / "elsewhere/large", place / "tree/mounted file")) {
            return std::string("no mount");
        }
        const DiskTree tree = scanned(place / "tree");
        return fmt::format("{} nodes, {} bytes, {} {}", tree.count(),
                           tree.size(0, {.onDisk = false}),
                           has(tree, place / "tree/mounted", Flags::mountPoint),
                           has(tree, place / "tree/mounted file", Flags::mountPoint));
    });
    if (!told) GTEST_SKIP() << "mount namespaces need root";
    EXPECT_EQ(*told, "3 nodes, 0 bytes, true true");
}

TEST(DiskTreeScanner, ReadsAFolderThatIsMountedOntoItself) {
    const TemporaryFolder place;
    place.noise("elsewhere/large", 100'000);
    place.noise("tree/a/mounted/once", 1'000);
    place.noise("tree/a/mounted/in/twice", 2'000);
    place.noise("tree/b/covered", 4'000);
    const auto told = testing::inMountNamespace([&] {
        const DiskTree before = scanned(place / "tree");
        for (const char* at : {"tree/a/mounted", "tree/a/mounted", "tree/a/mounted/in", "tree/b"}) {
            if (!testing::bindMount(place / at, place / at)) return std::string("no mount");
        }
        const DiskTree after = scanned(place / "tree");
        // What lies elsewhere on this very file system is left out, and what is mounted in it.
        if (!testing::bindMount(place / "elsewhere", place / "tree/b")) {
            return std::string("no mount");
        }
        const DiskTree covered = scanned(place / "tree");
        return fmt::format("{} {} {} {} {}", before.size(0, {.onDisk = false}),
                           after.size(0, {.onDisk = false}), after.count() == before.count(),
                           covered.size(0, {.onDisk = false}),
                           has(covered, place / "tree/b", Flags::mountPoint));
    });
    if (!told) GTEST_SKIP() << "mount namespaces need root";
    EXPECT_EQ(*told, "7000 7000 true 3000 true");
}

TEST(DiskTreeScanner, TellsAMountPointThatIsClosedFromAClosedFolder) {
    const TemporaryFolder place;
    place.folder("tree/mounted");
    place.folder("closed elsewhere");
    place.permissions("closed elsewhere", 0);
    place.times("tree/mounted", 5, 5);
    const auto told = testing::inMountNamespace([&] {
        if (!testing::bindMount(place / "closed elsewhere", place / "tree/mounted") ||
            ::setgid(65'534) != 0 || ::setuid(65'534) != 0) {
            return std::string("no mount");
        }
        const DiskTree tree = scanned(place / "tree");
        return fmt::format("{} denied, {}", tree.deniedCount(),
                           has(tree, place / "tree/mounted", Flags::mountPoint));
    });
    if (!told) GTEST_SKIP() << "mount namespaces need root";
    EXPECT_EQ(*told, "0 denied, true");
}

TEST(DiskTreeScanner, EntersSubvolumesButNotReadOnlySnapshots) {
    const auto image = testing::MountedImage::make("btrfs");
    if (!image) GTEST_SKIP() << "btrfs images need root and its tools";
    const TemporaryFolder& place = image->folder();
    const auto subvolume = [&](const std::string& command) {
        return testing::runQuietly("btrfs subvolume " + command);
    };
    ASSERT_TRUE(subvolume("create '" + place / "sub" + "'"));
    place.noise("sub/file", 500'000);
    ASSERT_TRUE(testing::runQuietly("sync -f '" + place.path() + "'"));
    ASSERT_TRUE(subvolume("snapshot '" + place / "sub" + "' '" + place / "writable" + "'") &&
                subvolume("snapshot -r '" + place / "sub" + "' '" + place / "kept" + "'"));
    const DiskTree tree = scanned(place.path());
    EXPECT_TRUE(tree.index(place / "sub/file"));
    EXPECT_TRUE(tree.index(place / "writable/file"));
    EXPECT_FALSE(tree.index(place / "kept/file")) << "its files are those of sub";
    EXPECT_TRUE(has(tree, place / "kept", Flags::mountPoint));
    EXPECT_FALSE(has(tree, place / "sub", Flags::mountPoint));
    const std::uint64_t once = tree.size(*tree.index(place / "sub/file"), {.onDisk = true});
    EXPECT_GE(once, 500'000U);
    EXPECT_EQ(tree.size(DiskTree::root, {.onDisk = true}), once) << "shared by both, counted once";
}

} // namespace
} // namespace tidyro

#include "SystemCare/SystemCare.h"

#include <map>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Base/PathText.h"
#include "Platform/Testing/FakeVolumes.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

using platform::Volume;
using platform::VolumeSpace;
using ::testing::ElementsAre;

/// Spaces by mount path. Asking for any other fails the test, as a server would hold it up.
class FakeSpaces final : public platform::VolumeSpaces {
  public:
    std::map<std::string, VolumeSpace> known;

    [[nodiscard]] std::expected<VolumeSpace, SystemError>
    space(const Volume& volume) const override {
        const auto found = known.find(volume.mountPath);
        if (found != known.end()) return found->second;
        ADD_FAILURE() << "asked " << volume.mountPath;
        return std::unexpected(SystemError{5});
    }
};

Volume mounted(std::string path, std::string fileSystem, std::string space = {},
               std::string folder = "/") {
    return {.mountPath = std::move(path),
            .mount = 1,
            .device = 1,
            .identifier = "any",
            .fileSystem = std::move(fileSystem),
            .isInternalLocal = space.starts_with("inside"),
            .mountedFolder = std::move(folder),
            .spaceIdentifier = std::move(space)};
}

TEST(SystemCare, TellsEachDiskOnceAndWaitsForNoServer) {
    platform::testing::FakeVolumes volumes;
    volumes.answer = {
        mounted("/", "btrfs", "inside-1", "/@"),
        mounted("/home", "btrfs", "inside-1", "/@home"),
        mounted("/mnt/top", "btrfs", "inside-1"),
        mounted("/proc", "proc"),
        mounted("/run", "tmpfs"),
        mounted("/run/media/ada/Stick", "vfat", "stick"),
        mounted("/snap/editor/1", "squashfs", "image"),
        mounted("/srv/part", "ext4", "inside-2", "/part"),
        mounted("/srv/deep/whole", "ext4", "inside-2"),
        mounted("/net", "nfs4"),
        mounted("/net/disk", "ext4", "behind a server"),
        mounted("/covered", "ext4", "covered"),
        mounted("/covered", "nfs4"),
        mounted("/auto", "autofs"),
        mounted("/auto", "xfs", "over it"),
        mounted("/mute", "xfs", "mute"),
    };
    FakeSpaces spaces;
    const VolumeSpace some{.byteCount = 100, .usedByteCount = 60, .freeByteCount = 30};
    for (const char* path : {"/", "/run/media/ada/Stick", "/srv/deep/whole", "/auto"}) {
        spaces.known[path] = some;
    }
    spaces.known["/mute"] = {};
    const auto capacities = SystemCare(volumes, spaces).capacities();
    ASSERT_TRUE(capacities);
    std::vector<std::string> told;
    for (const VolumeCapacity& one : *capacities) {
        EXPECT_EQ(one.byteCount, 100U);
        EXPECT_EQ(one.usedByteCount, 60U);
        EXPECT_EQ(one.freeByteCount, 30U);
        told.push_back(one.mountURL.path() + " " + one.fileSystem + (one.isInternal ? " in" : ""));
    }
    EXPECT_THAT(told, ElementsAre("/ btrfs in", "/srv/deep/whole ext4 in", "/auto xfs",
                                  "/run/media/ada/Stick vfat"));

    volumes.answer = std::unexpected(SystemError{5});
    EXPECT_FALSE(SystemCare(volumes, spaces).capacities());
}

TEST(SystemCare, AddsUpOnARealDisk) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    for (const std::string type : {"ext4", "btrfs"}) {
        const auto image = testing::MountedImage::make(type);
        if (!image) GTEST_SKIP() << "needs root and mkfs." << type;
        const platform::LiveVolumes volumes;
        const platform::LiveVolumeSpaces spaces;
        const auto here = [&] {
            const auto capacities = SystemCare(volumes, spaces).capacities();
            std::vector<VolumeCapacity> found;
            for (const VolumeCapacity& one : *capacities) {
                if (path::isInsideOrEqual(one.mountURL.path(), image->folder().path())) {
                    found.push_back(one);
                }
            }
            return found;
        };
        ASSERT_EQ(here().size(), 1U) << type;
        const VolumeCapacity empty = here().front();
        EXPECT_EQ(empty.fileSystem, type);
        EXPECT_FALSE(empty.isInternal);
        constexpr std::uint64_t written = 8'000'000;
        image->folder().noise("file", written);
        ASSERT_TRUE(testing::runQuietly("sync"));
        const VolumeCapacity filled = here().front();
        EXPECT_EQ(filled.byteCount, empty.byteCount);
        EXPECT_NEAR(static_cast<double>(filled.usedByteCount - empty.usedByteCount), written, 1e6);
        EXPECT_NEAR(static_cast<double>(empty.freeByteCount - filled.freeByteCount), written, 1e6);
        EXPECT_LE(filled.usedByteCount + filled.freeByteCount, filled.byteCount);
        // A folder of it that is mounted once more is no other disk.
        image->folder().folder("in");
        image->folder().folder("again");
        const std::string again = image->folder() / "again";
        ASSERT_TRUE(testing::bindMount(image->folder() / "in", again));
        EXPECT_EQ(here().size(), 1U);
        ASSERT_TRUE(testing::runQuietly("umount '" + again + "'"));
    }
}

} // namespace
} // namespace tidyro

#include "Platform/Mounts/Volumes.h"

#include <cerrno>
#include <cstdlib>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Support/OtherCircumstances.h"
#ifdef __linux__
#include "Platform/Linux/Mounts/BlockDevices.h"
#include "Platform/Linux/Mounts/MountTable.h"
#endif

namespace tidyro::platform {
namespace {

using testing::TemporaryFolder;

Volume volume(std::uint64_t mount, std::uint64_t device, std::string identifier) {
    return {.mountPath = "/" + std::to_string(mount),
            .mount = mount,
            .device = device,
            .identifier = std::move(identifier),
            .fileSystem = "ext4",
            .isInternalLocal = true};
}

FileMetadata item(std::uint64_t device, std::optional<std::uint64_t> mount) {
    return {.kind = ItemKind::regularFile,
            .byteCount = 0,
            .allocatedBytes = 0,
            .ownerUserID = 0,
            .linkCount = 1,
            .identity = {.device = device, .inode = 1},
            .mount = mount,
            .isDataless = false};
}

TEST(Volumes, KnowWhichOneAnItemIsOn) {
    std::vector<Volume> volumes{volume(1, 10, "a"), volume(2, 20, "b"), volume(3, 30, "many")};
    volumes[2].hasOneDevice = false;
    EXPECT_EQ(volumeOf(item(20, 2), volumes), &volumes[1]);
    EXPECT_EQ(volumeOf(item(31, 3), volumes), &volumes[2]) << "a subvolume's own device";
    EXPECT_EQ(volumeOf(item(20, std::nullopt), volumes), &volumes[1]);
    // Neither a mount that came since nor a number that was given anew is guessed at.
    EXPECT_EQ(volumeOf(item(20, 4), volumes), nullptr);
    EXPECT_EQ(volumeOf(item(21, 2), volumes), nullptr);
    EXPECT_EQ(volumeOf(item(40, std::nullopt), volumes), nullptr);
}

TEST(Volumes, TellCopiesOfADiskApart) {
    std::vector<Volume> volumes{volume(1, 10, "same"), volume(2, 20, "same"), volume(3, 10, "same"),
                                volume(4, 30, "other"), volume(5, 30, "other")};
    tellApart(volumes);
    EXPECT_NE(volumes[0].identifier, volumes[1].identifier);
    EXPECT_EQ(volumes[0].identifier, volumes[2].identifier) << "mounted twice";
    EXPECT_EQ(volumes[3].identifier, "other");
    EXPECT_EQ(volumes[4].identifier, "other");
}

#ifdef __linux__

/// A device tree like the kernel's, in a folder.
struct DeviceTree {
    TemporaryFolder place;

    void disk(const std::string& folder, const std::string& number,
              const std::string& removable = "0") const {
        place.file("devices/" + folder + "/removable", removable + "\n");
        named(folder, number);
    }
    void partition(const std::string& folder, const std::string& number) const {
        place.file("devices/" + folder + "/partition", "2\n");
        named(folder, number);
    }
    /// A device on top of others.
    void made(const std::string& name, const std::string& number,
              const std::vector<std::string>& of) const {
        place.folder("devices/virtual/block/" + name + "/slaves");
        for (std::size_t i = 0; i < of.size(); ++i) {
            place.link("devices/virtual/block/" + name + "/slaves/d" + std::to_string(i),
                       place / ("devices/" + of[i]));
        }
        named("virtual/block/" + name, number);
    }
    void named(const std::string& folder, const std::string& number) const {
        place.folder("dev/block");
        place.link("dev/block/" + number, place / ("devices/" + folder));
    }
};

TEST(Volumes, CallInternalOnlyWhatLiesInTheMachine) {
    const DeviceTree tree;
    const TemporaryFolder& place = tree.place;
    tree.disk("pci/nvme/nvme0/nvme0n1", "1:0");
    tree.partition("pci/nvme/nvme0/nvme0n1/nvme0n1p2", "1:1");
    tree.disk("pci/usb2/2-1/host1/block/sdb", "2:0");
    tree.partition("pci/usb2/2-1/host1/block/sdb/sdb1", "2:1");
    tree.disk("pci/ata1/host0/block/sr0", "3:0", "1");
    tree.disk("platform/host3/session1/target3/block/sdc", "4:0");
    place.file("devices/pci/port/removable", "removable\n");
    tree.disk("pci/port/nvme/nvme1/nvme1n1", "5:0");
    tree.disk("pci/mmc/mmcblk0", "6:0");
    place.file("devices/pci/mmc/mmcblk0/device/type", "SD\n");
    tree.disk("pci/mmc/mmcblk1", "6:1");
    place.file("devices/pci/mmc/mmcblk1/device/type", "MMC\n");
    tree.disk("virtual/block/loop0", "7:0");
    place.file("devices/virtual/block/loop0/loop/backing_file", "/images/one\n");
    tree.made("zram0", "7:1", {});
    tree.made("dm-0", "8:0", {"pci/nvme/nvme0/nvme0n1/nvme0n1p2"});
    tree.made("dm-1", "8:1", {"virtual/block/dm-0"});
    tree.made("md0", "8:2", {"virtual/block/dm-1", "pci/usb2/2-1/host1/block/sdb/sdb1"});
    tree.made("dm-2", "8:3", {"virtual/block/dm-2"});
    place.file("devices/pci/nvme/nvme2/transport", "pcie\n");
    tree.disk("virtual/nvme-subsystem/nvme-subsys0/nvme2n1", "9:0");
    place.link("devices/virtual/nvme-subsystem/nvme-subsys0/nvme2",
               place / "devices/pci/nvme/nvme2");
    place.file("devices/virtual/nvme-fabrics/ctl/nvme3/transport", "tcp\n");
    tree.disk("virtual/nvme-subsystem/nvme-subsys1/nvme3n1", "9:1");
    place.link("devices/virtual/nvme-subsystem/nvme-subsys1/nvme3",
               place / "devices/virtual/nvme-fabrics/ctl/nvme3");
    place.folder("devices/pci/odd/block/sdd");
    tree.named("pci/odd/block/sdd", "10:0");

    const BlockDevices devices(place.path(), place / "none");
    for (const auto& [major, minor, isInternal, what] :
         {std::tuple{1U, 0U, true, "a disk"},
          {1U, 1U, true, "its partition"},
          {2U, 0U, false, "USB"},
          {2U, 1U, false, "a partition on USB"},
          {3U, 0U, false, "removable"},
          {4U, 0U, false, "served by another machine"},
          {5U, 0U, false, "behind a port for plugging in"},
          {6U, 0U, false, "a card"},
          {6U, 1U, true, "a chip on the board"},
          {7U, 0U, false, "loop device"},
          {7U, 1U, false, "compressed memory"},
          {8U, 0U, true, "encrypted"},
          {8U, 1U, true, "a logical volume on it"},
          {8U, 2U, false, "RAID that is partly on USB"},
          {8U, 3U, false, "made of itself"},
          {9U, 0U, true, "NVMe by several ways, all in the machine"},
          {9U, 1U, false, "NVMe over a network"},
          {10U, 0U, false, "a disk that does not say whether it is removable"},
          {99U, 9U, false, "not in the tree"}}) {
        EXPECT_EQ(devices.isInternal(major, minor), isInternal) << what;
    }

    // Attached is much more.
    std::vector<std::string> images;
    for (const auto& [major, minor] : {std::pair{1U, 0U},
                                       {1U, 1U},
                                       {2U, 0U},
                                       {2U, 1U},
                                       {3U, 0U},
                                       {5U, 0U},
                                       {6U, 0U},
                                       {6U, 1U},
                                       {7U, 0U},
                                       {8U, 0U},
                                       {8U, 1U},
                                       {8U, 2U},
                                       {9U, 0U},
                                       {10U, 0U}}) {
        EXPECT_TRUE(devices.isAttached(major, minor, images)) << major << ":" << minor;
    }
    EXPECT_EQ(images, std::vector<std::string>{"/images/one"});
    for (const auto& [major, minor] :
         {std::pair{4U, 0U}, {7U, 1U}, {8U, 3U}, {9U, 1U}, {99U, 9U}}) {
        EXPECT_FALSE(devices.isAttached(major, minor, images)) << major << ":" << minor;
    }

    place.folder("fs/btrfs/features");
    place.file("dev/nvme0n1p2");
    place.file("dev/sdb1");
    place.link("dev/mapper", "nvme0n1p2");
    place.folder("fs/btrfs/uuid/devices");
    place.link("fs/btrfs/uuid/devices/nvme0n1p2",
               place / "devices/pci/nvme/nvme0/nvme0n1/nvme0n1p2");
    EXPECT_TRUE(devices.isInternalBtrfs(place / "dev/nvme0n1p2"));
    EXPECT_TRUE(devices.isInternalBtrfs(place / "dev/mapper"));
    EXPECT_FALSE(devices.isInternalBtrfs(place / "dev/sdb1")) << "of no file system";
    place.link("fs/btrfs/uuid/devices/sdb1", place / "devices/pci/usb2/2-1/host1/block/sdb/sdb1");
    EXPECT_FALSE(devices.isInternalBtrfs(place / "dev/nvme0n1p2")) << "its other half is on USB";
}

TEST(Volumes, ReadTheKernelsTableOfMounts) {
    const auto table = parsedMountTable(
        "27 1 254:0 / / rw,relatime - ext4 /dev/vda rw\n"
        "40 27 0:45 /@home /home/a\\040b\\134c rw shared:5 master:2 - btrfs /dev/mapper/x rw\n"
        "41 27 0:50 / /mnt/dav rw - fuse.davfs https://host/ rw\n");
    ASSERT_TRUE(table);
    ASSERT_EQ(table->size(), 3U);
    EXPECT_EQ((*table)[0].major, 254U);
    EXPECT_EQ((*table)[0].source, "/dev/vda");
    EXPECT_EQ((*table)[1].number, 40U);
    EXPECT_EQ((*table)[1].path, "/home/a b\\c");
    EXPECT_EQ((*table)[1].root, "/@home");
    EXPECT_EQ((*table)[1].fileSystem, "btrfs");
    EXPECT_EQ((*table)[2].fileSystem, "fuse.davfs");
    for (const char* damaged : {"x 1 254:0 / / rw - ext4 /dev/vda rw\n", "27 1 254 / / rw\n",
                                "27 1 254:0 / / rw shared:1\n", "27 1 254:0 / home rw - ext4 a\n",
                                "27 1 254:0 / / rw - ext4 a rw\n\n"}) {
        EXPECT_FALSE(parsedMountTable(damaged)) << damaged;
    }
}

/// What the running system says of the places given, "missing" where it has no volume for one.
std::string toldOf(const std::vector<std::string>& places) {
    const auto volumes = LiveVolumes().mounted();
    if (!volumes) return volumes.error().description();
    std::string text;
    for (const std::string& place : places) {
        const auto seen = fileMetadata(place);
        const Volume* found = seen ? volumeOf(*seen, *volumes) : nullptr;
        text += found == nullptr ? "missing"
                                 : found->fileSystem + (found->isInternalLocal ? " in" : " out") +
                                       " " + found->identifier;
        text += "\n";
    }
    return text;
}

TEST(Volumes, TellMountsOfTheRunningSystem) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    const TemporaryFolder place;
    place.hole("image", 20'000'000);
    for (const char* folder : {"loop", "memory", "bound", "kept"}) place.folder(folder);
    place.file("kept/file", "x");
    constexpr const char* uuid = "01234567-89ab-cdef-0123-456789abcdef";
    const auto told = testing::inMountNamespace([&]() -> std::string {
        const auto path = [&](const char* name) { return "'" + place / name + "'"; };
        if (!testing::runQuietly(std::string("mkfs.ext4 -q -U ") + uuid + " " + path("image")) ||
            !testing::runQuietly("mount -o loop " + path("image") + " " + path("loop")) ||
            !testing::runQuietly("mount -t tmpfs none " + path("memory")) ||
            !testing::bindMount(place / "kept", place / "bound")) {
            return "cannot mount";
        }
        std::string text = toldOf({place / "kept/file", place / "bound/file", place / "loop",
                                   place / "memory", "/proc/version"});
        return text + mountedUUID(place / "loop").value_or("untold") + "\n" +
               mountedUUID(place / "memory/none").value_or("untold");
    });
    if (!told || *told == "cannot mount") GTEST_SKIP() << "this process may not mount images";
    std::vector<std::string> lines;
    for (std::size_t at = 0; at <= told->size();) {
        const std::size_t end = std::min(told->find('\n', at), told->size());
        lines.push_back(told->substr(at, end - at));
        at = end + 1;
    }
    ASSERT_EQ(lines.size(), 7U) << *told;
    EXPECT_NE(lines[0], "missing");
    EXPECT_EQ(lines[1], lines[0]) << "a bind mount is the volume that it shows";
    EXPECT_THAT(lines[2], ::testing::StartsWith("ext4 out ")) << "an image is no disk";
    EXPECT_THAT(lines[3], ::testing::StartsWith("tmpfs out "));
    EXPECT_THAT(lines[4], ::testing::StartsWith("proc out "));
    EXPECT_THAT(lines[5], ::testing::AnyOf(uuid, "untold")) << "older kernels do not tell";
    EXPECT_EQ(lines[6], "untold");

    const auto withoutTable = testing::inMountNamespace([] {
        if (!testing::runQuietly("mount -t tmpfs none /proc")) return std::string("cannot mount");
        return toldOf({"/"});
    });
    EXPECT_EQ(*withoutTable, "No such file or directory");
}

TEST(Volumes, CountSubvolumesToTheirFileSystem) {
    const auto image = testing::MountedImage::make("btrfs");
    if (image == nullptr) GTEST_SKIP() << "no btrfs image can be mounted here";
    const TemporaryFolder& place = image->folder();
    ASSERT_TRUE(testing::runQuietly("btrfs subvolume create '" + place / "sub" + "'"));
    place.file("sub/file", "x");
    place.file("file", "x");
    const std::string told = toldOf({place / "file", place / "sub/file"});
    EXPECT_THAT(told, ::testing::StartsWith("btrfs out "));
    EXPECT_EQ(told.substr(0, told.size() / 2), told.substr(told.size() / 2));
}

#endif

} // namespace
} // namespace tidyro::platform

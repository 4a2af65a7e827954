#include <array>
#include <cstdio>
#include <utility>

#include <sys/resource.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "Platform/Files/FileLease.h"
#include "StorageEngine/PickedItems/DiskItemContents.h"
#include "StorageEngine/PickedItems/PickedItemsBench.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

using platform::testing::FakeVolumes;

TEST(DiskItemRemovalPolicy, NoticesThatAFolderWasExchanged) {
    const PickedItemsBench bench;
    for (const char* name : {"home/linked/file", "home/replaced/file", "home/.ssh/file"}) {
        bench.place.file(name);
    }
    DiskItemRemovalPolicy policy = bench.policy();
    for (const char* name : {"linked", "replaced"}) {
        const std::string folder = bench.place / "home" + "/" + name;
        EXPECT_EQ(told(policy, FileURL::file(folder + "/file")), "");
        ASSERT_EQ(std::rename(folder.c_str(), (folder + " before").c_str()), 0);
    }
    bench.place.link("home/linked", ".ssh");
    bench.place.file("home/replaced/file");
    EXPECT_EQ(told(policy, bench.at("home/linked/file")), "vanished");
    EXPECT_EQ(told(policy, bench.at("home/replaced/file")), "vanished");

    const auto parent = platform::FolderDescriptor::openRoot(bench.place / "home");
    const auto seen = platform::fileMetadata(*parent, "replaced before");
    const auto looked = DiskItemContents::lastModification({.parent = *parent,
                                                            .name = "replaced",
                                                            .seen = *seen,
                                                            .owner = ::geteuid(),
                                                            .kept = KeptFolders()});
    EXPECT_EQ(looked.error(), DiskItemRefusal::vanished);
}

TEST(DiskItemRemovalPolicy, LeavesWhatIsOpenByAnotherName) {
    const PickedItemsBench bench;
    bench.place.file("home/folder/deep/file", "x");
    bench.place.file("home/folder/deep/quiet", "x");
    bench.place.hardLink("home/other", "home/folder/deep/file");
    DiskItemRemovalPolicy policy = bench.policy();
    std::FILE* open = std::fopen((bench.place / "home/other").c_str(), "re");
    ASSERT_NE(open, nullptr);
    const auto parent = platform::FolderDescriptor::openRoot(bench.place / "home");
    const bool isTold = platform::fileUse(*parent, "other") == platform::FileUse::inUse;
    const std::string file = told(policy, bench.at("home/folder/deep/file"));
    const std::string folder = told(policy, bench.at("home/folder"));
    EXPECT_EQ(told(policy, bench.at("home/folder/deep/quiet")), "");
    std::fclose(open);
    if (!isTold) GTEST_SKIP() << "the file system does not tell who has a file open";
    EXPECT_EQ(file, "openByProcess");
    EXPECT_EQ(folder, "openByProcess");
    EXPECT_EQ(told(policy, bench.at("home/folder")), "") << "once it is closed";
}

TEST(DiskItemRemovalPolicy, JudgesAnOpenedFolderByItsWholePath) {
    const PickedItemsBench bench;
    bench.place.file("opened/app/IndexedDB/000003");
    DiskItemRemovalPolicy policy(
        {.home = bench.home(),
         .openedFolders = {FileURL::folder(bench.place / "opened/app/IndexedDB")},
         .context = bench.context(),
         .volumes = bench.volumes});
    EXPECT_EQ(told(policy, bench.at("opened/app/IndexedDB/000003")), "liveDatabase");
}

TEST(DiskItemRemovalPolicy, SaysWhenAFolderIsTooDeep) {
    const PickedItemsBench bench;
    std::string chain = "home/chain";
    std::string tree = "home/tree";
    for (int i = 0; i < 60; ++i) {
        chain += "/c";
        tree += "/" + std::to_string(i);
        for (const char* other : {"a", "b", "c", "d", "e", "f"}) {
            bench.place.folder(tree + "/" + other);
        }
    }
    bench.place.folder(chain);
    const std::string text = testing::inChild([&] {
        DiskItemRemovalPolicy policy = bench.policy();
        std::string all = told(policy, bench.at("home/tree")) + ";";
        const rlimit few{.rlim_cur = 64, .rlim_max = 64};
        if (::setrlimit(RLIMIT_NOFILE, &few) != 0) return std::string("no limit");
        return all + told(policy, bench.at("home/tree")) + ";" +
               told(policy, bench.at("home/chain"));
    });
    EXPECT_EQ(text, ";tooDeepInside;");
}

TEST(DiskItemRemovalPolicy, LeavesWhatBelongsToOthersOrIsLocked) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
    const PickedItemsBench bench;
    for (const char* name : {"theirs", "folder/a/theirs", "holder/locked", "appended/file"}) {
        bench.place.file("home/" + std::string(name));
    }
    for (const char* name : {"home/theirs", "home/folder/a/theirs"}) {
        ASSERT_EQ(::chown((bench.place / name).c_str(), 12'345, 12'345), 0);
    }
    DiskItemRemovalPolicy policy = bench.policy();
    EXPECT_EQ(told(policy, bench.at("home/theirs")), "otherOwner");
    EXPECT_EQ(told(policy, bench.at("home/folder")), "otherOwnerInside");
    const std::string file = bench.place / "home/holder/locked";
    const std::string folder = bench.place / "home/appended";
    if (!testing::runQuietly("chattr +i '" + file + "' && chattr +a '" + folder + "'")) {
        GTEST_SKIP() << "the file system has no locks";
    }
    EXPECT_EQ(told(policy, bench.at("home/holder/locked")), "locked");
    EXPECT_EQ(told(policy, bench.at("home/appended/file")), "locked");
    EXPECT_EQ(told(policy, bench.at("home/holder")), "lockedInside");
    EXPECT_TRUE(testing::runQuietly("chattr -i '" + file + "'; chattr -a '" + folder + "'"));
}

TEST(DiskItemRemovalPolicy, LeavesWhatIsClosedToTheUser) {
    PickedItemsBench bench;
    for (const char* name : {"dark/inner/file", "unread/file", "part/inner/file"}) {
        bench.place.file("home/" + std::string(name));
    }
    constexpr std::array<const char*, 3> closed{"home/dark", "home/unread", "home/part/inner"};
    if (::geteuid() == 0) {
        ASSERT_TRUE(testing::runQuietly("chown -R 65534:65534 '" + bench.place.path() + "'"));
    }
    for (const char* name : closed) bench.place.permissions(name, 0300);
    bench.place.permissions("home/dark", 0600);
    const std::string text = testing::asOrdinaryUser([&] {
        bench.facts.currentUserID = ::geteuid();
        DiskItemRemovalPolicy policy = bench.policy();
        std::string all;
        for (const char* name : {"home/dark/inner/file", "home/unread", "home/part"}) {
            all += told(policy, bench.at(name)) + ";";
        }
        return all;
    });
    EXPECT_EQ(text, "unreadable;unreadableFolder;unreadableInside;");
    for (const char* name : closed) bench.place.permissions(name, 0755);
}

TEST(DiskItemRemovalPolicy, LeavesWhereSomethingIsMounted) {
    const PickedItemsBench bench;
    bench.place.folder("home/point");
    bench.place.folder("home/folder/a/point");
    bench.place.file("home/file");
    bench.place.file("elsewhere/file");
    const auto text = testing::inMountNamespace([&]() -> std::string {
        if (!testing::bindMount(bench.place / "elsewhere", bench.place / "home/point") ||
            !testing::bindMount(bench.place / "elsewhere", bench.place / "home/folder/a/point") ||
            !testing::bindMount(bench.place / "elsewhere/file", bench.place / "home/file")) {
            return "cannot mount";
        }
        // The mounts of the new namespace have numbers of their own.
        FakeVolumes volumes = bench.volumes;
        volumes.answer->front().mount =
            platform::fileMetadata(bench.place.path())->mount.value_or(0);
        DiskItemRemovalPolicy policy(
            {.home = bench.home(), .context = bench.context(), .volumes = volumes});
        std::string all;
        for (const char* name : {"home/point", "home/file", "home/folder"}) {
            all += told(policy, bench.at(name)) + ";";
        }
        return all;
    });
    if (!text) GTEST_SKIP() << "needs a mount namespace of its own";
    EXPECT_EQ(*text, "mountPointItself;mountPointItself;mountPointInside;");
}

TEST(DiskItemRemovalPolicy, KnowsAFolderThatIsMountedASecondTime) {
    PickedItemsBench bench;
    for (const char* name : {"home/vault/in/keys/id", "home/joint/shared/file",
                             "home/data/more/file", "elsewhere/file"}) {
        bench.place.file(name);
    }
    using Mount = std::pair<const char*, const char*>;
    constexpr std::array<Mount, 5> mounts{Mount{"home/vault/in/keys", "opened/keys"},
                                          {"home/vault", "opened/vault"},
                                          {"home/joint/shared", "home/Dropbox/shared"},
                                          {"home/data", "home/second"},
                                          {"home", "opened/again"}};
    for (const auto& [what, where] : mounts) bench.place.folder(where);
    bench.facts.additionalProtectedRoots = {bench.at("home/vault/in/keys"),
                                            bench.at("home/second")};
    bench.choosable = {bench.at("home/second")};
    struct Item {
        const char* name;
        const char* told;
    };
    const auto text = testing::inMountNamespace([&]() -> std::string {
        platform::Volume volume = bench.volumes.answer->front();
        volume.mount = platform::fileMetadata(bench.place.path())->mount.value_or(0);
        bench.volumes.answer->front() = volume;
        for (const auto& [what, where] : mounts) {
            if (!testing::bindMount(bench.place / what, bench.place / where)) {
                return "cannot mount";
            }
            volume.mountPath = bench.place / where;
            volume.mount = platform::fileMetadata(volume.mountPath)->mount.value_or(0);
            bench.volumes.answer->push_back(volume);
        }
        DiskItemRemovalPolicy policy = bench.policy();
        std::string wrong;
        for (const auto& [name, expected] :
             {Item{"opened/keys/id", "protectedPlace"},
              Item{"opened/vault/in/keys/id", "protectedPlace"},
              Item{"opened/vault/in/keys", "protectedPlace"},
              Item{"opened/vault/in", "holdsProtectedPlace"},
              Item{"home/joint/shared/file", "inCloudFolder"},
              Item{"home/joint", "holdsCloudFolder"}, Item{"opened/again/data", "homeElsewhere"},
              Item{"home/second/more", ""}}) {
            const std::string found = told(policy, bench.at(name));
            if (found != expected) wrong += name + (" " + found) + ";";
        }
        return wrong;
    });
    if (!text || *text == "cannot mount") GTEST_SKIP() << "needs a mount namespace of its own";
    EXPECT_EQ(*text, "");
}

} // namespace
} // namespace tidyro

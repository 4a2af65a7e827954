#include "Platform/Folders/FolderChanges.h"

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#ifdef __linux__
#include <cstddef>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#endif

#include <gtest/gtest.h>

#include "Platform/Files/FileMetadata.h"
#include "Platform/Testing/ScheduledFolderChanges.h"
#include "Support/OtherCircumstances.h"
#include "Support/TemporaryFolder.h"

namespace tidyro::platform {
namespace {

namespace fs = std::filesystem;
using tidyro::testing::ChangeSchedule;
using tidyro::testing::inMountNamespace;
using tidyro::testing::MountedImage;
using tidyro::testing::ScheduledFolderChanges;
using tidyro::testing::TemporaryFolder;
using enum ChangeFailure;

std::string contents(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// What stands below a folder: "a/ a/b=text link@".
std::string listing(const std::string& folder) {
    std::set<std::string> lines;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        const std::string name = entry.path().string().substr(folder.size() + 1);
        if (entry.is_symlink())
            lines.insert(name + "@");
        else if (entry.is_directory())
            lines.insert(name + "/");
        else
            lines.insert(name + "=" + contents(entry.path()));
    }
    std::string all;
    for (const std::string& line : lines) all += (all.empty() ? "" : " ") + line;
    return all;
}

FoldersBeneath beneath(const std::string& path) {
    auto opened = FoldersBeneath::openRoot(fs::canonical(path));
    if (!opened) throw std::runtime_error(opened.error().description());
    return *std::move(opened);
}

/// The error of opening, 0 for none.
int errorOf(const std::string& root, const std::string& below) {
    const auto folders = FoldersBeneath::openRoot(root);
    if (!folders) return folders.error().code;
    const auto opened = folders->open(below);
    const auto fromTop = folders->openFromTop(below);
    if (opened && fromTop) {
        EXPECT_EQ(opened->facts()->identity, fromTop->facts()->identity) << below;
        return 0;
    }
    EXPECT_EQ(opened.has_value(), fromTop.has_value()) << below;
    if (opened || fromTop) return 0;
    EXPECT_EQ(opened.error(), fromTop.error()) << below;
    return opened.error().code;
}

TEST(FoldersBeneath, FollowsNoLinkAndLeavesNeitherRootNorVolume) {
    const TemporaryFolder place;
    place.folder("root/a/b");
    place.folder("elsewhere/b");
    place.link("root/link", place / "elsewhere");
    place.link("root/inside", "a");
    place.link("toRoot", "root");
    const std::string real = fs::canonical(place.path()).string();
    const std::string root = real + "/root";
    for (const char* below : {"", "a", "a/b", "a//b"}) EXPECT_EQ(errorOf(root, below), 0) << below;
    EXPECT_EQ(errorOf(root, "link/b"), ELOOP);
    EXPECT_EQ(errorOf(root, "inside/b"), ELOOP) << "also when it stays inside";
    EXPECT_EQ(errorOf(root, "inside"), ELOOP);
    EXPECT_EQ(errorOf(real + "/toRoot", "a"), ELOOP);
    EXPECT_EQ(errorOf(real + "/toRoot/a", ""), ELOOP);
    EXPECT_EQ(errorOf(root, "a/../../elsewhere"), EINVAL);
    EXPECT_EQ(errorOf(root, "/etc"), EINVAL);
    EXPECT_EQ(errorOf("root", ""), EINVAL);
    EXPECT_EQ(errorOf(root, "gone"), ENOENT);

    // Deeper than the system takes at once.
    FolderDescriptor at = *FolderDescriptor::openRoot(root);
    const std::string name(200, 'n');
    std::string deep;
    for (int level = 0; level < 40; ++level) {
        ASSERT_EQ(::mkdirat(at.fd(), name.c_str(), 0700), 0);
        at = *at.open(name.c_str());
        deep += (deep.empty() ? "" : "/") + name;
    }
    const auto deepest = beneath(root).open(deep);
    ASSERT_TRUE(deepest);
    EXPECT_EQ(deepest->facts()->identity, at.facts()->identity);
    const auto fromTop = beneath(root).openFromTop(deep);
    ASSERT_TRUE(fromTop);
    EXPECT_EQ(fromTop->facts()->identity, at.facts()->identity);
}

TEST(FoldersBeneath, GoFromTheTopToWhatIsAtThePathOfTheRootByNow) {
    const TemporaryFolder place;
    place.folder("root/below");
    place.folder("other/below");
    const std::string real = fs::canonical(place.path()).string();
    const FoldersBeneath folders = beneath(real + "/root");
    fs::rename(real + "/root", real + "/moved");
    EXPECT_EQ(folders.openFromTop("below").error().code, ENOENT);
    EXPECT_TRUE(folders.open("below")) << "the root itself is still held";
    fs::create_directory_symlink(real + "/other", real + "/root");
    EXPECT_EQ(folders.openFromTop("below").error().code, ELOOP);
    fs::remove(real + "/root");
    fs::rename(real + "/other", real + "/root");
    EXPECT_EQ(folders.openFromTop("below")->facts()->identity,
              FolderDescriptor::openRoot(real + "/root/below")->facts()->identity);
    const auto told = inMountNamespace([&] {
        const FoldersBeneath here = beneath(real + "/root");
        if (!tidyro::testing::bindMount(real + "/moved", real + "/root")) return std::string("no");
        const auto opened = here.openFromTop("below");
        return std::to_string(opened ? 0 : opened.error().code);
    });
    if (!told) GTEST_SKIP() << "needs a mount namespace";
    EXPECT_EQ(*told, std::to_string(EXDEV)) << "something was mounted over it meanwhile";
}

TEST(FoldersBeneath, StaysOnTheVolumeOfItsRoot) {
    const TemporaryFolder place;
    place.folder("root/mounted/below");
    place.folder("root/other");
    place.folder("elsewhere/below");
    const std::string root = fs::canonical(place / "root").string();
    const auto told = inMountNamespace([&] {
        if (!tidyro::testing::bindMount(place / "elsewhere", root + "/mounted"))
            return std::string("no");
        return std::to_string(errorOf(root, "mounted") == EXDEV) +
               std::to_string(errorOf(root, "mounted/below") == EXDEV) +
               std::to_string(errorOf(root, "other") == 0) +
               std::to_string(errorOf(root + "/mounted", "below") == 0);
    });
    if (!told) GTEST_SKIP() << "needs a mount namespace";
    EXPECT_EQ(*told, "1111");

    const auto image = MountedImage::make("btrfs");
    if (!image) GTEST_SKIP() << "btrfs images need root and its tools";
    const std::string top = fs::canonical(image->folder().path()).string();
    if (!tidyro::testing::runQuietly("btrfs subvolume create '" + top + "/sub'")) {
        GTEST_SKIP() << "needs the tools of btrfs";
    }
    EXPECT_EQ(errorOf(top, "sub"), EXDEV) << "one mount, another device";
}

struct Bench {
    TemporaryFolder place;

    Bench() {
        place.file("here/file", "mine");
        place.file("here/folder/inside", "too");
        place.file("there/taken", "theirs");
        place.link("there/link", "nowhere");
    }
    [[nodiscard]] FolderDescriptor open(const char* name) const {
        return *FolderDescriptor::openRoot(place / name);
    }
};

TEST(FolderChanges, NeverReplaceAndSayWhyTheyFail) {
    const Bench bench;
    LiveFolderChanges changes;
    const FolderDescriptor here = bench.open("here");
    const FolderDescriptor there = bench.open("there");
    const auto failure = [](const FolderChanges::Changed& changed) { return changed.error().kind; };
    const auto rename = [&](const std::string& from, const std::string& to) {
        return changes.renameNeverReplacing({here, from}, {there, to});
    };
    EXPECT_EQ(failure(rename("file", "taken")), targetTaken);
    EXPECT_EQ(failure(rename("file", "link")), targetTaken) << "a link that leads nowhere";
    EXPECT_EQ(failure(rename("none", "new")), sourceGone);
    EXPECT_EQ(failure(rename("file", std::string(256, 'x'))), nameTooLong);
    EXPECT_EQ(failure(changes.makeFolder({here, "file"}, 0700)), targetTaken);
    EXPECT_EQ(failure(changes.makeEmptyFile({there, "link"})), targetTaken);
    EXPECT_EQ(failure(changes.link({here, "file"}, {there, "taken"})), targetTaken);
    EXPECT_EQ(failure(changes.removeFolder({here, "folder"})), targetTaken) << "not empty";
    EXPECT_FALSE(changes.removeFile({here, "folder"})) << "a folder";
    const std::string before = "file=mine folder/ folder/inside=too";
    EXPECT_EQ(listing(bench.place / "here"), before);
    EXPECT_EQ(listing(bench.place / "there"), "link@ taken=theirs");

    EXPECT_TRUE(rename("folder", "moved"));
    EXPECT_TRUE(changes.removeFile({there, "link"}));
    EXPECT_TRUE(changes.flush(there));
    EXPECT_TRUE(changes.flushVolume(here));
    EXPECT_EQ(listing(bench.place / "here"), "file=mine");
    EXPECT_EQ(listing(bench.place / "there"), "moved/ moved/inside=too taken=theirs");
}

TEST(FolderChanges, TellOfClosedFoldersAndFullVolumes) {
    const Bench bench;
    bench.place.permissions("", 0755);
    bench.place.permissions("here", 0555);
    bench.place.permissions("there", 0777);
    EXPECT_EQ(tidyro::testing::asOrdinaryUser([&] {
                  LiveFolderChanges changes;
                  const auto moved = changes.renameNeverReplacing({bench.open("here"), "file"},
                                                                  {bench.open("there"), "file"});
                  return std::string(moved ? "moved" : "");
              }),
              "");
    bench.place.permissions("here", 0755);
    EXPECT_EQ(ChangeError::fromSystem({EACCES}).kind, notPermitted);
    EXPECT_EQ(ChangeError::fromSystem({ENOSPC}).kind, full);
    EXPECT_EQ(ChangeError::fromSystem({EDQUOT}).kind, full);
    EXPECT_EQ(ChangeError::fromSystem({EROFS}).kind, readOnly);
    EXPECT_EQ(ChangeError::fromSystem({EXDEV}).kind, otherVolume);
    EXPECT_EQ(ChangeError::fromSystem({EIO}).kind, failed);
}

TEST(PrivateFolder, IsOursAloneAndNotAStrangers) {
    const Bench bench;
    LiveFolderChanges changes;
    const FolderDescriptor here = bench.open("here");
    const auto made = PrivateFolder::make(changes, here, ".ours");
    ASSERT_TRUE(made);
    EXPECT_TRUE(isPrivateFolder(made->folder()));
    EXPECT_TRUE(PrivateFolder::open(here, ".ours"));
    EXPECT_EQ(PrivateFolder::make(changes, here, ".ours").error().kind, targetTaken);
    bench.place.link("here/link", ".ours");
    EXPECT_FALSE(PrivateFolder::open(here, "link"));
    bench.place.permissions("here/.ours", 0750);
    EXPECT_EQ(PrivateFolder::open(here, ".ours").error().kind, failed) << "others may look into it";

    // Somebody exchanges it in the moment after it was made.
    ChangeSchedule schedule;
    ScheduledFolderChanges exchanged(schedule);
    const std::string folder = bench.place / "here/.new";
    exchanged.afterEach = [&] {
        if (fs::exists(folder + "-moved")) return;
        fs::rename(folder, folder + "-moved");
        fs::create_directory(folder);
        fs::permissions(folder, fs::perms::owner_all | fs::perms::others_exec);
    };
    EXPECT_EQ(PrivateFolder::make(exchanged, here, ".new").error().kind, failed);

    const std::string name = PrivateFolder::nameFor(UUID());
    for (const std::string& path : {name, "/a/" + name, "/.tidyro-a/" + name + "/b"}) {
        EXPECT_TRUE(PrivateFolder::isInOne(path)) << path;
    }
    for (const std::string& path : {"/a" + name, "/" + name + "a/b", std::string("/.tidyro-/a")}) {
        EXPECT_FALSE(PrivateFolder::isInOne(path)) << path;
    }
}

TEST(MoveNeverReplacing, TakesAPrivateFolderWhereTheFileSystemCannot) {
    const Bench bench;
    ChangeSchedule schedule;
    ScheduledFolderChanges changes(schedule, ScheduledFolderChanges::ExclusiveRename::unknown);
    const FolderDescriptor here = bench.open("here");
    const FolderDescriptor there = bench.open("there");
    const auto mine = PrivateFolder::make(changes, there, ".ours");
    ASSERT_TRUE(mine);
    const FolderDescriptor& ours = mine->folder();
    const auto move = [&](const FolderDescriptor& from, const std::string& name,
                          const FolderDescriptor& to, const std::string& newName) {
        const auto moved = moveNeverReplacing(changes, {from, name}, {to, newName});
        return moved ? -1 : static_cast<int>(moved.error().kind);
    };
    constexpr int done = -1;
    EXPECT_EQ(move(here, "file", there, "new"), static_cast<int>(noExclusiveRename))
        << "neither folder is ours";
    EXPECT_EQ(move(here, "file", ours, "file"), done);
    EXPECT_EQ(move(here, "folder", ours, "folder"), done);
    EXPECT_EQ(listing(bench.place / "there"),
              ".ours/ .ours/file=mine .ours/folder/ .ours/folder/inside=too link@ taken=theirs");
    EXPECT_EQ(move(here, "file", ours, "other"), static_cast<int>(sourceGone));
    EXPECT_EQ(move(ours, "folder", ours, "file"), static_cast<int>(targetTaken));

    EXPECT_EQ(move(ours, "file", there, "taken"), static_cast<int>(targetTaken));
    EXPECT_EQ(move(ours, "file", there, "link"), static_cast<int>(targetTaken));
    EXPECT_EQ(move(ours, "folder", there, "taken"), static_cast<int>(targetTaken));
    EXPECT_EQ(move(ours, "folder", here, "folder"), done);
    EXPECT_EQ(move(ours, "file", here, "file"), done);
    EXPECT_EQ(listing(bench.place / "here"), "file=mine folder/ folder/inside=too");
    EXPECT_EQ(listing(bench.place / "there"), ".ours/ link@ taken=theirs");

    // Somebody puts something into the empty folder that waits for ours.
    EXPECT_EQ(move(here, "folder", ours, "folder"), done);
    changes.beforeEach = [&] {
        if (fs::exists(bench.place / "here/folder")) bench.place.file("here/folder/new", "theirs");
    };
    EXPECT_EQ(move(ours, "folder", here, "folder"), static_cast<int>(targetTaken));
    EXPECT_EQ(listing(bench.place / "here"), "file=mine folder/ folder/new=theirs");
    EXPECT_EQ(listing(bench.place / "there/.ours"), "folder/ folder/inside=too");
}

/// Whatever step of a move dies or fails, the item is there once, or one file has both names.
TEST(MoveNeverReplacing, LosesNothingWhereverItEnds) {
    using enum ChangeSchedule::Disturbance;
    using enum ScheduledFolderChanges::ExclusiveRename;
    for (const auto rename : {known, unknown}) {
        for (const auto how : {endBefore, endAfter, failure}) {
            for (std::uint64_t at = 1; at < 20; ++at) {
                const Bench bench;
                LiveFolderChanges live;
                const FolderDescriptor here = bench.open("here");
                const FolderDescriptor there = bench.open("there");
                const auto mine = PrivateFolder::make(live, there, ".ours");
                ASSERT_TRUE(mine);
                ChangeSchedule schedule({.at = at, .how = how});
                ScheduledFolderChanges changes(schedule, rename);
                for (const std::string name : {"file", "folder"}) {
                    if (!moveNeverReplacing(changes, {here, name}, {mine->folder(), name}))
                        continue;
                    static_cast<void>(
                        moveNeverReplacing(changes, {mine->folder(), name}, {here, name}));
                }
                const std::string left = listing(bench.place.path());
                const auto isThere = [&](const char* what) {
                    return left.find(what) != std::string::npos;
                };
                EXPECT_TRUE(isThere("/file=mine")) << at << left;
                EXPECT_TRUE(isThere("/folder/inside=too")) << at << left;
                EXPECT_TRUE(isThere("taken=theirs")) << at << left;
                if (schedule.count() < at) break;
                EXPECT_LT(at, 19U);
            }
        }
    }
}

/// A folder on the way is exchanged for a link all the time: nothing behind the link ever moves.
TEST(MoveNeverReplacing, IsNotLedElsewhereByALink) {
    const TemporaryFolder place;
    place.folder("root/a");
    place.folder("private");
    place.file("elsewhere/file", "not ours");
    place.link("root/link", place / "elsewhere");
    const FoldersBeneath root = beneath(place / "root");
    const FolderDescriptor target = *FolderDescriptor::openRoot(place / "private");
    std::atomic<bool> isOver = false;
    std::thread attacker([&] {
        const std::string a = place / "root/a";
        while (!isOver) {
            ::rename(a.c_str(), (place / "root/b").c_str());
            ::rename((place / "root/link").c_str(), a.c_str());
            ::rename(a.c_str(), (place / "root/link").c_str());
            ::rename((place / "root/b").c_str(), a.c_str());
        }
    });
    LiveFolderChanges changes;
    int opened = 0;
    int refused = 0;
    for (int i = 0; i < 200'000 && (opened < 200 || refused < 200); ++i) {
        const auto folder = root.open("a");
        if (!folder) {
            ++refused;
            continue;
        }
        ++opened;
        EXPECT_FALSE(moveNeverReplacing(changes, {*folder, "file"}, {target, "file"}));
    }
    isOver = true;
    attacker.join();
    EXPECT_GT(opened, 0);
    EXPECT_EQ(contents(place / "elsewhere/file"), "not ours");
    EXPECT_EQ(listing(place / "private"), "");
}

#ifdef __linux__
/// Lets the kernel refuse every rename with a flag, as the file systems do that know none.
bool refuseFlagsOfRename() {
    constexpr auto flags = static_cast<unsigned>(offsetof(seccomp_data, args[4]));
    sock_filter steps[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_renameat2, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, flags),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EINVAL),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    sock_fprog program{.len = 6, .filter = steps};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

TEST(MoveNeverReplacing, NoticesWhatTheSystemCannotDo) {
    const Bench bench;
    const std::string told = tidyro::testing::inChild([&]() -> std::string {
        if (!refuseFlagsOfRename()) return "skip";
        LiveFolderChanges changes;
        const FolderDescriptor here = bench.open("here");
        const FolderDescriptor there = bench.open("there");
        const auto refused = moveNeverReplacing(changes, {here, "file"}, {there, "new"});
        if (refused || refused.error().kind != noExclusiveRename) return "not noticed";
        const auto mine = PrivateFolder::make(changes, there, ".ours");
        if (!mine || !moveNeverReplacing(changes, {here, "file"}, {mine->folder(), "file"})) {
            return "not moved";
        }
        return contents(bench.place / "there/.ours/file");
    });
    if (told == "skip") GTEST_SKIP() << "needs a filter of system calls";
    EXPECT_EQ(told, "mine");
}
#endif

} // namespace
} // namespace tidyro::platform

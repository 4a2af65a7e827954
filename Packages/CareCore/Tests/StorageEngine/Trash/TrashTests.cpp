#include "Platform/Folders/Trash.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Platform/Files/DurableFile.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "Platform/Testing/FakeVolumes.h"
#include "Platform/Testing/ScheduledChangeGate.h"
#include "StorageEngine/Trash/TrashMover.h"
#include "StorageEngine/Trash/TrashRestorer.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

namespace fs = std::filesystem;
using namespace testing;
using platform::Trash;
using platform::TrashFailure;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

std::string contents(const std::string& path) {
    return platform::readWholeFile(path, 1U << 24U).value_or("unreadable");
}

bool exists(const std::string& path) { return platform::fileMetadata(path).has_value(); }

unsigned modeOf(const std::string& path) { return platform::fileMetadata(path)->permissions; }

/// A place of its own with a Trash for the person in it.
struct TrashPlace {
    TemporaryFolder place;
    std::string home = place / "data/Trash";
    SystemTrashMover mover{{.home = FileURL::folder(home)}};

    /// Where the item lies in the Trash, or why it does not.
    std::string put(const std::string& path) {
        const auto moved = mover.moveToTrash(FileURL::file(path));
        return moved ? moved->path() : moved.error().description();
    }
    static std::string noteOf(const std::string& trashed) {
        const fs::path path(trashed);
        return contents(
            (path.parent_path().parent_path() / "info" / (path.filename().string() + ".trashinfo"))
                .string());
    }
};

/// What interchange formats like to get wrong.
const std::vector<std::string> oddNames{"plain.txt",
                                        "a b",
                                        "100%",
                                        "new\nline",
                                        "caf\u00E9",
                                        "\xFF\xFE.bin",
                                        std::string(251, 'x') + ".txt"};

TEST(Trash, MovesItemsWithANoteOfWhereTheyLay) {
    TrashPlace at;
    at.place.folder("folder/inside");
    at.place.link("link", "/nowhere");
    std::vector<std::string> names{"folder", "link"};
    for (const std::string& name : oddNames) {
        at.place.file(name, name);
        names.push_back(name);
    }
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        const std::string path = at.place / name;
        const auto before = platform::fileMetadata(path);
        const std::string trashed = at.put(path);
        const auto after = platform::fileMetadata(trashed);
        ASSERT_TRUE(after) << trashed;
        EXPECT_EQ(after->identity, before->identity);
        EXPECT_FALSE(exists(path));
        EXPECT_EQ(fs::path(trashed).parent_path(), at.home + "/files");
        EXPECT_THAT(
            TrashPlace::noteOf(trashed),
            MatchesRegex("\\[Trash Info\\]\nPath=.*\nDeletionDate=[0-9]{4}-[0-9]{2}-[0-9]{2}"
                         "T[0-9]{2}:[0-9]{2}:[0-9]{2}\n"));
        EXPECT_THAT(TrashPlace::noteOf(trashed),
                    HasSubstr("\nPath=" + FileURL::file(path).text().substr(7) + "\n"));
    }
    EXPECT_EQ(modeOf(at.home), 0700U);
    EXPECT_EQ(modeOf(at.home + "/files"), 0700U);
    EXPECT_EQ(modeOf(at.home + "/info"), 0700U);
    EXPECT_EQ(at.put(at.place / "plain.txt"),
              "The item was already gone by the time Tidyro tried to move it, so nothing happened. "
              "It may have been moved or deleted another way.");
}

TEST(Trash, FindsANameOfItsOwnForEachItem) {
    TrashPlace at;
    at.place.file("data/Trash/files/note.txt", "an orphan, without a note");
    at.place.file("data/Trash/info/other.txt.trashinfo", "a note without its item");
    at.place.permissions("data/Trash", 0700);
    std::vector<std::string> trashed;
    for (int i = 0; i < 30; ++i) {
        at.place.file("note.txt", std::to_string(i));
        trashed.push_back(at.put(at.place / "note.txt"));
        EXPECT_EQ(contents(trashed.back()), std::to_string(i));
    }
    EXPECT_EQ(trashed[0], at.home + "/files/note.2.txt");
    EXPECT_EQ(trashed[1], at.home + "/files/note.3.txt");
    EXPECT_EQ(contents(at.home + "/files/note.txt"), "an orphan, without a note");
    at.place.file("other.txt", "x");
    EXPECT_EQ(at.put(at.place / "other.txt"), at.home + "/files/other.2.txt");
    EXPECT_EQ(contents(at.home + "/info/other.txt.trashinfo"), "a note without its item");
    // Cut between characters: of the name's two-byte ones, none is left in half.
    std::string longName;
    while (longName.size() < 250) longName += "\u00E9";
    at.place.file(longName + ".txt");
    const std::string cut = fs::path(at.put(at.place / (longName + ".txt"))).filename().string();
    EXPECT_TRUE(cut.ends_with(".txt"));
    EXPECT_EQ(cut.size() % 2, 0U);
    EXPECT_EQ(cut.size(), 244U);
}

TEST(Trash, GivesUpAPlaceThatIsNotUsedAndTakesBack) {
    const TemporaryFolder place;
    place.file("a", "old");
    const auto folder = platform::FolderDescriptor::openRoot(place.path());
    Trash trash({.home = FileURL::folder(place / "Trash")});
    const platform::TrashItem item{.folder = *folder,
                                   .name = "a",
                                   .path = place / "a",
                                   .seen = *platform::fileMetadata(place / "a")};
    const std::string note = place / "Trash/info/a.trashinfo";
    {
        const auto slot = trash.reserve(item);
        ASSERT_TRUE(slot);
        EXPECT_TRUE(exists(note)) << "noted before anything is moved";
    }
    EXPECT_FALSE(exists(note));
    auto slot = trash.reserve(item);
    ASSERT_TRUE(slot && slot->move());
    EXPECT_EQ(contents(slot->url().path()), "old");
    place.file("a", "new");
    const auto refused = slot->moveBack();
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().kind, TrashFailure::nameTaken);
    EXPECT_EQ(contents(place / "a"), "new");
    EXPECT_TRUE(exists(note));
    fs::remove(place / "a");
    ASSERT_TRUE(slot->moveBack());
    EXPECT_EQ(contents(place / "a"), "old");
    EXPECT_FALSE(exists(note));
}

TEST(Trash, KeepsTheSizesOfFolders) {
    const TemporaryFolder place;
    const auto folder = platform::FolderDescriptor::openRoot(place.path());
    Trash trash({.home = FileURL::folder(place / "Trash")});
    const auto put = [&](const std::string& name, std::uint64_t bytes) {
        place.folder(name);
        auto slot = trash.reserve({.folder = *folder,
                                   .name = name,
                                   .path = place / name,
                                   .seen = *platform::fileMetadata(place / name),
                                   .byteCount = bytes});
        EXPECT_TRUE(slot && slot->move());
        EXPECT_TRUE(trash.flush());
    };
    put("a b", 5);
    put("c", 7);
    const auto noted = [&](const std::string& name) {
        return std::to_string(static_cast<std::int64_t>(
            platform::fileMetadata(place / ("Trash/info/" + name + ".trashinfo"))
                ->modified->secondsSince1970()));
    };
    EXPECT_EQ(contents(place / "Trash/directorysizes"),
              "5 " + noted("a b") + " a%20b\n7 " + noted("c") + " c\n");
    fs::remove(place / "Trash/files/c");
    put("d", 9);
    EXPECT_EQ(contents(place / "Trash/directorysizes"),
              "5 " + noted("a b") + " a%20b\n9 " + noted("d") + " d\n");
}

/// What a run makes and flushes, in order.
struct FlushesInOrder final : platform::ChangeGate {
    std::string told;
    Done perform(platform::DiskChange kind, const std::function<Done()>& change) override {
        if (kind == platform::DiskChange::makeFile) told += "note ";
        if (kind == platform::DiskChange::flush) told += "flushed ";
        return change();
    }
};

TEST(Trash, SharesItsFlushesAndFlushesNotesBySingleOnesWhereVolumesAreSlow) {
    TemporaryFolder place;
    place.folder("Trash"); // the folders above it are flushed when they are made
    place.permissions("Trash", 0700);
    const auto folder = platform::FolderDescriptor::openRoot(place.path());
    platform::LiveFolderChanges changes;
    double now = 0;
    double step = 0;
    platform::FolderFlushes flushes(changes, [&] { return now += step; });
    FlushesInOrder gate;
    Trash trash({.gate = &gate, .flushes = &flushes, .home = FileURL::folder(place / "Trash")});
    const auto put = [&](const std::string& name) {
        place.file(name);
        auto slot = trash.reserve({.folder = *folder,
                                   .name = name,
                                   .path = place / name,
                                   .seen = *platform::fileMetadata(place / name)});
        EXPECT_TRUE(slot && slot->move());
        gate.told += "moved ";
    };
    put("a");
    EXPECT_EQ(gate.told, "note moved ");
    step = 2;
    EXPECT_TRUE(flushes.flush()); // not asked through the Trash
    put("b");
    EXPECT_EQ(gate.told, "note moved note flushed moved ");

    // The rename, then a flush for the folder that it left, for its own and for that of its note.
    ChangeSchedule schedule;
    ScheduledFolderChanges counted(schedule);
    platform::FolderFlushes others(counted, [&] { return now += step; });
    EXPECT_TRUE(others.note(*folder, platform::FolderFlushes::Side::left) && others.flush());
    Trash another(
        {.changes = &counted, .flushes = &others, .home = FileURL::folder(place / "Trash")});
    const std::uint64_t before = schedule.count();
    place.file("c");
    auto slot = another.reserve({.folder = *folder,
                                 .name = "c",
                                 .path = place / "c",
                                 .seen = *platform::fileMetadata(place / "c")});
    ASSERT_TRUE(slot && slot->move() && another.flush());
    EXPECT_EQ(schedule.count() - before, 4U);
}

TEST(Trash, UsesTheTrashOfAnotherVolumeOnlyWhenItIsSafe) {
    const std::string user = std::to_string(platform::currentUserID());
    for (const std::string type : {"ext4", "xfs", "btrfs"}) {
        SCOPED_TRACE(type);
        const auto image = MountedImage::make(type);
        if (!image) GTEST_SKIP() << "needs root and mkfs." << type;
        const TemporaryFolder& disk = image->folder();
        disk.folder("here");
        const auto put = [&] {
            disk.file("here/a b", "x");
            TrashPlace at; // nothing is known from before
            return at.put(disk / "here/a b");
        };
        const auto clean = [&] {
            for (const std::string& name : {std::string(".Trash"), ".Trash-" + user}) {
                fs::remove_all(disk / name);
            }
        };
        const std::string own = disk / (".Trash-" + user + "/files/a b");
        EXPECT_EQ(put(), own);
        EXPECT_THAT(TrashPlace::noteOf(own), HasSubstr("\nPath=here/a%20b\n"));
        EXPECT_EQ(modeOf(disk / (".Trash-" + user)), 0700U);
        clean();
        disk.folder(".Trash");
        disk.permissions(".Trash", 01777);
        EXPECT_EQ(put(), disk / (".Trash/" + user + "/files/a b"));
        clean();
        disk.folder(".Trash");
        disk.permissions(".Trash", 0777);
        EXPECT_EQ(put(), own) << "not sticky";
        clean();
        disk.folder("elsewhere");
        disk.permissions("elsewhere", 01777);
        disk.link(".Trash", "elsewhere");
        EXPECT_EQ(put(), own) << "a link";
        clean();
        const std::string unusable = "Tidyro could not move this to the Trash: the Trash of the "
                                     "disk that it lies on cannot be used. Nothing else was "
                                     "changed.";
        disk.link(".Trash-" + user, "elsewhere");
        EXPECT_EQ(put(), unusable);
        clean();
        disk.folder(".Trash-" + user);
        disk.permissions(".Trash-" + user, 0755);
        EXPECT_EQ(put(), unusable);
        clean();
        EXPECT_TRUE(fs::is_empty(disk / "elsewhere"));
        EXPECT_EQ(contents(disk / "here/a b"), "x");
        if (type != "btrfs") continue;
        ASSERT_TRUE(runQuietly("btrfs subvolume create '" + disk / "here/sub" + "'"));
        disk.file("here/sub/c", "x");
        TrashPlace at;
        EXPECT_THAT(at.put(disk / "here/sub/c"),
                    HasSubstr("it lies on a part of its disk that has no Trash"));
        EXPECT_FALSE(exists(disk / (".Trash-" + user)));
    }
}

TEST(Trash, RefusesWhereNoTrashIsInReach) {
    const auto told = inMountNamespace([] {
        TrashPlace at;
        at.place.folder("memory");
        at.place.folder("again");
        at.place.folder("real");
        at.place.file("real/b", "x");
        if (!runQuietly("mount -t tmpfs none '" + at.place / "memory" + "'") ||
            !bindMount(at.place / "real", at.place / "again")) {
            return std::string("not mounted");
        }
        at.place.file("memory/a", "x");
        std::string all = at.put(at.place / "memory/a") + "\n" + at.put(at.place / "again/b");
        all += exists(at.place / "memory/a") && exists(at.place / "again/b") ? "\nstay" : "\ngone";
        const bool unmounted =
            runQuietly("umount '" + at.place / "memory" + "' '" + at.place / "again" + "'");
        return all + (unmounted ? "" : ", mounted");
    });
    if (!told || *told == "not mounted") GTEST_SKIP() << "needs a mount namespace";
    EXPECT_EQ(*told,
              "Tidyro could not move this to the Trash: it does not lie on a disk with a "
              "Trash. Nothing else was changed.\n"
              "Tidyro could not move this to the Trash: its folder appears here from another "
              "place, and no Trash can be reached from it. Nothing else was changed.\nstay");
}

TEST(Trash, RefusesWhatAPersonMayNotMove) {
    const TemporaryFolder place;
    place.permissions(".", 0755);
    place.folder("readonly");
    place.file("readonly/a");
    place.folder("sticky");
    place.file("sticky/b");
    place.permissions("sticky", 01777);
    place.permissions("readonly", 0555);
    place.folder("own");
    place.permissions("own", 0777);
    const bool isRoot = ::geteuid() == 0;
    const std::string told = asOrdinaryUser([&] {
        const std::string home = place / "own/home";
        SystemTrashMover mover({.home = FileURL::folder(home)});
        fs::create_directory(place / "own/item");
        fs::permissions(place / "own/item", fs::perms::owner_read | fs::perms::owner_exec);
        std::string all;
        for (const char* path : {"readonly/a", "own/item", "sticky/b"}) {
            if (std::string_view(path) == "sticky/b" && !isRoot) continue; // it is our own
            const auto moved = mover.moveToTrash(FileURL::file(place / path));
            all += (moved ? "moved" : moved.error().receiptDescription()) + "\n";
        }
        fs::permissions(place / "own/item", fs::perms::owner_all);
        return all;
    });
    EXPECT_THAT(told, StartsWith("The Trash move did not complete: its folder is read-only, so it "
                                 "cannot be moved to the Trash\n"
                                 "The Trash move did not complete: it is a read-only folder, so it "
                                 "cannot be moved to the Trash\n"));
    place.permissions("readonly", 0755);
    if (!isRoot) return;
    EXPECT_THAT(told, HasSubstr("shared folder, from which only its owner can move it"));

    TrashPlace at;
    ASSERT_EQ(::chown((place / "own").c_str(), 12'345, 12'345), 0);
    place.file("own/theirs");
    EXPECT_THAT(at.put(place / "own/theirs"), HasSubstr("it belongs to somebody else"));
    // A superuser with somebody else's home.
    place.file("mine");
    const std::string theirs = place / "own/data/Trash";
    EXPECT_FALSE(SystemTrashMover({.home = FileURL::folder(theirs)})
                     .moveToTrash(FileURL::file(place / "mine")));
    EXPECT_FALSE(exists(place / "own/data"));
    const auto image = MountedImage::make("ext4");
    if (!image) return;
    image->folder().file("locked");
    image->folder().file("added");
    ASSERT_TRUE(runQuietly("chattr +i '" + image->folder() / "locked" + "'"));
    ASSERT_TRUE(runQuietly("chattr +a '" + image->folder() / "added" + "'"));
    for (const char* name : {"locked", "added"}) {
        EXPECT_THAT(at.put(image->folder() / name), HasSubstr("locked"));
        EXPECT_TRUE(exists(image->folder() / name));
    }
    EXPECT_THAT(*appAuthoredMoveFailureReason({EPERM}, FileURL::file(image->folder() / "locked")),
                HasSubstr("locked"));
}

TEST(Trash, IgnoresTheDataFolderOfAPackagedEditor) {
    const std::string told = inChild([] {
        ::setenv("HOME", "/home/ada", 1);
        std::string all;
        for (const char* data :
             {"/home/ada/snap/editor/1/.local/share", "/home/ada/.var/app/x/data",
              "/home/ada/snapshots", "/data", "relative"}) {
            ::setenv("XDG_DATA_HOME", data, 1);
            all += platform::applicationSupportFolder().path() + " ";
        }
        return all;
    });
    EXPECT_EQ(told, "/home/ada/.local/share /home/ada/.local/share /home/ada/snapshots /data "
                    "/home/ada/.local/share ");
}

// Putting back --------------------------------------------------------------------------------

FileFingerprint fingerprintOf(const std::string& path) {
    const auto seen = platform::fileMetadata(path);
    return {.byteCount = seen->byteCount,
            .modificationDate = seen->modified,
            .fileResourceIdentifier = "99:" + std::to_string(seen->identity.inode)};
}

TEST(TrashRestorer, PutsBackTheVeryItemAndReplacesNothing) {
    TrashPlace at;
    at.place.file("deep/er/a.txt", "x");
    const std::string path = at.place / "deep/er/a.txt";
    TrashRestorer::Item item{
        .trashURL = {}, .originalURL = FileURL::file(path), .fingerprint = fingerprintOf(path)};
    item.trashURL = FileURL::file(at.put(path));
    const std::string note = at.home + "/info/a.txt.trashinfo";
    ASSERT_TRUE(exists(note));
    const TrashRestorer restorer;
    using Kind = TrashRestorer::Error::Kind;

    at.place.file("deep/er/a.txt", "new");
    at.place.file("deep/er/a (restored).txt", "new");
    auto back = restorer.putBack(item);
    ASSERT_FALSE(back);
    EXPECT_EQ(back.error().kind, Kind::placeTaken);
    EXPECT_EQ(back.error().beside, FileURL::file(at.place / "deep/er/a (restored 2).txt"));
    EXPECT_EQ(contents(path), "new");

    fs::remove_all(at.place / "deep");
    at.place.folder("elsewhere");
    at.place.link("deep", "elsewhere");
    EXPECT_EQ(restorer.putBack(item).error().kind, Kind::folderUnreachable);
    fs::remove(at.place / "deep");
    const std::size_t above = static_cast<std::size_t>(std::ranges::count(at.place.path(), '/'));
    item.folderPermissions.assign(above, 0755);
    item.folderPermissions.push_back(0750);
    ASSERT_TRUE(restorer.putBack(item));
    EXPECT_EQ(contents(path), "x");
    EXPECT_EQ(modeOf(at.place / "deep"), 0750U);
    EXPECT_EQ(modeOf(at.place / "deep/er"), 0700U) << "its mode is not known";
    EXPECT_FALSE(exists(note));
    EXPECT_TRUE(fs::is_empty(at.home + "/files"));
    EXPECT_EQ(restorer.putBack(item).error().kind, Kind::notInTrash);

    // Emptied meanwhile, and another file went there under the same name.
    item.trashURL = FileURL::file(at.put(path));
    fs::rename(at.home + "/files/a.txt", at.place / "kept");
    at.place.file("data/Trash/files/a.txt", "x");
    EXPECT_EQ(restorer.putBack(item).error().kind, Kind::anotherItem);
    EXPECT_TRUE(exists(note));
}

TEST(TrashRestorer, PutsBackOnlyWhatIsOnTheDiskThatItWasOn) {
    TrashPlace at;
    at.place.file("a", "x");
    const std::string path = at.place / "a";
    TrashRestorer::Item item{
        .trashURL = {}, .originalURL = FileURL::file(path), .fingerprint = fingerprintOf(path)};
    item.trashURL = FileURL::file(at.put(path));
    auto volumes = platform::testing::FakeVolumes::withOneAt(at.place.path());
    const auto isBack = [&](const std::string& then, const std::string& now) {
        item.fingerprint.volumeIdentifier = then;
        volumes.answer->front().identifier = now;
        const auto back = TrashRestorer(nullptr, nullptr, &volumes).putBack(item);
        EXPECT_TRUE(back || back.error().kind == TrashRestorer::Error::Kind::anotherItem);
        if (back) fs::rename(path, item.trashURL.path());
        return back.has_value();
    };
    EXPECT_FALSE(isBack("1234-abcd", "5678-abcd"));
    EXPECT_FALSE(isBack("1234-abcd", "8:1:vfat"));
    EXPECT_TRUE(isBack("1234-abcd", "1234-abcd"));
    EXPECT_TRUE(isBack("1234-abcd@2049", "1234-abcd")) << "a copy of the disk was there as well";
    EXPECT_TRUE(isBack("8:1:vfat", "8:17:vfat")) << "numbers, which change with the next start";
    volumes.answer = std::unexpected(SystemError{EIO});
    item.fingerprint.volumeIdentifier = "1234-abcd";
    EXPECT_FALSE(TrashRestorer(nullptr, nullptr, &volumes).putBack(item)) << "nothing is known";
}

/// Runs `work` undisturbed, and then once for each of its changes and each way to disturb it, in a
/// fresh place each time.
template <class Work>
void atEachChange(Work work) {
    using Disturbance = ChangeSchedule::Disturbance;
    std::uint64_t count = 0;
    for (std::uint64_t at = 0; at <= count; ++at) {
        for (const auto& [how, code] :
             {std::pair(Disturbance::endBefore, 0), std::pair(Disturbance::endAfter, 0),
              std::pair(Disturbance::failure, EIO), std::pair(Disturbance::failure, ENOSPC)}) {
            SCOPED_TRACE("change " + std::to_string(at) + ", " + std::to_string(code));
            ChangeSchedule schedule({.at = at, .how = how, .code = code});
            ScheduledFolderChanges changes(schedule);
            ScheduledChangeGate gate(schedule);
            work(changes, gate, schedule);
            if (at == 0) count = schedule.count();
        }
    }
    EXPECT_GE(count, 4U);
}

TEST(Trash, LosesNothingWhereverItStops) {
    atEachChange([](ScheduledFolderChanges& changes, ScheduledChangeGate& gate,
                    const ChangeSchedule& schedule) {
        const TemporaryFolder place;
        place.file("a", "x");
        const std::string home = place / "data/Trash";
        SystemTrashMover mover({.changes = &changes, .gate = &gate, .home = FileURL::folder(home)});
        const auto moved = mover.moveToTrash(FileURL::file(place / "a"));
        const bool isThere = contents(place / "a") == "x";
        const bool isInTrash = contents(home + "/files/a") == "x";
        EXPECT_NE(isThere, isInTrash) << "the item is nowhere, or twice";
        EXPECT_TRUE(isThere || exists(home + "/info/a.trashinfo")) << "nobody knows where it lay";
        // What died says nothing any more.
        EXPECT_TRUE(isInTrash == moved.has_value() || schedule.isOver())
            << "what is told is not so";
    });
}

TEST(TrashRestorer, LosesNothingWhereverItStops) {
    atEachChange([](ScheduledFolderChanges& changes, ScheduledChangeGate&, const ChangeSchedule&) {
        TrashPlace at;
        at.place.file("deep/a", "x");
        const TrashRestorer::Item item{.trashURL = FileURL::file(at.home + "/files/a"),
                                       .originalURL = FileURL::file(at.place / "deep/a"),
                                       .fingerprint = fingerprintOf(at.place / "deep/a")};
        ASSERT_EQ(at.put(at.place / "deep/a"), item.trashURL.path());
        fs::remove(at.place / "deep");
        const bool isBack = TrashRestorer(&changes).putBack(item).has_value();
        const bool isThere = contents(at.place / "deep/a") == "x";
        const bool isInTrash = contents(item.trashURL.path()) == "x";
        EXPECT_NE(isThere, isInTrash) << "the item is nowhere, or twice";
        EXPECT_TRUE(isThere || exists(at.home + "/info/a.trashinfo"));
        EXPECT_TRUE(isThere || !isBack);
        if (!isBack && isInTrash) {
            EXPECT_TRUE(TrashRestorer().putBack(item)) << "a second try";
        }
    });
}

// With others ---------------------------------------------------------------------------------

std::string quoted(const std::string& text) {
    std::string made = "'";
    for (const char each : text) made += each == '\'' ? std::string("'\\''") : std::string(1, each);
    return made + "'";
}

std::string output(const std::string& command) {
    TemporaryFolder place;
    static_cast<void>(
        std::system(("timeout 60 sh -c " + quoted(command) + " >'" + place / "out" + "' 2>&1")
                        .c_str())); // NOLINT
    return contents(place / "out");
}

/// The file of a folder that has no other one.
std::string onlyFileIn(const std::string& folder) {
    std::string found = "/nothing";
    for (const auto& entry : fs::directory_iterator(folder)) {
        if (entry.is_regular_file()) found = entry.path().string();
    }
    return found;
}

/// Lets another program move a file to the Trash, and puts it back from there.
void expectPutBack(const std::string& path, const std::string& theirCommand,
                   const std::string& trash) {
    const FileFingerprint fingerprint = fingerprintOf(path);
    static_cast<void>(output(theirCommand + quoted(path)));
    ASSERT_FALSE(exists(path));
    EXPECT_TRUE(TrashRestorer().putBack({.trashURL = FileURL::file(onlyFileIn(trash + "/files")),
                                         .originalURL = FileURL::file(path),
                                         .fingerprint = fingerprint}));
    EXPECT_EQ(contents(path), "ours");
}

TEST(Trash, IsSharedWithTheCommandsOfOthers) {
    if (!runQuietly("command -v trash-list")) GTEST_SKIP() << "trash-cli is not installed";
    if (!testing::isProcMounted()) GTEST_SKIP() << "trash-cli needs /proc";
    TrashPlace at;
    const std::string with = "XDG_DATA_HOME=" + quoted(at.place / "data") + " ";
    for (const std::string& name : oddNames) {
        if (name.starts_with('\xFF')) continue; // they change such names themselves
        SCOPED_TRACE(name);
        const std::string path = at.place / name;
        at.place.file(name, "ours");
        const std::string trashed = at.put(path);
        ASSERT_TRUE(exists(trashed)) << trashed;
        EXPECT_THAT(output(with + "trash-list"), HasSubstr(path));
        static_cast<void>(output("echo 0 | " + with + "trash-restore " + quoted(path)));
        EXPECT_EQ(contents(path), "ours");
        EXPECT_FALSE(exists(trashed));
        if (name.size() > 240) continue; // they look for a shorter name without end

        expectPutBack(path, with + "trash-put ", at.home);
        EXPECT_TRUE(fs::is_empty(at.home + "/info"));
    }
}

TEST(Trash, IsSharedWithTheDesktop) {
    if (!runQuietly("command -v gio") || !runQuietly("command -v dbus-run-session") ||
        !runQuietly("dbus-run-session -- gio list trash:///")) {
        GTEST_SKIP() << "gio or its Trash is not installed";
    }
    TrashPlace at;
    const std::string with = "XDG_DATA_HOME=" + quoted(at.place / "data") + " dbus-run-session -- ";
    for (const std::string& name : oddNames) {
        SCOPED_TRACE(name);
        const std::string path = at.place / name;
        at.place.file(name, "ours");
        const std::string trashed = at.put(path);
        ASSERT_TRUE(exists(trashed)) << trashed;
        const std::string uri =
            "trash:///" +
            FileURL::file("/" + fs::path(trashed).filename().string()).text().substr(8);
        EXPECT_THAT(output(with + "gio info -a trash::orig-path " + quoted(uri)),
                    HasSubstr("trash::orig-path: "));
        const std::string told = output(with + "gio trash --restore " + quoted(uri));
        // What is not ASCII they name anew when they put it back, what they put there as well.
        if (std::ranges::any_of(name, [](char each) { return each < ' '; })) {
            EXPECT_FALSE(exists(path));
            std::error_code failed;
            fs::rename(onlyFileIn(at.place.path()), path, failed);
            EXPECT_FALSE(failed);
        }
        EXPECT_EQ(contents(path), "ours") << told;
        EXPECT_FALSE(exists(trashed));
        if (name.size() > 240) continue; // they have no room for its note

        expectPutBack(path, with + "gio trash ", at.home);
    }
}

/// Where a Trash may be: the person's own, or at the top of another volume, in each state that its
/// `.Trash` may have.
struct SharedTrash {
    enum class Shared : std::uint8_t { absent, sticky, notSticky, link };
    std::string name;
    std::string type = {}; ///< of the volume; none for the person's own Trash
    Shared state = Shared::absent;
};
std::vector<SharedTrash> sharedTrashes() {
    using enum SharedTrash::Shared;
    return {{.name = "home"},
            {.name = "ext4", .type = "ext4"},
            {.name = "xfs", .type = "xfs"},
            {.name = "btrfs", .type = "btrfs"},
            {.name = "sticky", .type = "ext4", .state = sticky},
            {.name = "not sticky", .type = "ext4", .state = notSticky},
            {.name = "link", .type = "ext4", .state = link}};
}

/// Items of every kind and name, each in a folder of its own.
struct SharedItems {
    struct Item {
        std::string name;
        std::string folder; ///< that it alone lies in
        FileFingerprint fingerprint;
        platform::ItemIdentity identity;
        bool isReadOnly;

        [[nodiscard]] std::string path() const { return folder + "/" + name; }
        /// What was put back, by whatever name.
        [[nodiscard]] bool isBack() const {
            const auto entries = fs::directory_iterator(folder);
            return std::any_of(begin(entries), end(entries), [&](const auto& entry) {
                return platform::fileMetadata(entry.path().string())->identity == identity;
            });
        }
        [[nodiscard]] bool isAscii() const {
            return std::ranges::all_of(name, [](char each) { return each >= ' '; });
        }
    };
    std::unique_ptr<MountedImage> image; // outlives the mover, which has folders of it open
    TrashPlace at;
    std::vector<Item> items;

    [[nodiscard]] const TemporaryFolder& top() const { return image ? image->folder() : at.place; }
    [[nodiscard]] std::string with() const {
        return "XDG_DATA_HOME=" + quoted(at.place / "data") + " ";
    }
    /// False when its volume cannot be made here.
    [[nodiscard]] bool prepare(const SharedTrash& shared) {
        using enum SharedTrash::Shared;
        if (!shared.type.empty() && !(image = MountedImage::make(shared.type))) return false;
        const std::string folder = shared.state == link ? "elsewhere" : ".Trash";
        if (shared.state != absent) {
            top().folder(folder);
            top().permissions(folder, shared.state == notSticky ? 0777 : 01777);
        }
        if (shared.state == link) top().link(".Trash", folder);
        int number = 0;
        for (const std::string& name : oddNames) {
            for (const char* kind : {"file", "folder", "read-only"}) {
                const std::string in = "items/" + std::to_string(++number);
                const std::string item = in + "/" + name;
                const bool isFile = std::string_view(kind) == "file";
                const bool isReadOnly = std::string_view(kind) == "read-only";
                top().file(isFile ? item : item + "/inside", "ours");
                if (isReadOnly) top().permissions(item, 0555);
                items.push_back({.name = name,
                                 .folder = top() / in,
                                 .fingerprint = fingerprintOf(top() / item),
                                 .identity = platform::fileMetadata(top() / item)->identity,
                                 .isReadOnly = isReadOnly});
            }
        }
        return true;
    }
    /// Where an item lies in a Trash, by its identity.
    [[nodiscard]] std::string trashed(const Item& item) const {
        const std::string user = std::to_string(platform::currentUserID());
        for (const std::string& files : {at.home + "/files", top() / (".Trash/" + user + "/files"),
                                         top() / (".Trash-" + user + "/files")}) {
            std::error_code none;
            for (const auto& entry : fs::directory_iterator(files, none)) {
                const auto seen = platform::fileMetadata(entry.path().string());
                if (seen && seen->identity == item.identity) return entry.path().string();
            }
        }
        return {};
    }
    /// Puts back what others put there, and tells how many items they had refused.
    std::size_t putBackTheirs() const {
        std::size_t refused = 0;
        for (const Item& item : items) {
            const std::string there = trashed(item);
            if (there.empty()) {
                EXPECT_TRUE(item.isBack()) << item.name;
                ++refused;
                continue;
            }
            const auto back = TrashRestorer().putBack({.trashURL = FileURL::file(there),
                                                       .originalURL = FileURL::file(item.path()),
                                                       .fingerprint = item.fingerprint});
            EXPECT_TRUE(back) << item.name << ": " << back.error().description();
            EXPECT_EQ(platform::fileMetadata(item.path())->identity, item.identity) << item.name;
        }
        return refused;
    }
};

TEST(Trash, IsSharedOnEveryVolumeWithTheCommandsOfOthers) {
    if (!runQuietly("command -v trash-list")) GTEST_SKIP() << "trash-cli is not installed";
    if (::geteuid() != 0) GTEST_SKIP() << "only root can mount volumes";
    if (!testing::isProcMounted()) GTEST_SKIP() << "trash-cli needs /proc";
    for (const SharedTrash& shared : sharedTrashes()) {
        SCOPED_TRACE(shared.name);
        SharedItems all;
        if (!all.prepare(shared)) continue;
        // They change names that are no text, and look for a shorter name than 255 bytes without
        // end.
        std::erase_if(all.items, [](const auto& each) { return each.name.starts_with('\xFF'); });
        for (const auto& item : all.items) ASSERT_TRUE(exists(all.at.put(item.path())));
        const std::string listed = output(all.with() + "trash-list");
        for (const auto& item : all.items) {
            EXPECT_THAT(listed, HasSubstr(item.path()));
            const std::string told =
                output("echo 0 | " + all.with() + "trash-restore " + quoted(item.path()));
            EXPECT_TRUE(item.isBack() && exists(item.path())) << item.name << ": " << told;
        }
        std::erase_if(all.items, [](const auto& each) { return each.name.size() > 240; });
        std::string command = all.with() + "trash-put";
        for (const auto& item : all.items) command += " " + quoted(item.path());
        static_cast<void>(output(command));
        EXPECT_EQ(all.putBackTheirs(), 0U);
    }
}

TEST(Trash, IsSharedOnEveryVolumeWithTheDesktop) {
    if (!runQuietly("command -v gio") || !runQuietly("command -v dbus-run-session") ||
        !runQuietly("dbus-run-session -- gio list trash:///")) {
        GTEST_SKIP() << "gio or its Trash is not installed";
    }
    if (::geteuid() != 0) GTEST_SKIP() << "only root can mount volumes";
    for (const SharedTrash& shared : sharedTrashes()) {
        SCOPED_TRACE(shared.name);
        SharedItems all;
        if (!all.prepare(shared)) continue;
        std::string restoring = "gio trash --list";
        for (const auto& item : all.items) {
            const std::string trashed = all.at.put(item.path());
            ASSERT_TRUE(exists(trashed)) << trashed;
            // Outside the home they name items by their whole paths, which are encoded twice.
            std::string leaf = fs::path(trashed).filename().string();
            if (all.image) {
                leaf = FileURL::file(trashed).text().substr(7);
                std::ranges::replace(leaf, '/', '\\');
            }
            restoring += "; gio trash --restore " +
                         quoted("trash:///" + FileURL::file("/" + leaf).text().substr(8));
        }
        const std::string session = all.with() + "dbus-run-session -- sh -c ";
        const std::string told = output(session + tidyro::quoted(restoring));
        for (const auto& item : all.items) {
            ASSERT_TRUE(item.isBack()) << item.name << ": " << told;
            if (item.isAscii()) {
                EXPECT_TRUE(exists(item.path())) << told;
                EXPECT_THAT(told, HasSubstr(item.path()));
                continue;
            }
            // What is not ASCII they name anew when they put it back.
            for (const auto& entry : fs::directory_iterator(item.folder)) {
                fs::rename(entry.path(), item.path());
            }
        }
        std::string command = "true";
        for (const auto& item : all.items) command += "; gio trash " + quoted(item.path());
        static_cast<void>(output(session + tidyro::quoted(command)));
        EXPECT_EQ(all.putBackTheirs(), 3U) << "they have no room for the note of a long name";
    }
}

} // namespace
} // namespace tidyro

#include "StorageEngine/Observation/FileObserver.h"

#include <array>
#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Platform/Testing/FakeVolumes.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

using platform::testing::FakeVolumes;
using testing::TemporaryFolder;

TEST(FileIdentity, ObservesAnItemAsItIs) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    const TemporaryFolder place;
    place.file("file %", "12345");
    place.hardLink("other", "file %");
    place.link("link", "file %");
    const std::array<timespec, 2> times{timespec{.tv_sec = 5, .tv_nsec = 0},
                                        timespec{.tv_sec = 1'700'000'000, .tv_nsec = 250'000'000}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (place / "file %").c_str(), times.data(), 0), 0);
    struct stat status{};
    ASSERT_EQ(::stat((place / "file %").c_str(), &status), 0);
    const FileURL home = FileURL::folder(place.path());
    const FakeVolumes volumes = FakeVolumes::withOneAt(place.path());

    const FileURL url = FileURL::file(place / "file %");
    const auto seen = FileIdentity::observation(url, home, volumes);
    ASSERT_TRUE(seen);
    EXPECT_EQ(seen->id.rawValue, url.text());
    EXPECT_EQ(seen->url, url);
    EXPECT_EQ(seen->kind, FileKind::regularFile);
    EXPECT_EQ(seen->byteCount, 5U);
    EXPECT_EQ(seen->modificationDate, Timestamp::since1970(1'700'000'000.25));
    EXPECT_EQ(seen->ownerUserID, ::geteuid());
    EXPECT_EQ(seen->volumeIdentifier, "inside");
    EXPECT_EQ(seen->fileResourceIdentifier,
              std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino));
    EXPECT_TRUE(seen->isReadable);
    EXPECT_FALSE(seen->isCloudPlaceholder);
    EXPECT_EQ(seen->linkCount, 2U);

    EXPECT_EQ(FileIdentity::observation(FileURL::file(place / "link"), home, volumes)->kind,
              FileKind::other);
    EXPECT_EQ(FileIdentity::observation(home, home, volumes)->kind, FileKind::directory);
    EXPECT_EQ(FileIdentity::observation(FileURL::file(place / "no"), home, volumes).error().code,
              ENOENT);
    FakeVolumes unknown;
    unknown.answer = std::unexpected(SystemError{EIO});
    EXPECT_EQ(FileIdentity::observation(url, home, unknown)->volumeIdentifier, std::nullopt);
    EXPECT_TRUE(FileIdentity::observation(url)->volumeIdentifier) << "the running system's own";
}

TEST(FileObserver, IsUsedAsItsHeaderShows) {
    const auto size = [](const FileURL& home) -> std::string {
        FileObserver observer(home, platform::LiveVolumes());
        const auto seen = observer.observation(home.appending("notes.txt"));
        if (!seen) return seen.error().description();
        return std::to_string(seen->byteCount) + " bytes";
    };
    const TemporaryFolder home;
    home.file("notes.txt", "12345");
    EXPECT_EQ(size(FileURL::folder(home.path())), "5 bytes");
    EXPECT_EQ(size(FileURL::folder(home / "no")), SystemError{ENOENT}.description());
}

/// A home with one of each, and what is to be found of the file in it: 'r' in a repository, 'b' in
/// a backup.
struct Case {
    const char* file;
    const char* told;
};
constexpr std::array<Case, 38> cases{{
    {"home/.cache/plain/file", ""},
    {"home/project/file", "r"},
    {"home/project/a/b/c/file", "r"},
    {"home/project/.git/config", "r"},
    {"home/worktree/file", "r"},
    {"home/project2/file", ""},
    {"home/linked/file", "r"},
    {"home/phone link/file", "b"},
    {"outside/a/b/file", "r"},
    {"home/disk/Backups.backupdb/mac/2024/file", "b"},
    {"home/one.BackupDB/file", "b"},
    {"home/store/2024-01-01.sparsebundle/bands/0", "b"},
    {"home/Library/Application Support/MobileSync/Backup/0123/ab/file", "b"},
    {"home/phones/0123/ab/file", "b"},
    {"home/restic/data/ab/file", "b"},
    {"home/borg/data/0/1", "b"},
    {"home/no borg/data/file", ""},
    {"home/duplicity/duplicity-full.20240101T000000Z.vol1.difftar.gpg", "b"},
    {"home/duplicity/below/file", "b"},
    {"home/duplicity/notes.txt", "b"},
    {"home/timeshift/snapshots/2024-01-01_00-00-00/localhost/file", "b"},
    {"home/timeshift-btrfs/snapshots-daily/1/@/file", "b"},
    {"home/moved snapshot/localhost/file", "b"},
    {"home/.snapshots/12/snapshot/file", "b"},
    {"home/moved snapper/snapshot/file", "b"},
    {"home/snapshots/file", ""},
    {"home/kopia/p0/1", "b"},
    {"home/mirror/file", "b"},
    {"home/duplicacy/chunks/ab", "b"},
    {"home/duplicati/duplicati-b12.dblock.zip.aes", "b"},
    {"home/rsnapshot/daily.0/file", "b"},
    {"home/rotated/daily.0", ""},
    {"home/in time/20260101-000000-123/backup/file", "b"},
    {"home/of wrong kinds/keys/file", ""},
    {"home/mercurial/src/file", "r"},
    {"home/darcs/src/file", "r"},
    {"home/fossil/src/file", "r"},
    {"home/MobileSync/Other/file", ""},
}};

void makeCases(const TemporaryFolder& place) {
    for (const Case& one : cases) {
        const std::string_view file = one.file;
        if (file.starts_with("home/linked") || file.starts_with("home/phone link")) continue;
        place.file(file, "x");
    }
    for (const char* folder : {"outside/.git", "home/.git", "home/restic/keys",
                               "home/restic/snapshots", "home/project/.git"}) {
        place.folder(folder);
    }
    place.file("home/worktree/.git", "gitdir: elsewhere");
    place.link("home/linked", "project/a");
    place.file("home/project/a/file", "x");
    place.link("home/phone link", "phones/0123");
    place.file("home/phones/0123/file", "x");
    for (const char* file :
         {"home/store/2024-01-01.sparsebundle/com.apple.TimeMachine.MachineID.plist",
          "home/phones/0123/Manifest.plist", "home/phones/0123/Status.plist", "home/restic/config",
          "home/moved snapshot/info.json", "home/moved snapper/info.xml",
          "home/kopia/kopia.repository.f", "home/mirror/rdiff-backup-data/increments/x",
          "home/duplicacy/config", "home/duplicacy/snapshots/1",
          "home/in time/20260101-000000-123/fileinfo.bz2", "home/of wrong kinds/config/x",
          "home/of wrong kinds/data/x", "home/of wrong kinds/snapshots/x",
          "home/mercurial/.hg/store/x", "home/darcs/_darcs/format", "home/fossil/.fslckout",
          "home/.hg/store/x"}) {
        place.file(file, "x");
    }
    place.file("home/borg/config", "[repository]\nversion = 1\n");
    place.file("home/no borg/config", "[window]\nwidth = 1\n");
}

std::string told(const std::expected<FileObservation, SystemError>& seen) {
    if (!seen) return seen.error().description();
    return std::string(seen->isInProjectRepository ? "r" : "") +
           (seen->isBackupArtifact ? "b" : "");
}

TEST(FileIdentity, KnowsRepositoriesAndBackups) {
    const TemporaryFolder place;
    makeCases(place);
    const FileURL home = FileURL::folder(place / "home");
    const FakeVolumes volumes = FakeVolumes::withOneAt(place.path());
    FileObserver observer(home, volumes);
    for (const Case& one : cases) {
        const FileURL url = FileURL::file(place / one.file);
        const auto fresh = FileIdentity::observation(url, home, volumes);
        EXPECT_EQ(told(fresh), one.told) << one.file;
        // What a scan remembers from folder to folder changes nothing.
        const auto folder = platform::FolderDescriptor::openRoot(url.parent().path());
        ASSERT_TRUE(folder);
        const std::string name(url.lastComponent());
        const auto scanned = observer.observation(*folder, url.parent(), name.c_str());
        ASSERT_TRUE(fresh && scanned) << one.file;
        EXPECT_EQ(*scanned, *fresh) << one.file;
        EXPECT_EQ(*observer.observation(url), *fresh) << one.file;
    }
    EXPECT_EQ(
        told(FileIdentity::observation(FileURL::folder(place / "home/project"), home, volumes)),
        "r")
        << "the top of a repository belongs to it";
}

TEST(FileObserver, TellsWhatAFileIsAPartOf) {
    struct Part {
        const char* file;
        PartOf whole;
    };
    using enum PartOf;
    constexpr Part parts[]{
        {"home/leveldb like/CURRENT", database},
        {"home/leveldb like/MANIFEST-000004", database},
        {"home/leveldb like/000003.log", database},
        {"home/dist/current", nothing},
        {"home/dist/manifest-3fa9.json", nothing},
        {"home/links/current/x", nothing},
        {"home/links/MANIFEST-000004", nothing},
        // Cargo names a checkout by its repository and, in it, by the revision.
        {"home/.cargo/git/checkouts/serde-1a/2b/.git/objects/x", toolCheckout},
        {"home/.cargo/git/checkouts/serde-1a/2b/.git/refs/x", toolCheckout},
        {"home/.cargo/git/checkouts/serde-1a/2b/.git/HEAD", toolCheckout},
        {"home/.cargo/git/checkouts/serde-1a/2b/src/lib.rs", toolCheckout},
        {"home/.cargo/git/checkouts/serde-1a/2b/own/.git/HEAD", nothing},
        {"home/.cargo/git/checkouts/serde-1a/2b/own/lib.rs", nothing},
        {"home/.cargo/git/checkouts/plain/2b/lib.rs", nothing},
        {"home/.cache/yay/tool/.git/HEAD", toolCheckout},
        {"home/.cache/yay/tool/PKGBUILD", toolCheckout},
        {"home/.cache/yay/tool/src/own/.git/HEAD", nothing},
        {"home/.cache/yay/tool/src/own/x", nothing},
        {"home/.cache/yay/several/deeper/.git/HEAD", nothing},
        {"home/.cache/yay/several/deeper/x", nothing},
        {"home/.cache/paru/clone/tool/.git/HEAD", toolCheckout},
        {"home/.cache/paru/other/.git/HEAD", nothing},
        {"home/.cache/paru/other/x", nothing},
    };
    const TemporaryFolder place;
    for (const Part& part : parts) place.file(part.file, "x");
    const FakeVolumes volumes = FakeVolumes::withOneAt(place.path());
    FileObserver observer(FileURL::folder(place / "home"), volumes);
    const auto partOf = [](FileObserver& asked, const FileObservation& seen) {
        const auto folder = platform::FolderDescriptor::openRoot(seen.url.parent().path());
        return folder ? asked.partOf(*folder, seen) : database;
    };
    for (const Part& part : parts) {
        const auto seen = observer.observation(FileURL::file(place / part.file));
        ASSERT_TRUE(seen) << part.file;
        EXPECT_EQ(partOf(observer, *seen), part.whole) << part.file;
        const bool isInOther = std::string_view(part.file).find("/own/") != std::string::npos ||
                               std::string_view(part.file).find("/deeper/") != std::string::npos ||
                               std::string_view(part.file).find("/other/") != std::string::npos;
        EXPECT_EQ(seen->isInProjectRepository, isInOther || part.whole == toolCheckout)
            << part.file;
    }
    // A project that holds them is nobody's but the person's.
    place.file("home/.cache/.git/HEAD", "x");
    FileObserver again(FileURL::folder(place / "home"), volumes);
    const auto seen = again.observation(FileURL::file(place / "home/.cache/yay/tool/PKGBUILD"));
    ASSERT_TRUE(seen);
    EXPECT_EQ(partOf(again, *seen), nothing);
}

TEST(FileIdentity, TakesWhatCannotBeReadForTheWorst) {
    const TemporaryFolder place;
    place.file("home/listed/file", "x");
    place.file("home/closed/below/file", "x");
    place.file("home/borg/config", "anything");
    place.file("home/borg/data/file", "x");
    place.folder("home/shut");
    place.permissions("home/shut", 0444); // its names may be listed, what they stand for not seen
    place.permissions("home/closed", 0111);
    place.permissions("home/borg/config", 0);
    const std::string text = testing::asOrdinaryUser([&] {
        const FileURL home = FileURL::folder(place / "home");
        const FakeVolumes volumes = FakeVolumes::withOneAt(place.path());
        std::string all;
        for (const char* file : {"listed/file", "closed/below/file", "borg/data/file"}) {
            all += told(FileIdentity::observation(home.appending(file), home, volumes)) + ";";
        }
        const FileURL shut = home.appendingFolder("shut");
        return all + told(FileIdentity::observation(shut, home, volumes));
    });
    EXPECT_EQ(text, ";b;b;r");
    place.permissions("home/closed", 0755);
    place.permissions("home/shut", 0755);

    // A folder that went between the look at the file and the look around it.
    FolderSurroundingsFinder judge(FileURL::folder(place / "home"));
    EXPECT_EQ(judge.surroundings(place / "home/none"),
              (FolderSurroundings{.isInProjectRepository = true,
                                  .isInToolCheckout = false,
                                  .isInBackup = true,
                                  .isInDatabase = true,
                                  .isInHistory = true,
                                  .isInEnvironment = true,
                                  .isNearJournal = true}));
}

} // namespace
} // namespace tidyro

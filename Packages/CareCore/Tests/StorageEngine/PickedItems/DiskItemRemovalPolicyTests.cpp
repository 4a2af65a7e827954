#include "StorageEngine/PickedItems/DiskItemRemovalPolicy.h"

#include <array>
#include <cerrno>
#include <initializer_list>
#include <limits>
#include <memory>
#include <set>
#include <utility>

#include <gtest/gtest.h>

#include "Base/PathText.h"
#include "Base/UnicodeText.h"
#include "StorageEngine/PickedItems/PickedItemsBench.h"
#include "StorageEngine/PickedItems/RemovalConsequence.h"
#include "StorageEngine/Safety/LocalRuntimeSafetyContextProvider.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

using testing::TemporaryFolder;

/// What is made at the item's place before anything is asked. Of what is refused by its path alone
/// nothing is made: were it looked at, it had vanished.
enum class Made { nothing, file, folder };

struct Case {
    const char* item;
    Made made;
    const char* told;
};
using enum Made;
constexpr std::array<Case, 131> cases{{
    {"home/files/plain", file, ""},
    {"home/files/names \xff\xfe", file, ""},
    {"home/Documents/file", file, ""},
    {"home/Klang/file", file, ""},
    {"home/.config/tool/settings", file, ""},
    {"home/.cache/pip/http/1", file, ""},
    {"home/Library/Caches/app", folder, ""},
    {"home/project", folder, ""},
    {"home/project/copy.txt", file, ""},
    {"home/apps/Thing.app", folder, ""},
    {"home/Dropbox Notes/file", file, ""},
    {"home/desk/../files/plain", nothing, ""},
    {"home/sync.sh", file, ""},
    {"home/Box-2", folder, ""},
    {"home/.Trash-old", folder, ""},
    {"home/no borg", folder, ""},
    {"home/bare", folder, ""},
    {"home/projects", folder, ""},
    {"home/long", folder, ""},
    {"opened/file", file, ""},
    {"opened/Documents", folder, ""},
    {"home/toDocuments/file", nothing, ""},
    {"home/toOpened/file", nothing, ""},

    {"home", nothing, "homeFolder"},
    {"HOME", nothing, "homeFolder"},
    {"", nothing, "homeFolder"},
    {"opened", nothing, "openedFolder"},
    {"home/papers", nothing, "openedFolder"},
    {"elsewhere/file", nothing, "outsideChosenFolders"},
    {"opened2/file", nothing, "outsideChosenFolders"},
    {"home/out/file", nothing, "outsideChosenFolders"},
    {"home/.local/share/Trash", nothing, "inTrash"},
    {"home/.local/share/trash/info/1.trashinfo", nothing, "inTrash"},
    {"home/.Trash/1", nothing, "inTrash"},
    {"opened/.Trash-1000/files/1", nothing, "inTrash"},
    {"opened/disk/.Trash/1000", nothing, "inTrash"},
    {"home/Documents", nothing, "standardFolder"},
    {"home/documents", nothing, "standardFolder"},
    {"home/Library", nothing, "standardFolder"},
    {"home/Klang", nothing, "standardFolder"},
    {"home/Geholt", nothing, "standardFolder"},
    {"home/Eigenes", nothing, "standardFolder"},
    {"home/Muse\xcc\x81"
     "e",
     nothing, "standardFolder"},
    {"opened/films", nothing, "standardFolder"},
    {"home/.config", nothing, "sharedFolder"},
    {"home/.local/Share", nothing, "sharedFolder"},
    {"home/Library/Group Containers", nothing, "sharedFolder"},
    {"home/.ssh", nothing, "sharedFolder"},
    {"home/Library/CloudStorage/Some/file", nothing, "inCloudFolder"},
    {"home/dropbox/file", nothing, "inCloudFolder"},
    {"home/OneDrive - Company", nothing, "inCloudFolder"},
    {"home/Company Dropbox/a/b", nothing, "inCloudFolder"},
    {"home/onedrive-X/file", nothing, "inCloudFolder"},
    {"home/Nextcloud2", nothing, "inCloudFolder"},
    {"home/Dropbox.old/file", nothing, "inCloudFolder"},
    {"home/Yandex.Disk/file", nothing, "inCloudFolder"},
    {"home/synced/papers/file", nothing, "inCloudFolder"},
    {"home/synced", nothing, "holdsCloudFolder"},
    {"home/toCloud/file", nothing, "inCloudFolder"},
    {"opened/boxed/file", nothing, "inCloudFolder"},
    {"opened/holder", nothing, "holdsCloudFolder"},
    {"home/keep/secret/file", nothing, "protectedPlace"},
    {"home/keep/secret", nothing, "protectedPlace"},
    {"home/toSecret/file", nothing, "protectedPlace"},
    {"home/keep", nothing, "holdsProtectedPlace"},
    {"home/cut short/.tidyro-0F0E0D0C-0B0A-0908-0706-050403020100", folder, "protectedPlace"},
    {"home/cut short/.tidyro-0F0E0D0C-0B0A-0908-0706-050403020100/mine", file, "protectedPlace"},
    {"home/toCutShort/mine", nothing, "protectedPlace"},
    {"home/cut short", folder, "holdsProtectedPlace"},
    {"home/cut short/.tidyro-0F0E0D0C-0B0A-0908-0706-050403020100-not", folder, ""},
    {"home/apps/Thing.app/Contents/file", nothing, "insidePackage"},
    {"home/Pictures/All.PhotosLibrary/originals/1.jpg", nothing, "insidePackage"},
    {"opened/x.bundle/file", nothing, "insidePackage"},
    {"home/project/.git", nothing, "repositoryData"},
    {"home/project/.GIT/objects/ab/cd", nothing, "repositoryData"},
    {"home/worktree/.git", nothing, "repositoryData"},
    {"home/toGit/config", nothing, "repositoryData"},
    {"home/bare/HEAD", nothing, "repositoryData"},
    {"home/bare/objects/ab/cd", file, "repositoryData"},
    {"home/bare/refs", nothing, "repositoryData"},
    {"home/toBare/config", nothing, "repositoryData"},
    {"home/history of others", nothing, "repositoryData"},
    {"home/.config/running/file", nothing, "activeApplication"},
    {"home/apps/data", nothing, "activeApplication"},

    {"home/files/none", nothing, "vanished"},
    {"home/none/file", nothing, "vanished"},
    {"home/files/plain/below", nothing, "vanished"},
    {"home/files/link", nothing, "link"},
    {"home/files/dangling", nothing, "link"},
    {"home/files/pipe", nothing, "specialFile"},
    {"home/files/socket", nothing, "specialFile"},
    {"home/closed/file", file, "closedParent"},
    {"home/shut", folder, "closedFolder"},
    {"home/disk/Backups.backupdb/mac/file", file, "backup"},
    {"home/disk/Backups.backupdb", nothing, "backup"},
    {"home/restic/config", file, "backup"},
    {"home/files/data.sqlite", file, "liveDatabase"},
    {"home/files/data.sqlite-wal", file, "liveDatabase"},
    {"home/app/IndexedDB", folder, "liveDatabase"},
    {"home/app/IndexedDB/1/plain", file, "liveDatabase"},
    {"home/toStore/plain", nothing, "liveDatabase"},
    {"opened/databases/file", file, "liveDatabase"},
    {"home/plain names/History", nothing, "liveDatabase"},
    {"home/plain names/Cookies", file, "liveDatabase"},
    {"home/plain names/state", file, "liveDatabase"},
    {"home/rocks/000012.sst", file, "liveDatabase"},
    {"home/rocks", nothing, "liveDatabase"},
    {"home/postgres/base/1/16384", file, "liveDatabase"},
    {"home/files/open", file, "openByProcess"},
    {"home/busy/deep/open", file, "openByProcess"},
    {"home/busy", nothing, "openByProcess"},
    {"home/bus", folder, ""},
    {"home/busy!", folder, ""},
    {"home/toBusy/open", nothing, "openByProcess"},
    {"home/files/growing", file, "growing"},
    {"home/log writer", folder, "growing"},
    {"home/holds/a/b/c/library.db", file, "liveDatabase"},
    {"home/holds", nothing, "databaseInside"},
    {"home/holds store", nothing, "databaseInside"},
    {"home/holds pages", nothing, "databaseInside"},
    {"home/holds rocks", nothing, "databaseInside"},
    {"home/holds mysql", nothing, "databaseInside"},
    {"home/holds socket", nothing, "specialFileInside"},
    {"home/holds restic", nothing, "backupInside"},
    {"home/holds borg", nothing, "backupInside"},
    {"home/holds phone", nothing, "backupInside"},
    {"home/moved/MobileSync", nothing, "backupInside"},
    {"home/timeshift", nothing, "backupInside"},
    {"home/disk", nothing, "backupInside"},
    {"home/phones", nothing, "backupInside"},
    {"home/linked", folder, ""},
}};

/// Backups, databases and repositories that are told by what they are made of.
void makeStores(const TemporaryFolder& place) {
    std::string database("SQLite format 3\0", 16);
    database.resize(512); // a page
    const std::string page = database + std::string(512 - database.size(), 'x');
    place.file("home/plain names/History", database);
    place.file("home/holds pages/a/b/History", page);
    // Too many files are no databases for each to be opened; this has no length of one.
    place.file("home/long/History", page + "x");
    for (const char* file :
         {"plain names/Cookies-wal", "plain names/state-journal", "rocks/CURRENT",
          "rocks/MANIFEST-000001", "holds rocks/a/CURRENT", "holds rocks/a/MANIFEST-000001",
          "postgres/PG_VERSION", "holds mysql/a/ibdata1", "holds restic/a/config",
          "holds restic/a/data/ab/x", "holds restic/a/keys/x", "holds restic/a/snapshots/x",
          "holds borg/a/data/0/1", "no borg/a/data/0/1", "holds phone/a/Manifest.plist",
          "holds phone/a/Status.plist", "moved/MobileSync/Backup/1/file",
          "timeshift/snapshots/1/file"}) {
        place.file("home/" + std::string(file), "x");
    }
    place.file("home/holds borg/a/config", "[repository]\nversion = 1\n");
    place.file("home/no borg/a/config", "[window]\nwidth = 1\n");
    place.folder("home/holds socket/a");
    place.socket("home/holds socket/a/socket");
    for (const char* folder : {"bare", "projects/bare", "history of others", "projects/others"}) {
        const std::string repository = "home/" + std::string(folder) + "/";
        place.file(repository + "HEAD", "ref: refs/heads/main\n");
        place.file(repository + "config");
        place.folder(repository + "objects");
        place.folder(repository + "refs");
    }
    place.file("home/history of others/index");
    place.file("home/projects/others/index");
    place.link("home/toBare", "bare");
    place.file("home/synced/papers/file");
    place.link("home/Dropbox (Work)", "synced/papers");
}

void makeCases(const TemporaryFolder& place) {
    for (const Case& one : cases) {
        if (one.made == file) place.file(one.item, "x");
        if (one.made == folder) place.folder(one.item);
    }
    place.file("elsewhere/file");
    place.file("elsewhere/data.db");
    place.file("home/desk/file");
    place.file("home/project/.git/config");
    place.file("home/holds store/x/Local Storage/plain");
    place.file("home/phones/MobileSync/Backup/1/file");
    for (const char* name : {"data/ab", "keys", "snapshots"}) {
        place.folder("home/restic/" + std::string(name));
    }
    makeStores(place);
    // What links lead to is not the folder's own.
    place.link("home/linked/database.db", "../files/data.sqlite");
    place.link("home/linked/elsewhere", "../../elsewhere");
    place.link("home/files/link", "plain");
    place.link("home/files/dangling", "nothing");
    place.pipe("home/files/pipe");
    place.socket("home/files/socket");
    for (const char* name : {"Dropbox", "keep/secret"}) {
        place.file("home/" + std::string(name) + "/file");
    }
    for (const auto& [name, target] :
         {std::pair{"out", "../elsewhere"},
          {"toDocuments", "Documents"},
          {"toOpened", "../opened"},
          {"toCloud", "Dropbox"},
          {"toSecret", "keep/secret"},
          {"toCutShort", "cut short/.tidyro-0F0E0D0C-0B0A-0908-0706-050403020100"},
          {"toGit", "project/.git"},
          {"toStore", "app/IndexedDB/1"},
          {"toBusy", "busy/deep"},
          {"Tresorit", "../opened/boxed"},
          {"MEGA", "../opened/holder/mega"},
          {"Videos", "../opened/films"}}) {
        place.link("home/" + std::string(name), target);
    }
    place.folder("opened/films");
    place.folder("opened/boxed");
    place.folder("opened/holder/mega");
    place.file("home/.config/user-dirs.dirs",
               "XDG_MUSIC_DIR=\"$HOME/Klang\"\nXDG_DOWNLOAD_DIR=\"$HOME/Geholt\"\n"
               "XDG_PICTURES_DIR=\"$HOME/Eigenes/Bilder\"\n"
               "XDG_TEMPLATES_DIR=\"$HOME/Mus\xc3\xa9"
               "e\"\n");
    place.permissions("home/closed", 0555);
    place.permissions("home/shut", 0555);
}

TEST(DiskItemRemovalPolicy, IsUsedAsItsHeaderShows) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    const PickedItemsBench bench;
    const FileURL home = bench.home();
    const std::vector<FileURL> opened{bench.at("opened")};
    const FileURL url = bench.at("home/none");
    const std::uint64_t bytes = 1;
    LocalRuntimeSafetyContextProvider provider(home);
    const platform::LiveVolumes volumes;
    std::string shown;
    const auto show = [&](std::string_view text) { shown = text; };

    DiskItemRemovalPolicy policy(
        {.home = home, .openedFolders = opened, .context = provider.context(), .volumes = volumes});
    const auto entry =
        policy.planEntry({.item = url, .measuredBytes = bytes, .at = Timestamp::now()});
    if (!entry) show(explanation(entry.error()));

    EXPECT_EQ(shown, explanation(DiskItemRefusal::vanished));
}

TEST(DiskItemRemovalPolicy, SaysWhatMayGoAndWhyTheRestMayNot) {
    PickedItemsBench bench;
    makeCases(bench.place);
    // What the desktop's list protects from rules does not keep a person from choosing in it.
    bench.choosable = {bench.at("home/Klang"), bench.at("home/Geholt")};
    bench.facts.additionalProtectedRoots = bench.choosable;
    bench.facts.additionalProtectedRoots.push_back(bench.at("home/keep/secret"));
    bench.facts.activeApplicationRoots = {bench.at("home/.config/running"),
                                          bench.at("home/apps/data/of it")};
    bench.facts.openByProcessPaths = {bench.place / "home/files/open",
                                      bench.place / "home/busy/deep/open",
                                      bench.place / "home/busy-ness"};
    bench.facts.activelyGrowingPaths = {bench.place / "home/files/growing",
                                        bench.place / "home/log writer/log"};
    DiskItemRemovalPolicy policy = bench.policy();
    for (int round = 0; round < 2; ++round) { // the second time from what is remembered
        for (const Case& one : cases) {
            EXPECT_EQ(told(policy, bench.at(one.item)), one.told) << one.item;
        }
    }
    EXPECT_EQ(told(policy, FileURL::folder("/")), "homeFolder");
    bench.place.permissions("home/closed", 0755);
}

TEST(DiskItemRemovalPolicy, HasASentenceForEachRefusal) {
    std::set<std::string_view> sentences;
    for (const DiskItemRefusal refusal : allCases<DiskItemRefusal>()) {
        EXPECT_TRUE(explanation(refusal).ends_with('.')) << rawValue(refusal);
        sentences.insert(explanation(refusal));
    }
    EXPECT_EQ(sentences.size(), allCases<DiskItemRefusal>().size());
}

TEST(RemovalConsequence, HasASentenceForEachGroupAndCategory) {
    for (const DiskGroup group : allCases<DiskGroup>()) {
        EXPECT_TRUE(RemovalConsequence::sentence(group, CleanupCategory::unknown).ends_with('.'));
    }
    for (const CleanupCategory category : allCases<CleanupCategory>()) {
        EXPECT_TRUE(RemovalConsequence::sentence(std::nullopt, category).ends_with('.'));
    }
}

TEST(DiskItemRemovalPolicy, LeavesTheSystemsPlacesAloneThoughTheyWereOpened) {
    PickedItemsBench bench;
    DiskItemRemovalPolicy policy({.home = bench.home(),
                                  .openedFolders = {FileURL::folder("/")},
                                  .context = bench.context(),
                                  .volumes = bench.volumes});
    for (const char* item : {"/usr", "/usr/bin/env", "/Applications/Thing.app", "/etc/passwd",
                             "/run/user/0/file", "/private"}) {
        EXPECT_EQ(told(policy, FileURL::file(item)), "systemPlace") << item;
    }
    EXPECT_EQ(told(policy, bench.at("none")), "vanished");

    struct Place {
        const char* path;
        bool isTheSystems;
    };
    const std::vector<std::string> homes{"/var/lib/builder"};
    const SystemPlaces places(homes);
    for (const auto& [path, isTheSystems] :
         {Place{"/var/lib/builder/file", false}, Place{"/var/lib/dpkg/status", true},
          Place{"/var/lib/builder2", true}, Place{"/var/mail/ada", true}, Place{"/var", true},
          Place{"/swapfile", true}, Place{"/root/file", true}, Place{"/run/some.pid", true},
          Place{"/run/media", true}, Place{"/run/media/ada/disk/file", false},
          Place{"/srv/file", false}, Place{"/var/tmp", true}, Place{"/var/tmp/file", false}}) {
        EXPECT_EQ(places.isTouchedBy(path), isTheSystems) << path;
    }
}

TEST(DiskItemRemovalPolicy, RefusesEverythingWhileNothingIsKnown) {
    PickedItemsBench bench;
    bench.place.file("home/file");
    DiskItemRemovalPolicy policy(
        {.home = bench.home(), .context = nullptr, .volumes = bench.volumes});
    EXPECT_EQ(told(policy, bench.at("home/file")), "nothingKnown");
    // A list of the desktop's folders that cannot be read.
    bench.place.folder("home/.config/user-dirs.dirs");
    DiskItemRemovalPolicy unlisted = bench.policy();
    EXPECT_EQ(told(unlisted, bench.at("home/file")), "desktopListUnreadable");
    DiskItemRemovalPolicy both(
        {.home = bench.home(), .context = nullptr, .volumes = bench.volumes});
    EXPECT_EQ(told(both, bench.at("home/file")), "desktopListUnreadable") << "which is the cause";
}

TEST(DiskItemRemovalPolicy, TakesOtherVolumesOnlyFromAFolderThatWasOpenedThere) {
    PickedItemsBench bench;
    bench.place.file("home/papers/file");
    bench.place.file("opened/file");
    bench.facts.internalLocalVolumeIdentifiers = {"another"};
    DiskItemRemovalPolicy policy = bench.policy();
    EXPECT_EQ(told(policy, bench.at("home/papers/file")), "otherVolume");
    EXPECT_EQ(told(policy, bench.at("opened/file")), "");
    bench.volumes.answer = std::unexpected(SystemError{EIO});
    DiskItemRemovalPolicy unknown = bench.policy();
    EXPECT_EQ(told(unknown, bench.at("opened/file")), "otherVolume");
}

TEST(DiskItemRemovalPolicy, MakesAnEntryThatAPersonApproves) {
    PickedItemsBench bench;
    bench.place.file("home/.cache/pip/http/1", "12345");
    bench.place.file("home/logs/old.txt", "123");
    DiskItemRemovalPolicy policy = bench.policy();
    const Timestamp at = Timestamp::now().adding(secondsOfDay);
    const FileURL pip = bench.home().appendingFolder(".cache/pip");
    const auto entry = policy.planEntry({.item = FileURL::file(pip.path()),
                                         .placeID = "pip-cache-dot",
                                         .measuredBytes = 77,
                                         .at = at});
    ASSERT_TRUE(entry) << explanation(entry.error());
    const auto seen = FileIdentity::observation(pip, bench.home(), bench.volumes);
    const ProofCard& card = entry->proofCard;
    EXPECT_EQ(entry->candidateID, seen->id);
    EXPECT_EQ(entry->sourceURL, pip) << "marked as the folder that it is";
    EXPECT_TRUE(entry->fingerprint.matches(*seen));
    EXPECT_EQ(card.category, CleanupCategory::regenerableCache);
    EXPECT_EQ(card.riskTier, RiskTier::reviewCarefully);
    EXPECT_EQ(card.byteCount, 77U);
    EXPECT_EQ(card.recoveryMethod, recoveryMethod(CleanupExecutionMode::recoverable));
    using enum EvidenceCode;
    EXPECT_EQ(card.evidence.codes,
              (EvidenceCodes{currentUserOwned, inactive, internalLocalVolume, userReviewRequired}));
    EXPECT_EQ(card.evidence.summary.text(),
              "Packages are downloaded again the next time they are installed.");
    EXPECT_EQ(entry->approvalRequirement, ApprovalRequirement::itemLevel);
    EXPECT_EQ(entry->authorization, (CleanupAuthorization{authorization::DiskItem{
                                        .placeID = "pip-cache-dot", .itemURL = pip}}));

    bench.place.file("home/.gradle/daemon/8/out", "x"); // its names say nothing
    const auto byRule = policy.planEntry(
        {.item = bench.at("home/.gradle/daemon/8/out"), .measuredBytes = 1, .at = at});
    ASSERT_TRUE(byRule);
    EXPECT_EQ(byRule->proofCard.category, CleanupCategory::expiredLog);
    EXPECT_EQ(byRule->proofCard.evidence.summary.text(),
              "Records of past problems are lost; nothing depends on them.");

    const auto category = [&](std::optional<DiskGroup> group) {
        return policy
            .planEntry({.item = bench.at("home/logs/old.txt"),
                        .measuredBytes = 3,
                        .group = group,
                        .at = at})
            ->proofCard.category;
    };
    EXPECT_EQ(category(DiskGroup::largeFiles), CleanupCategory::largeFile);
    EXPECT_EQ(category(DiskGroup::installers), CleanupCategory::download);
    EXPECT_EQ(category(DiskGroup::projectFolders), CleanupCategory::generatedWork);
    EXPECT_EQ(category(DiskGroup::trash), CleanupCategory::unknown);
    EXPECT_EQ(category(std::nullopt), CleanupCategory::expiredLog);
}

TEST(DiskItemRemovalPolicy, BelievesAPlaceOnlyWhenTheItemIsReallyInIt) {
    const PickedItemsBench bench;
    bench.place.file("home/.cache/pip/1");
    bench.place.file("home/Documents/letter");
    bench.place.link("home/.cache/pip/led out", "../../Documents");
    bench.place.file("home/data/store/1");
    bench.place.link("home/.pnpm-store", "data/store");
    bench.place.file("home/Library/Caches/.DS_Store");
    DiskItemRemovalPolicy policy = bench.policy();
    EXPECT_EQ(told(policy, bench.at("home/.cache/pip/1"), "pip-cache-dot"), "");
    EXPECT_EQ(told(policy, bench.at("home/.cache/pip/1"), "caches"), "otherPlace");
    EXPECT_EQ(told(policy, bench.at("home/Documents/letter"), "pip-cache-dot"), "otherPlace");
    EXPECT_EQ(told(policy, bench.at("home/.cache/pip/led out/letter"), "pip-cache-dot"),
              "otherPlace");
    EXPECT_EQ(told(policy, bench.at("home/.pnpm-store/1"), "pnpm-store-dot"), "")
        << "the place itself may lie elsewhere";
    EXPECT_EQ(told(policy, bench.at("home/Library/Caches/.DS_Store"), "caches"), "otherPlace");
}

TEST(DiskItemRemovalPolicy, SaysNothingOfAPlaceThatLeadsElsewhere) {
    PickedItemsBench bench;
    bench.place.file("home/Documents/_cacache/thesis");
    bench.place.link("home/.npm", "Documents");
    bench.place.file("home/letters/mine/1");
    bench.place.folder("home/Library");
    bench.place.link("home/Library/Caches", "../letters");
    bench.place.file("home/.cache/pip/http/1"); // mounted here and elsewhere, says the context
    bench.place.file("home/.cargo/registry/cache/1");
    bench.choosable = {bench.at("home/.cache/pip")};
    bench.facts.additionalProtectedRoots = bench.choosable;
    DiskItemRemovalPolicy policy = bench.policy();
    const auto card = [&](const char* item, std::optional<DiskGroup> group) {
        const auto entry = policy.planEntry({.item = bench.at(item),
                                             .measuredBytes = 1,
                                             .group = group,
                                             .at = Timestamp::now().adding(3 * secondsOfDay)});
        if (!entry) return std::string(rawValue(entry.error()));
        return std::string(rawValue(entry->proofCard.category)) + ": " +
               std::string(entry->proofCard.evidence.summary.text());
    };
    const std::string nobodyKnows = "unknown: Nothing tells what the item is for or who needs it.";
    for (const auto group : {std::optional<DiskGroup>(), std::optional(DiskGroup::packageCaches)}) {
        EXPECT_EQ(card("home/.npm/_cacache", group), nobodyKnows);
        EXPECT_EQ(card("home/.npm/_cacache/thesis", group), nobodyKnows);
        EXPECT_EQ(card("home/Library/Caches/mine", group), nobodyKnows);
        EXPECT_EQ(card("home/.cache/pip/http", group), nobodyKnows);
    }
    EXPECT_EQ(card("home/.cargo/registry/cache/1", std::nullopt),
              "regenerableCache: Packages are downloaded again the next time they are installed.");
}

TEST(DiskItemRemovalPolicy, WaitsUntilAnItemHasBeenQuietAndIsWhatWasMeasured) {
    const PickedItemsBench bench;
    constexpr std::int64_t written = 1'700'000'000;
    for (const char* name : {".cache/pip/a/b/1", "files/1", "files/2"}) {
        bench.place.file("home/" + std::string(name));
    }
    for (const char* name : {".cache/pip/a/b/1", ".cache/pip/a/b", ".cache/pip/a", ".cache/pip"}) {
        bench.place.times("home/" + std::string(name), written - 100'000, written - 100'000);
    }
    bench.place.times("home/.cache/pip/a/b/1", written, written);
    bench.place.times("home/files/1", written, written);
    bench.place.link("opened/toPip", "../home/.cache/pip");
    constexpr double endless = std::numeric_limits<double>::infinity();
    constexpr double noMoment = std::numeric_limits<double>::quiet_NaN();
    DiskItemRemovalPolicy policy = bench.policy();
    struct Moment {
        const char* item;
        double at; ///< seconds after it was written
        std::optional<double> built;
        const char* told;
    };
    for (const auto& [item, at, built, expected] : {
             Moment{"home/.cache/pip", 600, std::nullopt, ""},
             Moment{"home/.cache/pip", 599, std::nullopt, "inUseLately"},
             Moment{"home/.cache/pip", -5, std::nullopt, "inUseLately"},
             Moment{"home/.cache/pip/a/b/1", 599, std::nullopt, "inUseLately"},
             Moment{"home/.cache/pip", 700, 0, ""},
             Moment{"home/.cache/pip", 700, -1, "changedSinceMeasured"}, // by what is in it
             Moment{"home/.cache/pip", endless, std::nullopt, "inUseLately"},
             Moment{"home/files/1", noMoment, std::nullopt, "inUseLately"},
             Moment{"home/files/1", 700, noMoment, "changedSinceMeasured"},
             Moment{"home/files/1", 700, endless, "changedSinceMeasured"},
             Moment{"home/files/1", 700, -endless, "changedSinceMeasured"},
             Moment{"opened/toPip/a", 599, std::nullopt, "inUseLately"},
             Moment{"opened/toPip/a", 600, std::nullopt, ""},
             Moment{"home/files/1", 1, std::nullopt, ""},
             Moment{"home/files/1", 700, 0, ""},
             Moment{"home/files/1", 700, -1, "changedSinceMeasured"},
         }) {
        DiskItemRemovalPolicy::Question question{
            .item = bench.at(item), .measuredBytes = 0, .at = Timestamp::since1970(written + at)};
        if (built) question.built = Timestamp::since1970(written + *built);
        const auto entry = policy.planEntry(question);
        EXPECT_EQ(entry ? "" : rawValue(entry.error()), expected) << item << " " << at;
    }
}

/// Holds all that is called "state".
struct FenceAroundTool final : ToolStateFence {
    std::string tool;
    explicit FenceAroundTool(std::string path) : tool(std::move(path)) {}
    [[nodiscard]] bool isNear(std::string_view lowered) const override {
        return path::isInsideOrEqual(lowered, lowercased(tool));
    }
    [[nodiscard]] bool isBelow(std::string_view folder) const override {
        return path::isInsideOrEqual(tool, folder);
    }
    [[nodiscard]] std::optional<SharedText> reason(std::string_view path,
                                                   Item item) const override {
        const bool isHeld = path::isInsideOrEqual(path, tool) &&
                            path::lastComponent(path) == "state" && item == Item::file;
        return isHeld ? std::optional<SharedText>("It stays.") : std::nullopt;
    }
};

TEST(DiskItemRemovalPolicy, LeavesWhatToolsKeepAndWhatHoldsIt) {
    const PickedItemsBench bench;
    for (const char* name : {"tool/a/state", "tool/a/other", "tool/b/state/file", "beside/state"}) {
        bench.place.file("home/desk/" + std::string(name));
    }
    bench.place.link("home/toDesk", "desk");
    SafetyPolicyContext context(bench.facts);
    context.setToolState(std::make_shared<FenceAroundTool>(bench.place / "home/desk/tool"));
    DiskItemRemovalPolicy policy({.home = bench.home(),
                                  .context = std::make_shared<const SafetyPolicyContext>(context),
                                  .volumes = bench.volumes});
    for (const auto& [item, expected] : std::initializer_list<std::pair<const char*, const char*>>{
             {"home/desk/tool/a/state", "protectedPlace"},
             {"home/toDesk/tool/a/state", "protectedPlace"},
             {"home/desk/tool/a/other", ""},
             {"home/desk/tool/a", "holdsProtectedPlace"},
             {"home/desk", "holdsProtectedPlace"},
             {"home/toDesk/tool", "holdsProtectedPlace"},
             {"home/desk/tool/b", ""}, // a folder of that name
             {"home/desk/beside", ""}}) {
        EXPECT_EQ(told(policy, bench.at(item)), expected) << item;
    }
}

TEST(DiskItemRemovalPolicy, StopsWhenAsked) {
    const PickedItemsBench bench;
    bench.place.file("home/folder/file");
    DiskItemRemovalPolicy policy = bench.policy();
    std::stop_source stop;
    stop.request_stop();
    for (const char* item : {"home/folder", "home/folder/file", "home"}) {
        const auto entry = policy.planEntry({.item = bench.at(item),
                                             .measuredBytes = 0,
                                             .at = Timestamp::now(),
                                             .cancel = stop.get_token()});
        EXPECT_EQ(entry.error(), DiskItemRefusal::cancelled) << item;
    }
}

} // namespace
} // namespace tidyro

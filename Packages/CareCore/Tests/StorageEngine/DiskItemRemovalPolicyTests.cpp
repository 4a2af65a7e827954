#include "StorageEngine/DiskItemRemovalPolicy.h"

#include <array>
#include <cerrno>
#include <set>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Platform/Testing/FakeVolumes.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

using platform::testing::FakeVolumes;
using testing::TemporaryFolder;

constexpr double day = 86'400;

/// A home, a folder that the person opened beside it, and all that a policy is made from.
struct Surroundings {
    TemporaryFolder place;
    FakeVolumes volumes;
    SafetyPolicyFacts facts{.currentUserID = ::geteuid(),
                            .internalLocalVolumeIdentifiers = {"inside"},
                            .activeApplicationRoots = {},
                            .additionalProtectedRoots = {},
                            .activelyGrowingPaths = {},
                            .openByProcessPaths = {}};

    Surroundings() {
        place.folder("home");
        place.folder("opened");
        const auto seen = platform::fileMetadata(place.path());
        volumes.answer = std::vector<platform::Volume>{{.mountPath = "/",
                                                        .mount = seen->mount.value_or(0),
                                                        .device = seen->identity.device,
                                                        .identifier = "inside",
                                                        .fileSystem = "any",
                                                        .isInternalLocal = true}};
    }
    [[nodiscard]] FileURL home() const { return FileURL::folder(place / "home"); }
    [[nodiscard]] FileURL at(std::string_view name) const { return FileURL::file(place / name); }
    [[nodiscard]] DiskItemRemovalPolicy policy() const {
        return DiskItemRemovalPolicy({.home = home(),
                                      .openedFolders = {FileURL::folder(place / "opened"),
                                                        FileURL::folder(place / "home/work")},
                                      .context = std::make_shared<const SafetyPolicyContext>(facts),
                                      .volumes = volumes});
    }
};

/// The refusal by its name; empty for an item that may go. Everything was made days ago.
std::string told(DiskItemRemovalPolicy& policy, const FileURL& item,
                 std::optional<std::string> placeID = std::nullopt) {
    const auto entry = policy.planEntry({.item = item,
                                         .placeID = std::move(placeID),
                                         .measuredBytes = 1,
                                         .at = Timestamp::now().adding(3 * day)});
    return entry ? "" : std::string(rawValue(entry.error()));
}

/// What is made at the item's place before anything is asked. Of what is refused by its path alone
/// nothing is made: were it looked at, it had vanished.
enum class Made { nothing, file, folder };

struct Case {
    const char* item;
    Made made;
    const char* told;
};
using enum Made;
constexpr std::array<Case, 88> cases{{
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
    {"home/box/../files/plain", nothing, ""},
    {"opened/file", file, ""},
    {"opened/Documents", folder, ""},
    {"home/toDocuments/file", nothing, ""},
    {"home/toOpened/file", nothing, ""},

    {"home", nothing, "homeFolder"},
    {"HOME", nothing, "homeFolder"},
    {"", nothing, "homeFolder"},
    {"opened", nothing, "openedFolder"},
    {"home/work", nothing, "openedFolder"},
    {"elsewhere/file", nothing, "outsideChosenFolders"},
    {"opened2/file", nothing, "outsideChosenFolders"},
    {"home/out/file", nothing, "outsideChosenFolders"},
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
    {"home/toCloud/file", nothing, "inCloudFolder"},
    {"opened/boxed/file", nothing, "inCloudFolder"},
    {"opened/holder", nothing, "holdsCloudFolder"},
    {"home/keep/secret/file", nothing, "protectedPlace"},
    {"home/keep/secret", nothing, "protectedPlace"},
    {"home/toSecret/file", nothing, "protectedPlace"},
    {"home/keep", nothing, "holdsProtectedPlace"},
    {"home/apps/Thing.app/Contents/file", nothing, "insidePackage"},
    {"home/Pictures/All.PhotosLibrary/originals/1.jpg", nothing, "insidePackage"},
    {"opened/x.bundle/file", nothing, "insidePackage"},
    {"home/project/.git", nothing, "repositoryData"},
    {"home/project/.GIT/objects/ab/cd", nothing, "repositoryData"},
    {"home/worktree/.git", nothing, "repositoryData"},
    {"home/toGit/config", nothing, "repositoryData"},
    {"home/.config/running/file", nothing, "activeApplication"},
    {"home/apps/data", nothing, "activeApplication"},

    {"home/files/none", nothing, "vanished"},
    {"home/none/file", nothing, "vanished"},
    {"home/files/plain/below", nothing, "vanished"},
    {"home/files/link", nothing, "link"},
    {"home/files/dangling", nothing, "link"},
    {"home/files/pipe", nothing, "specialFile"},
    {"home/files/socket", nothing, "specialFile"},
    {"home/closed/file", file, "closedSurroundings"},
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
    {"home/disk", nothing, "backupInside"},
    {"home/phones", nothing, "backupInside"},
    {"home/linked", folder, ""},
}};

void makeCases(const TemporaryFolder& place) {
    for (const Case& one : cases) {
        if (one.made == file) place.file(one.item, "x");
        if (one.made == folder) place.folder(one.item);
    }
    place.file("elsewhere/file");
    place.file("elsewhere/data.db");
    place.file("home/box/file");
    place.file("home/project/.git/config");
    place.file("home/holds store/x/Local Storage/plain");
    place.file("home/phones/MobileSync/Backup/1/file");
    for (const char* name : {"data/ab", "keys", "snapshots"}) {
        place.folder("home/restic/" + std::string(name));
    }
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
    for (const auto& [name, target] : {std::pair{"out", "../elsewhere"},
                                       {"toDocuments", "Documents"},
                                       {"toOpened", "../opened"},
                                       {"toCloud", "Dropbox"},
                                       {"toSecret", "keep/secret"},
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

TEST(DiskItemRemovalPolicy, SaysWhatMayGoAndWhyTheRestMayNot) {
    Surroundings around;
    makeCases(around.place);
    // What the desktop's list protects from rules does not keep a person from choosing in it.
    for (const char* name : {"home/keep/secret", "home/Klang", "home/Geholt"}) {
        around.facts.additionalProtectedRoots.push_back(around.at(name));
    }
    around.facts.activeApplicationRoots = {around.at("home/.config/running"),
                                           around.at("home/apps/data/of it")};
    around.facts.openByProcessPaths = {around.place / "home/files/open",
                                       around.place / "home/busy/deep/open",
                                       around.place / "home/busy-ness"};
    around.facts.activelyGrowingPaths = {around.place / "home/files/growing",
                                         around.place / "home/log writer/log"};
    DiskItemRemovalPolicy policy = around.policy();
    for (int round = 0; round < 2; ++round) { // the second time from what is remembered
        for (const Case& one : cases) {
            EXPECT_EQ(told(policy, around.at(one.item)), one.told) << one.item;
        }
    }
    EXPECT_EQ(told(policy, FileURL::folder("/")), "homeFolder");
    around.place.permissions("home/closed", 0755);
}

TEST(DiskItemRemovalPolicy, HasASentenceForEachRefusal) {
    std::set<std::string_view> sentences;
    for (const DiskItemRefusal refusal : allCases<DiskItemRefusal>()) {
        EXPECT_TRUE(explanation(refusal).ends_with('.')) << rawValue(refusal);
        sentences.insert(explanation(refusal));
    }
    EXPECT_EQ(sentences.size(), allCases<DiskItemRefusal>().size());
}

TEST(DiskItemRemovalPolicy, LeavesTheSystemsPlacesAloneThoughTheyWereOpened) {
    Surroundings around;
    DiskItemRemovalPolicy policy(
        {.home = around.home(),
         .openedFolders = {FileURL::folder("/")},
         .context = std::make_shared<const SafetyPolicyContext>(around.facts),
         .volumes = around.volumes});
    for (const char* item : {"/usr", "/usr/bin/env", "/Applications/Thing.app", "/etc/passwd",
                             "/run/user/0/file", "/private"}) {
        EXPECT_EQ(told(policy, FileURL::file(item)), "systemPlace") << item;
    }
    EXPECT_EQ(told(policy, around.at("none")), "vanished");
}

TEST(DiskItemRemovalPolicy, RefusesEverythingWhileNothingIsKnown) {
    Surroundings around;
    around.place.file("home/file");
    DiskItemRemovalPolicy policy(
        {.home = around.home(), .context = nullptr, .volumes = around.volumes});
    EXPECT_EQ(told(policy, around.at("home/file")), "nothingKnown");
    // A list of the desktop's folders that cannot be read.
    around.place.folder("home/.config/user-dirs.dirs");
    DiskItemRemovalPolicy unlisted = around.policy();
    EXPECT_EQ(told(unlisted, around.at("home/file")), "nothingKnown");
}

TEST(DiskItemRemovalPolicy, TakesOtherVolumesOnlyFromAFolderThatWasOpenedThere) {
    Surroundings around;
    around.place.file("home/work/file");
    around.place.file("opened/file");
    around.facts.internalLocalVolumeIdentifiers = {"another"};
    DiskItemRemovalPolicy policy = around.policy();
    EXPECT_EQ(told(policy, around.at("home/work/file")), "otherVolume");
    EXPECT_EQ(told(policy, around.at("opened/file")), "");
    around.volumes.answer = std::unexpected(SystemError{EIO});
    DiskItemRemovalPolicy unknown = around.policy();
    EXPECT_EQ(told(unknown, around.at("opened/file")), "otherVolume");
}

TEST(DiskItemRemovalPolicy, MakesAnEntryThatAPersonApproves) {
    Surroundings around;
    around.place.file("home/.cache/pip/http/1", "12345");
    around.place.file("home/logs/old.txt", "123");
    DiskItemRemovalPolicy policy = around.policy();
    const Timestamp at = Timestamp::now().adding(day);
    const FileURL pip = around.home().appendingFolder(".cache/pip");
    const auto entry = policy.planEntry({.item = FileURL::file(pip.path()),
                                         .placeID = "pip-cache-dot",
                                         .measuredBytes = 77,
                                         .at = at});
    ASSERT_TRUE(entry) << explanation(entry.error());
    const auto seen = FileIdentity::observation(pip, around.home(), around.volumes);
    const ProofCard& card = entry->proofCard;
    EXPECT_EQ(entry->candidateID, seen->id);
    EXPECT_EQ(entry->sourceURL, pip) << "marked as the folder that it is";
    EXPECT_TRUE(entry->fingerprint.matches(*seen));
    EXPECT_EQ(card.category, CleanupCategory::regenerableCache);
    EXPECT_EQ(card.riskTier, RiskTier::reviewCarefully);
    EXPECT_EQ(card.byteCount, 77U);
    EXPECT_EQ(card.recoveryMethod, "Moved to the macOS Trash, where you can put it back.");
    using enum EvidenceCode;
    EXPECT_EQ(card.evidence.codes,
              (EvidenceCodes{currentUserOwned, inactive, internalLocalVolume, userReviewRequired}));
    EXPECT_EQ(card.evidence.summary.text(),
              "Packages are downloaded again the next time they are installed.");
    EXPECT_EQ(entry->approvalRequirement, ApprovalRequirement::itemLevel);
    EXPECT_EQ(entry->authorization, (CleanupAuthorization{authorization::DiskItem{
                                        .placeID = "pip-cache-dot", .itemURL = pip}}));

    const auto category = [&](std::optional<DiskGroup> group) {
        return policy
            .planEntry({.item = around.at("home/logs/old.txt"),
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
    const Surroundings around;
    around.place.file("home/.cache/pip/1");
    around.place.file("home/Documents/letter");
    around.place.link("home/.cache/pip/led out", "../../Documents");
    around.place.file("home/data/store/1");
    around.place.link("home/.pnpm-store", "data/store");
    around.place.file("home/Library/Caches/.DS_Store");
    DiskItemRemovalPolicy policy = around.policy();
    EXPECT_EQ(told(policy, around.at("home/.cache/pip/1"), "pip-cache-dot"), "");
    EXPECT_EQ(told(policy, around.at("home/.cache/pip/1"), "caches"), "otherPlace");
    EXPECT_EQ(told(policy, around.at("home/Documents/letter"), "pip-cache-dot"), "otherPlace");
    EXPECT_EQ(told(policy, around.at("home/.cache/pip/led out/letter"), "pip-cache-dot"),
              "otherPlace");
    EXPECT_EQ(told(policy, around.at("home/.pnpm-store/1"), "pnpm-store-dot"), "")
        << "the place itself may lie elsewhere";
    EXPECT_EQ(told(policy, around.at("home/Library/Caches/.DS_Store"), "caches"), "otherPlace");
}

TEST(DiskItemRemovalPolicy, WaitsUntilAnItemHasBeenQuietAndIsWhatWasMeasured) {
    const Surroundings around;
    constexpr std::int64_t written = 1'700'000'000;
    for (const char* name : {".cache/pip/a/b/1", "files/1", "files/2"}) {
        around.place.file("home/" + std::string(name));
    }
    for (const char* name : {".cache/pip/a/b/1", ".cache/pip/a/b", ".cache/pip/a", ".cache/pip"}) {
        around.place.times("home/" + std::string(name), written - 100'000, written - 100'000);
    }
    around.place.times("home/.cache/pip/a/b/1", written, written);
    around.place.times("home/files/1", written, written);
    DiskItemRemovalPolicy policy = around.policy();
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
             Moment{"home/.cache/pip", 700, -10, ""}, // by its own date
             Moment{"home/files/1", 1, std::nullopt, ""},
             Moment{"home/files/1", 700, 0, ""},
             Moment{"home/files/1", 700, -1, "changedSinceMeasured"},
         }) {
        DiskItemRemovalPolicy::Question question{
            .item = around.at(item), .measuredBytes = 0, .at = Timestamp::since1970(written + at)};
        if (built) question.built = Timestamp::since1970(written + *built);
        const auto entry = policy.planEntry(question);
        EXPECT_EQ(entry ? "" : rawValue(entry.error()), expected) << item << " " << at;
    }
}

TEST(DiskItemRemovalPolicy, StopsLookingThroughAFolderWhenAsked) {
    const Surroundings around;
    around.place.file("home/folder/file");
    DiskItemRemovalPolicy policy = around.policy();
    std::stop_source stop;
    stop.request_stop();
    const auto entry = policy.planEntry({.item = around.at("home/folder"),
                                         .measuredBytes = 0,
                                         .at = Timestamp::now(),
                                         .cancel = stop.get_token()});
    EXPECT_EQ(entry.error(), DiskItemRefusal::cancelled);
}

TEST(DiskItemRemovalPolicy, LeavesWhatBelongsToOthersOrIsLocked) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
    const Surroundings around;
    for (const char* name : {"theirs", "folder/a/theirs", "locked", "appended/file"}) {
        around.place.file("home/" + std::string(name));
    }
    for (const char* name : {"home/theirs", "home/folder/a/theirs"}) {
        ASSERT_EQ(::chown((around.place / name).c_str(), 12'345, 12'345), 0);
    }
    DiskItemRemovalPolicy policy = around.policy();
    EXPECT_EQ(told(policy, around.at("home/theirs")), "otherOwner");
    EXPECT_EQ(told(policy, around.at("home/folder")), "otherOwnerInside");
    const std::string file = around.place / "home/locked";
    const std::string folder = around.place / "home/appended";
    if (!testing::succeeds("chattr +i '" + file + "' && chattr +a '" + folder + "'")) {
        GTEST_SKIP() << "the file system has no locks";
    }
    EXPECT_EQ(told(policy, around.at("home/locked")), "locked");
    EXPECT_EQ(told(policy, around.at("home/appended/file")), "locked");
    EXPECT_TRUE(testing::succeeds("chattr -i '" + file + "'; chattr -a '" + folder + "'"));
}

TEST(DiskItemRemovalPolicy, LeavesWhatIsClosedToTheUser) {
    Surroundings around;
    for (const char* name : {"dark/inner/file", "unread/file", "part/inner/file"}) {
        around.place.file("home/" + std::string(name));
    }
    constexpr std::array<const char*, 3> closed{"home/dark", "home/unread", "home/part/inner"};
    if (::geteuid() == 0) {
        ASSERT_TRUE(testing::succeeds("chown -R 65534:65534 '" + around.place.path() + "'"));
    }
    for (const char* name : closed) around.place.permissions(name, 0300);
    around.place.permissions("home/dark", 0600);
    const std::string text = testing::asOrdinaryUser([&] {
        around.facts.currentUserID = ::geteuid();
        DiskItemRemovalPolicy policy = around.policy();
        std::string all;
        for (const char* name : {"home/dark/inner/file", "home/unread", "home/part"}) {
            all += told(policy, around.at(name)) + ";";
        }
        return all;
    });
    EXPECT_EQ(text, "unreadable;unreadableFolder;unreadableInside;");
    for (const char* name : closed) around.place.permissions(name, 0755);
}

TEST(DiskItemRemovalPolicy, LeavesWhereSomethingIsMounted) {
    const Surroundings around;
    around.place.folder("home/point");
    around.place.folder("home/folder/a/point");
    around.place.file("home/file");
    around.place.file("elsewhere/file");
    const auto text = testing::inMountNamespace([&]() -> std::string {
        if (!testing::bindMount(around.place / "elsewhere", around.place / "home/point") ||
            !testing::bindMount(around.place / "elsewhere", around.place / "home/folder/a/point") ||
            !testing::bindMount(around.place / "elsewhere/file", around.place / "home/file")) {
            return "cannot mount";
        }
        // The mounts of the new namespace have numbers of their own.
        FakeVolumes volumes = around.volumes;
        volumes.answer->front().mount =
            platform::fileMetadata(around.place.path())->mount.value_or(0);
        DiskItemRemovalPolicy policy(
            {.home = around.home(),
             .context = std::make_shared<const SafetyPolicyContext>(around.facts),
             .volumes = volumes});
        std::string all;
        for (const char* name : {"home/point", "home/file", "home/folder"}) {
            all += told(policy, around.at(name)) + ";";
        }
        return all;
    });
    if (!text) GTEST_SKIP() << "needs a mount namespace of its own";
    EXPECT_EQ(*text, "mountPoint;mountPoint;mountPointInside;");
}

} // namespace
} // namespace tidyro

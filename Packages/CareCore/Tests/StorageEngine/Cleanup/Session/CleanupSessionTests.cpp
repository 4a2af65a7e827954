#include "StorageEngine/Cleanup/Session/CleanupSession.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <stop_token>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "Platform/Machine/OperatingSystem.h"
#include "Platform/Machine/RandomUUID.h"
#include "Platform/Testing/FakeRunningApplications.h"
#include "Platform/Testing/FakeRunningProcesses.h"
#include "Platform/Testing/FakeVolumes.h"
#include "StorageEngine/Observation/FileObserver.h"
#include "Support/OtherCircumstances.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {
namespace {

namespace fs = std::filesystem;
using platform::testing::FakeVolumes;
using testing::TemporaryFolder;
using Mode = CleanupExecutionMode;

/// A home with old caches, seen a year later, and sessions in it.
struct Home {
    TemporaryFolder own;
    const TemporaryFolder& place;
    FakeVolumes volumes;
    platform::testing::FakeRunningProcesses processes;
    platform::testing::FakeRunningApplications applications;
    Timestamp now = Timestamp::now().adding(365 * 86'400.0);
    std::function<void()> onClock = nullptr;

    Home() : Home(nullptr) {}
    explicit Home(const TemporaryFolder* at)
        : place(at != nullptr ? *at : own), volumes(FakeVolumes::withOneAt(place.path())) {
        place.file("home/.npm/_cacache/content-v2/one", "first file");
        place.file("home/.npm/_cacache/content-v2/two", "second file");
        place.permissions("home/.npm/_cacache/content-v2", 0750);
        place.file("home/.cache/pip/http/three", "third file");
        place.file("opened/folder/sub/file", "inside");
        place.file("opened/kept", "equal");
        place.file("opened/extra", "equal");
        place.folder("home/.local/share");
    }
    [[nodiscard]] FileURL url(const std::string& name) const { return FileURL::file(place / name); }
    [[nodiscard]] std::unique_ptr<CleanupSession> session() {
        CleanupSession::Options options;
        options.home = FileURL::folder(place / "home");
        options.support = FileURL::folder(place / "home/.local/share/Harborline");
        options.openedFolders = {FileURL::folder(place / "opened")};
        options.machine.volumes = &volumes;
        options.machine.processes = &processes;
        options.machine.applications = &applications;
        options.machine.clock = [this] {
            if (onClock) onClock();
            return now;
        };
        options.machine.trashHome = FileURL::folder(place / "home/.local/share/Trash");
        options.machine.secondsBetweenLooks = 0;
        return std::make_unique<CleanupSession>(std::move(options));
    }
    [[nodiscard]] PreparedCleanup prepared(CleanupSession& session, Mode mode) const {
        const auto found = session.suggest();
        EXPECT_TRUE(found.has_value());
        auto plan = session.plan({.candidates = found->candidates(), .mode = mode});
        EXPECT_TRUE(plan.has_value());
        return *std::move(plan);
    }
    [[nodiscard]] std::string contents(const std::string& name) const {
        std::ifstream file(place / name);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    [[nodiscard]] std::string below(const std::string& folder) const {
        std::set<std::string> names;
        std::error_code none;
        for (const auto& entry : fs::recursive_directory_iterator(place / folder, none)) {
            if (!entry.is_directory()) names.insert(entry.path().filename().string());
        }
        std::string all;
        for (const std::string& name : names) all += (all.empty() ? "" : " ") + name;
        return all;
    }
};

TEST(CleanupSession, CleansTellsPutsBackAndEmpties) {
    Home home;
    const auto session = home.session();
    const PreparedCleanup prepared = home.prepared(*session, Mode::recoverable);
    ASSERT_EQ(prepared.plan.entries.size(), 3);
    ASSERT_TRUE(session->lastSuggestions());
    EXPECT_EQ(session->lastSuggestions()->safe.itemCount, 3);

    const auto approval = CleanupSession::approve(prepared, {}, home.now);
    const auto receipt = session->carryOut(prepared, approval);
    ASSERT_TRUE(receipt) << receipt.error().description();
    EXPECT_EQ(home.below("home/.npm") + home.below("home/.cache"), "");
    EXPECT_EQ(home.below("home/.local/share/Trash/files"), "one three two");
    const auto history = session->history();
    ASSERT_TRUE(history) << history.error().description();
    ASSERT_EQ(history->lines.size(), 1);
    EXPECT_EQ(history->lines.front().movedToTrash.count, 3);

    // Another run of the program, in which a folder is gone as well.
    const auto later = home.session();
    fs::remove_all(home.place / "home/.npm");
    const auto back = later->putBack(
        receipt->id, {prepared.plan.entries[0].candidateID, prepared.plan.entries[1].candidateID});
    ASSERT_TRUE(back) << back.error().description();
    for (const auto& item : *back) {
        EXPECT_TRUE(item.done) << item.done.error().description();
        EXPECT_TRUE(fs::exists(item.originalURL.path()));
    }
    EXPECT_EQ(home.below("home/.local/share/Trash/info").find(' '), std::string::npos);
    const auto content = home.place / "home/.npm/_cacache/content-v2";
    if (fs::exists(content)) {
        EXPECT_EQ(static_cast<unsigned>(fs::status(content).permissions()), 0750U);
    }

    const auto emptying = later->planEmptying();
    ASSERT_TRUE(emptying) << emptying.error().description();
    ASSERT_EQ(emptying->entries.size(), 1) << "only what is still there";
    const auto emptied = later->emptyTrash(*emptying, {.planID = emptying->id,
                                                       .itemCount = 1,
                                                       .byteCount = emptying->byteCount(),
                                                       .acknowledgedAt = home.now});
    ASSERT_TRUE(emptied) << emptied.error().description();
    EXPECT_GT(emptied->actuallyReclaimedByteCount.value_or(0), 0);
    EXPECT_EQ(home.below("home/.local/share/Trash/files"), "");
    EXPECT_TRUE(later->planEmptying()->entries.empty());
    EXPECT_EQ(later->receipts()->size(), 2);
}

TEST(CleanupSession, CarriesOutOnlyWhatWasApproved) {
    Home home;
    const auto session = home.session();
    const PreparedCleanup prepared = home.prepared(*session, Mode::permanent);
    const auto approval = CleanupSession::approve(prepared, {}, home.now);

    PreparedCleanup changed = prepared;
    changed.sheet.entries[0].creationDate = std::nullopt;
    auto told = session->carryOut(changed, approval);
    ASSERT_FALSE(told) << "a field of the sheet was changed";
    EXPECT_EQ(told.error().description(),
              "The list of items changed after you confirmed it, so nothing was touched. Review "
              "the current list and confirm it again.");
    changed = prepared;
    changed.plan.entries.pop_back();
    EXPECT_FALSE(session->carryOut(changed, approval));
    auto unacknowledged = approval;
    unacknowledged.acknowledgement.reset();
    EXPECT_FALSE(session->carryOut(prepared, unacknowledged));
    EXPECT_EQ(home.below("home/.npm"), "one two") << "nothing was touched";

    // Approved elsewhere: written, read back and carried out with the digest that was read there.
    const auto written =
        CleanupPlanFile::write(home.url("plan.json"), prepared.plan, prepared.sheet);
    ASSERT_TRUE(written);
    const auto read = CleanupPlanFile::read(home.url("plan.json"));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->digest, approval.digest);
    const auto receipt = session->carryOut({read->plan, read->sheet, read->digest}, approval);
    ASSERT_TRUE(receipt) << receipt.error().description();
    EXPECT_EQ(home.below("home/.npm") + home.below("home/.cache"), "");
    EXPECT_TRUE(receipt->isPermanent());
}

TEST(CleanupSession, SimulatesThroughTheSameStepsAndWritesNothingDown) {
    Home home;
    const auto session = home.session();
    const PreparedCleanup prepared = home.prepared(*session, Mode::simulation);
    const std::string before = home.below("home/.local/share");
    const auto receipt =
        session->carryOut(prepared, CleanupSession::approve(prepared, {}, home.now));
    ASSERT_TRUE(receipt) << receipt.error().description();
    EXPECT_EQ(receipt->entries.size(), 3);
    EXPECT_EQ(home.below("home/.local/share"), before);
    EXPECT_EQ(home.below("home/.npm"), "one two");
}

TEST(CleanupSession, MovesPicksAndExtraCopiesOnlyBesideTheirKeptOnes) {
    Home home;
    const auto session = home.session();
    const auto kept = FileIdentity::observation(home.url("opened/kept"),
                                                FileURL::folder(home.place / "home"), home.volumes);
    ASSERT_TRUE(kept);
    const auto picked = session->planPicks(
        {{.item = home.url("opened/folder"), .measuredBytes = 6},
         {.item = home.url("opened/extra"),
          .measuredBytes = 5,
          .keptCopy =
              KeptCopy{.url = kept->url, .fingerprint = FileFingerprint::fromObservation(*kept)}},
         {.item = home.url("opened/none"), .measuredBytes = 1}});
    ASSERT_EQ(picked.refused.size(), 1);
    ASSERT_TRUE(picked.prepared);
    std::set<LocalItemID> reviewed;
    for (const auto& entry : picked.prepared->plan.entries) reviewed.insert(entry.candidateID);
    fs::remove(home.place / "opened/kept");
    const auto receipt = session->carryOut(
        *picked.prepared, CleanupSession::approve(*picked.prepared, reviewed, home.now));
    ASSERT_TRUE(receipt) << receipt.error().description();
    EXPECT_EQ(home.below("opened"), "extra") << "its kept copy is gone";
    home.place.file("opened/folder", "something else by now");
    const auto told = session->putBack(receipt->id);
    ASSERT_TRUE(told) << told.error().description();
    ASSERT_FALSE(told->front().done);
    EXPECT_EQ(told->front().done.error().kind, TrashRestorer::Error::Kind::placeTaken);
    const auto back = session->putBack(receipt->id, {}, CleanupSession::WhenTaken::putBeside);
    ASSERT_TRUE(back) << back.error().description();
    ASSERT_TRUE(back->front().done) << back->front().done.error().description();
    EXPECT_EQ(back->front().url.path(), home.place / "opened/folder (restored)");
    EXPECT_EQ(home.contents("opened/folder (restored)/sub/file"), "inside");
    EXPECT_EQ(home.contents("opened/folder"), "something else by now");
}

TEST(CleanupSession, RefusesAPickInsideAnother) {
    Home home;
    home.place.file("opened/folder beside", "not inside");
    home.place.link("opened/link", "folder/sub");
    const auto session = home.session();
    const auto picked =
        session->planPicks({{.item = home.url("opened/folder/sub/file"), .measuredBytes = 6},
                            {.item = home.url("opened/folder"), .measuredBytes = 6},
                            {.item = home.url("opened/folder/sub"), .measuredBytes = 6},
                            {.item = home.url("opened/folder beside"), .measuredBytes = 10},
                            {.item = home.url("opened/folder"), .measuredBytes = 6}});
    ASSERT_TRUE(picked.prepared);
    EXPECT_EQ(picked.prepared->plan.entries.size(), 2);
    EXPECT_EQ(picked.prepared->plan.goal.byteCount, 16U) << "each byte once";
    ASSERT_EQ(picked.refused.size(), 2);
    EXPECT_EQ(picked.refused[0].item, home.url("opened/folder/sub/file"));
    EXPECT_EQ(picked.refused[1].reason,
              "It lies in " + home.place / "opened/folder" +
                  ", which was picked as well, so it goes with that folder.");
}

TEST(CleanupSession, ReachesNothingThatToolsKeep) {
    Home home;
    home.place.folder("home/stuff/mine/sessions");
    home.place.file("home/stuff/mine/sessions/a.jsonl", "equal");
    home.place.link("home/.codex", "stuff/mine"); // rejected as a link, and fenced all the same
    home.place.file("home/.claude/other/b", "equal");
    home.place.file("home/.config/Code/GPUCache/data_1", "state");
    home.place.file("home/.config/Code/Cache/Cache_Data/f_1_0", "cache");
    home.place.file("home/.config/Code/Cache/Cache_Data/index", "index");
    const auto session = home.session();
    const auto found = session->suggest();
    ASSERT_TRUE(found);
    std::string suggested;
    for (const CleanupCandidate& candidate : found->candidates()) {
        const std::string& path = candidate.observation.url.path();
        if (path.find("/Code/") == path.npos) continue;
        suggested += std::string(candidate.observation.url.lastComponent()) + " ";
    }
    const bool isOnLinux = platform::operatingSystem() == OperatingSystem::linux_;
    EXPECT_EQ(suggested, isOnLinux ? "f_1_0 " : ""); // where the home lies that was made

    const auto kept = FileIdentity::observation(home.url("opened/kept"),
                                                FileURL::folder(home.place / "home"), home.volumes);
    ASSERT_TRUE(kept);
    const KeptCopy copy{.url = kept->url, .fingerprint = FileFingerprint::fromObservation(*kept)};
    const auto picked = session->planPicks(
        {{.item = home.url("home/stuff"), .measuredBytes = 5}, // holds what the link leads to
         {.item = home.url("home/stuff/mine/sessions"), .measuredBytes = 5},
         {.item = home.url("home/.codex/sessions/a.jsonl"), .measuredBytes = 5, .keptCopy = copy},
         {.item = home.url("home/.claude/other/b"), .measuredBytes = 5, .keptCopy = copy},
         {.item = home.url("opened/extra"), .measuredBytes = 5, .keptCopy = copy},
         {.item = home.url("opened/folder"), .measuredBytes = 5}});
    ASSERT_TRUE(picked.prepared);
    EXPECT_EQ(picked.refused.size(), 4U);
    EXPECT_EQ(picked.prepared->plan.entries.size(), 2U);

    // By the time of the run a home leads to one of them.
    home.place.folder("opened/folder/sessions");
    home.place.times("opened/folder/sessions", 0, 0);
    home.place.times("opened/folder", 0, 0);
    fs::remove(home.place / "home/.codex");
    home.place.link("home/.codex", home.place / "opened/folder");
    std::set<LocalItemID> reviewed;
    for (const auto& entry : picked.prepared->plan.entries) reviewed.insert(entry.candidateID);
    const auto receipt = session->carryOut(
        *picked.prepared, CleanupSession::approve(*picked.prepared, reviewed, home.now));
    ASSERT_TRUE(receipt) << receipt.error().description();
    EXPECT_EQ(home.below("opened"), "file kept");
}

TEST(CleanupSession, TellsAndSettlesAnInterruptedCleanup) {
    Home home;
    {
        // A cleanup that ended between the move of an item and its record.
        FileCleanupIntentJournal journal(
            FileURL::folder(home.place / "home/.local/share/Harborline/intents"));
        const auto seen =
            FileIdentity::observation(home.url("home/.npm/_cacache/content-v2/one"),
                                      FileURL::folder(home.place / "home"), home.volumes);
        CleanupIntent intent{.id = platform::randomUUID(),
                             .planID = platform::randomUUID(),
                             .createdAt = home.now,
                             .mode = Mode::recoverable,
                             .entries = {{.candidateID = seen->id,
                                          .sourceURL = seen->url,
                                          .fingerprint = FileFingerprint::fromObservation(*seen)}}};
        ASSERT_TRUE(journal.begin(intent));
    }
    const auto session = home.session();
    const auto told = session->interrupted();
    ASSERT_TRUE(told) << told.error().description();
    ASSERT_EQ(told->cleanups.size(), 1);
    EXPECT_EQ(told->cleanups[0].items[0].found, SettledCleanup::Found::atPlace);
    const auto settled = session->settle();
    ASSERT_TRUE(settled) << settled.error().description();
    EXPECT_TRUE(session->interrupted()->cleanups.empty());
    EXPECT_EQ(session->receipts()->size(), 1);
}

TEST(CleanupSession, SettlesWhatAClosedCleanupCouldNotPutBack) {
    Home home;
    const FileURL item = home.url("home/.npm/_cacache/content-v2/one");
    const auto seen =
        FileIdentity::observation(item, FileURL::folder(home.place / "home"), home.volumes);
    ASSERT_TRUE(seen);
    const CleanupIntent intent{
        .id = platform::randomUUID(),
        .planID = platform::randomUUID(),
        .createdAt = home.now,
        .mode = Mode::permanent,
        .entries = {{.candidateID = seen->id,
                     .sourceURL = seen->url,
                     .fingerprint = FileFingerprint::fromObservation(*seen)}}};
    {
        FileCleanupIntentJournal journal(
            FileURL::folder(home.place / "home/.local/share/Harborline/intents"));
        ASSERT_TRUE(journal.begin(intent));
        const std::string own = platform::PrivateFolder::nameFor(intent.id);
        const fs::path mine = fs::path(item.path()).parent_path() / own;
        fs::create_directory(mine);
        fs::permissions(mine, fs::perms::owner_all);
        fs::rename(item.path(), mine / "one");
        ASSERT_TRUE(journal.recordOutcome({intent_outcome::Failed{"could not go back"}}, seen->id,
                                          intent.id));
        ASSERT_TRUE(journal.close(intent.id, home.now));
    }
    const auto settled = home.session()->settle();
    ASSERT_TRUE(settled) << settled.error().description();
    EXPECT_EQ(home.contents("home/.npm/_cacache/content-v2/one"), "first file");
    EXPECT_EQ(home.below("home/.npm"), "one two");
}

TEST(CleanupSession, ForgetsWhatNoReceiptTellsAnyMore) {
    Home home;
    const auto first = home.session();
    const PreparedCleanup prepared = home.prepared(*first, Mode::permanent);
    ASSERT_TRUE(first->carryOut(prepared, CleanupSession::approve(prepared, {}, home.now)));
    EXPECT_NE(home.below("home/.local/share/Harborline/plans"), "");
    home.place.file("home/.npm/_cacache/content-v2/four", "fourth file");
    home.now = home.now.adding(91 * 86'400.0);
    const auto second = home.session();
    const PreparedCleanup more = home.prepared(*second, Mode::recoverable);
    const auto receipt =
        second->carryOut(more, CleanupSession::approve(more, {}, home.now.adding(0)));
    ASSERT_TRUE(receipt) << receipt.error().description();
    EXPECT_EQ(second->receipts()->size(), 1);
    EXPECT_EQ(home.below("home/.local/share/Harborline/plans"), more.plan.id.text() + ".json");
    home.now = home.now.adding(100 * 86'400.0);
    EXPECT_EQ(home.session()->receipts()->size(), 1) << "its item still lies in the Trash";
}

TEST(CleanupSession, TellsTheTriesOfOnePlanApart) {
    Home home;
    const auto session = home.session();
    const PreparedCleanup prepared = home.prepared(*session, Mode::recoverable);
    const auto approval = CleanupSession::approve(prepared, {}, home.now);
    std::stop_source source;
    const auto first = session->carryOut(
        prepared, approval, [&](const auto&) { source.request_stop(); }, source.get_token());
    ASSERT_FALSE(first);
    ASSERT_NE(first.error().receipt(), nullptr);
    const UUID firstID = first.error().receipt()->id;
    home.now = home.now.adding(1);
    const auto second = session->carryOut(prepared, approval);
    ASSERT_TRUE(second) << second.error().description();
    EXPECT_EQ(home.below("home/.local/share/Trash/files"), "one three two");
    EXPECT_EQ(session->planEmptying()->entries.size(), 3);

    const auto back = session->putBack(firstID);
    ASSERT_TRUE(back) << back.error().description();
    ASSERT_EQ(back->size(), 1);
    EXPECT_TRUE(back->front().done);
    EXPECT_EQ(session->planEmptying()->entries.size(), 2);
}

TEST(CleanupSession, KeepsTheSheetOfACleanupThatIsAboutToRun) {
    Home home;
    const auto session = home.session();
    const PreparedCleanup prepared = home.prepared(*session, Mode::recoverable);
    ASSERT_TRUE(session->settle()); // makes the history
    const std::string sheet = "home/.local/share/Harborline/plans";
    const auto other = home.session();
    bool hasSettled = false;
    home.onClock = [&] {
        if (hasSettled || home.below(sheet).empty()) return;
        hasSettled = true;
        static_cast<void>(other->settle()); // drops what no cleanup needs
    };
    const auto receipt =
        session->carryOut(prepared, CleanupSession::approve(prepared, {}, home.now));
    ASSERT_TRUE(receipt) << receipt.error().description();
    EXPECT_EQ(home.below(sheet), prepared.plan.id.text() + ".json");
    EXPECT_EQ(session->planEmptying()->entries.size(), 3);

    fs::remove_all(home.place / sheet);
    EXPECT_TRUE(session->planEmptying()->entries.empty())
        << "nothing tells which of them are extra copies";
}

TEST(CleanupSession, CleansADiskThatIsFull) {
    for (const std::string type : {"ext4", "xfs", "btrfs"}) {
        for (const Mode mode : {Mode::recoverable, Mode::permanent}) {
            SCOPED_TRACE(type + " " + std::string(rawValue(mode)));
            const auto image = testing::MountedImage::make(type);
            if (!image) GTEST_SKIP() << "needs to mount " << type;
            Home home(&image->folder());
            const std::string longest(255, 'n');
            home.place.file("home/.npm/_cacache/content-v2/" + longest, "a long name");
            home.place.file("home/.npm/_cacache/content-v2/\xff\xfe", "no text");
            const auto session = home.session();
            {
                // An earlier cleanup left the reserve.
                FileCleanupIntentJournal journal(
                    FileURL::folder(home.place / "home/.local/share/Harborline/intents"));
                ASSERT_TRUE(journal.hold());
                const CleanupIntent none{.id = platform::randomUUID(),
                                         .planID = platform::randomUUID(),
                                         .createdAt = home.now,
                                         .mode = mode,
                                         .entries = {}};
                ASSERT_TRUE(journal.begin(none));
                ASSERT_TRUE(journal.close(none.id, home.now));
            }
            ASSERT_TRUE(session->settle());
            const PreparedCleanup prepared = home.prepared(*session, mode);
            ASSERT_EQ(prepared.plan.entries.size(), 5);
            ASSERT_FALSE(
                testing::runQuietly("dd if=/dev/zero bs=1M of='" + (home.place / "filler") + "'"));
            for (int i = 0; i < 3'000; ++i) {
                std::ofstream more(home.place / ("small" + std::to_string(i)));
                if (!(more << std::string(5'000, 'x') << std::flush)) break;
            }
            ASSERT_FALSE(testing::runQuietly("mkdir '" + (home.place / "folder") + "' && " +
                                             "dd if=/dev/zero bs=4k count=9 of='" +
                                             (home.place / "folder/none") + "'"));
            const auto receipt =
                session->carryOut(prepared, CleanupSession::approve(prepared, {}, home.now));
            ASSERT_TRUE(receipt) << receipt.error().description();
            for (const auto& entry : receipt->entries) {
                EXPECT_FALSE(entry.failureDescription) << *entry.failureDescription;
            }
            EXPECT_EQ(home.below("home/.npm") + home.below("home/.cache"), "");
            EXPECT_TRUE(session->interrupted()->cleanups.empty());
        }
    }
}

#ifdef __linux__
constexpr const char* simulationBegins = "/a simulation begins";
constexpr const char* simulationEnds = "/a simulation ends";
constexpr const char* tracedName = "TIDYRO_TEST_IS_TRACED";

std::map<LocalItemID, bool> carriedOut(const CleanupReceipt& receipt) {
    std::map<LocalItemID, bool> done;
    for (const CleanupReceiptEntry& entry : receipt.entries) {
        done[entry.candidateID] = !entry.failureDescription;
    }
    return done;
}

/// Whether a line of the trace tells of a call that changes something.
bool isChange(const std::string& line) {
    const std::size_t end = line.find('(');
    const std::size_t begin = line.find_last_of(' ', end) + 1;
    const std::string call = line.substr(begin, end - begin);
    if (!call.starts_with("open")) return true;
    return line.find("O_WRONLY") != line.npos || line.find("O_RDWR") != line.npos ||
           line.find("O_CREAT") != line.npos || line.find("O_TRUNC") != line.npos;
}

/// The test starts itself once more, traced. What is planned is then run, and the same items go.
TEST(CleanupSession, ASimulationIsTheRunWithoutAChange) {
    if (std::getenv(tracedName) == nullptr) {
        if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
        if (!testing::runQuietly("strace -f -o /dev/null true")) GTEST_SKIP() << "needs strace";
        const TemporaryFolder place;
        const std::string calls =
            "access,?open,openat,openat2,?creat,?rename,?renameat,renameat2,?unlink,unlinkat,"
            "?rmdir,?mkdir,mkdirat,?link,linkat,?symlink,symlinkat,?mknod,mknodat,?chmod,fchmod,"
            "fchmodat,?chown,fchown,?lchown,fchownat,truncate,ftruncate,?utimes,utimensat,setxattr,"
            "lsetxattr,fsetxattr,removexattr,lremovexattr,fremovexattr,fallocate,copy_file_range";
        const std::string self = fs::read_symlink("/proc/self/exe").string();
        ASSERT_TRUE(testing::runQuietly(
            // Looking for leaks is itself a trace, and there can be only one.
            "ASAN_OPTIONS=detect_leaks=0 " + std::string(tracedName) +
            "=1 strace -f -y -s 4096 -e trace='" + calls + "' -o '" + (place / "trace") + "' '" +
            self + "' --gtest_filter=CleanupSession.ASimulationIsTheRunWithoutAChange"));
        std::ifstream trace(place / "trace");
        bool isInside = false;
        std::size_t lookedAt = 0;
        for (std::string line; std::getline(trace, line);) {
            if (line.find(simulationEnds) != line.npos) isInside = false;
            if (isInside && line.find("/Harborline") == line.npos &&
                line.find("access(") == line.npos && line.find("+++") == line.npos &&
                line.find(" resumed>") == line.npos) {
                ++lookedAt;
                EXPECT_FALSE(isChange(line)) << line;
            }
            if (line.find(simulationBegins) != line.npos) isInside = true;
        }
        EXPECT_GT(lookedAt, 20) << "the trace tells nothing";
        return;
    }
    Home home;
    const auto session = home.session();
    home.place.folder("home/.local/share/Harborline");
    ASSERT_NE(::access(simulationBegins, F_OK), 0);
    const PreparedCleanup trial = home.prepared(*session, Mode::simulation);
    const auto trialApproval = CleanupSession::approve(trial, {}, home.now);
    ASSERT_NE(::access(simulationEnds, F_OK), 0);
    home.place.times("home/.npm/_cacache/content-v2/two", 2'000, 2'000);
    ASSERT_NE(::access(simulationBegins, F_OK), 0);
    const auto simulated = session->carryOut(trial, trialApproval);
    ASSERT_NE(::access(simulationEnds, F_OK), 0);
    ASSERT_TRUE(simulated) << simulated.error().description();

    PreparedCleanup real = trial;
    real.plan.mode = Mode::recoverable;
    real.digest = cleanupDigest(real.plan, real.sheet);
    const auto run = session->carryOut(real, CleanupSession::approve(real, {}, home.now));
    ASSERT_TRUE(run) << run.error().description();
    EXPECT_EQ(carriedOut(*simulated), carriedOut(*run));
    EXPECT_EQ(home.below("home/.npm") + home.below("home/.cache"), "two") << "it was changed";
}
#endif

} // namespace
} // namespace tidyro

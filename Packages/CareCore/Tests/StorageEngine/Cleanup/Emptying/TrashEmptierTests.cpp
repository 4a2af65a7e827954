#include "StorageEngine/Cleanup/Emptying/TrashEmptier.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <stop_token>
#include <string>
#include <vector>

#include <fcntl.h>
#include <stdio.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Base/PathText.h"
#include "Platform/Files/DurableFile.h"
#include "Platform/Machine/RandomUUID.h"
#include "Platform/Testing/FakeVolumes.h"
#include "Platform/Testing/ScheduledChangeGate.h"
#include "StorageEngine/Cleanup/Settling/CleanupSettlement.h"
#include "StorageEngine/Recovery/FileCleanupIntentJournal.h"
#include "StorageEngine/Trash/TrashMover.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

namespace fs = std::filesystem;
using namespace testing;
using platform::testing::FakeVolumes;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::string contents(const std::string& path) {
    return platform::readWholeFile(path, 1U << 24U).value_or("unreadable");
}

bool exists(const std::string& path) { return platform::fileMetadata(path).has_value(); }

/// A place with a Trash, and everything that empties it, disturbed by a schedule.
struct EmptyingBench {
    std::unique_ptr<TemporaryFolder> owned = std::make_unique<TemporaryFolder>();
    const TemporaryFolder& place;
    std::string trash = place / "data/Trash";
    FakeVolumes volumes = FakeVolumes::withOneAt(place.path());
    ChangeSchedule schedule;
    ScheduledFolderChanges changes{schedule};
    ScheduledChangeGate gate{schedule};
    InMemoryRecoveryLedger ledger;
    CleanupIntent intent{};
    CleanupReceipt receipt{};
    std::map<LocalItemID, KeptCopy> keptCopies = {};
    TrashEmptyingPlan plan{};

    explicit EmptyingBench(ChangeSchedule::Plan disturbance = {},
                           const TemporaryFolder* at = nullptr)
        : place(at != nullptr ? *at : *owned), schedule(std::move(disturbance)) {}

    [[nodiscard]] std::unique_ptr<FileCleanupIntentJournal>
    journal(platform::FolderFlushes* flushes = nullptr, platform::ChangeGate* through = nullptr) {
        FileCleanupIntentJournal::Options options;
        if (flushes != nullptr) options.flushChanges = [flushes] { return flushes->flush(); };
        if (through != nullptr) options.gate = through;
        options.reserveByteCount = 0;
        return std::make_unique<FileCleanupIntentJournal>(FileURL::folder(place / "intents"),
                                                          options);
    }
    [[nodiscard]] FileFingerprint fingerprint(const std::string& path) const {
        const auto seen = platform::fileMetadata(path);
        return {.byteCount = seen->byteCount,
                .modificationDate = seen->modified,
                .volumeIdentifier = "inside",
                .fileResourceIdentifier = std::to_string(seen->identity.device) + ":" +
                                          std::to_string(seen->identity.inode)};
    }
    /// A cleanup that moves these to the Trash, journaled and with its receipt.
    void put(const std::vector<std::string>& names) {
        const Timestamp began = Timestamp::now();
        intent = {.id = platform::randomUUID(),
                  .planID = platform::randomUUID(),
                  .createdAt = began,
                  .mode = CleanupExecutionMode::recoverable,
                  .entries = {}};
        receipt = {.id = platform::randomUUID(),
                   .planID = intent.planID,
                   .entries = {},
                   .createdAt = began,
                   .retainUntil = began.adding(1e6)};
        for (const std::string& name : names) {
            intent.entries.push_back({.candidateID = {name},
                                      .sourceURL = FileURL::file(place / name),
                                      .fingerprint = fingerprint(place / name)});
        }
        const auto log = journal();
        ASSERT_TRUE(log->begin(intent));
        SystemTrashMover mover({.home = FileURL::folder(trash)});
        for (CleanupIntentEntry& entry : intent.entries) {
            const auto moved = mover.moveToTrash(entry.sourceURL);
            ASSERT_TRUE(moved) << moved.error().description();
            entry.outcome = {intent_outcome::MovedToTrash{*moved}};
            ASSERT_TRUE(log->recordOutcome(*entry.outcome, entry.candidateID, intent.id));
            receipt.entries.push_back({.candidateID = entry.candidateID,
                                       .originalURL = entry.sourceURL,
                                       .resultingTrashURL = *moved,
                                       .byteCount = 10,
                                       .disposition = CleanupMoveDisposition::movedToTrash});
        }
        ASSERT_TRUE(log->close(intent.id, Timestamp::now()));
        const TrashEmptyingPlan::Source source{
            .receipt = receipt, .intent = intent, .keptCopies = &keptCopies};
        plan = TrashEmptyingPlan::make(std::vector{source}, Timestamp::now());
    }
    [[nodiscard]] PermanentCleanupAcknowledgement acknowledgement() const {
        return {.planID = plan.id,
                .itemCount = static_cast<std::int64_t>(plan.entries.size()),
                .byteCount = plan.byteCount(),
                .acknowledgedAt = plan.createdAt};
    }
    [[nodiscard]] std::expected<CleanupReceipt, CleanupExecutionError>
    empty(std::optional<PermanentCleanupAcknowledgement> told, CancelToken cancel = {}) {
        platform::FolderFlushes flushes(changes);
        const auto log = journal(&flushes, &gate);
        TrashEmptier emptier({.volumes = volumes,
                              .changes = changes,
                              .flushes = flushes,
                              .journal = *log,
                              .ledger = ledger});
        return emptier.empty(
            {.plan = plan, .acknowledgement = told, .at = Timestamp::now(), .cancel = cancel});
    }
    /// One line an item: what became of it, and why it stays.
    [[nodiscard]] std::map<std::string, std::string> emptied() {
        const auto made = empty(acknowledgement());
        std::map<std::string, std::string> told;
        if (!made) return {{"", made.error().description()}};
        EXPECT_EQ(ledger.storedReceipts().back(), *made);
        for (const CleanupReceiptEntry& entry : made->entries) {
            std::string& what = told[std::string(entry.originalURL.lastComponent())];
            what = rawValue(entry.disposition);
            if (entry.failureDescription) what += " " + *entry.failureDescription;
        }
        freedBytes = made->actuallyReclaimedByteCount.value_or(0);
        return told;
    }
    std::uint64_t freedBytes = 0;

    /// The outcomes of all entries that a fresh look at the journal's files tells.
    [[nodiscard]] std::map<std::string, std::string> outcomes() const {
        std::map<std::string, std::string> told;
        for (const auto& file : fs::directory_iterator(place / "intents")) {
            if (file.path().extension() != ".json") continue;
            fs::path log = file.path();
            const auto read = readIntent(contents(file.path().string()),
                                         contents(log.replace_extension(".outcomes").string()));
            if (!read) continue;
            for (const CleanupIntentEntry& entry : read->intent.entries) {
                if (!entry.outcome) continue;
                told[entry.candidateID.rawValue] =
                    std::visit([]<class Case>(const Case&) { return std::string(Case::caseName); },
                               entry.outcome->value);
            }
        }
        return told;
    }
    [[nodiscard]] std::string inTrash(const std::string& name) const {
        return trash + "/files/" + name;
    }
    [[nodiscard]] bool hasNote(const std::string& name) const {
        return exists(trash + "/info/" + name + ".trashinfo");
    }
    /// The paths of all files below the place by what is in them.
    [[nodiscard]] std::multimap<std::string, std::string> byContents() const {
        std::multimap<std::string, std::string> found;
        for (const auto& file : fs::recursive_directory_iterator(place.path())) {
            const std::string path = file.path().string();
            if (file.is_regular_file() && !path.starts_with(place / "intents")) {
                found.emplace(contents(path), path);
            }
        }
        return found;
    }
    [[nodiscard]] std::vector<std::string> privateFolders() const {
        std::vector<std::string> found;
        for (const auto& file : fs::directory_iterator(trash)) {
            if (platform::PrivateFolder::isInOne(file.path().string())) {
                found.push_back(file.path().string());
            }
        }
        return found;
    }
};

void makeFolder(const TemporaryFolder& place, const std::string& name) {
    place.file(name + "/one", name + " one");
    place.file(name + "/deep/er/two", name + " two");
    place.folder(name + "/deep/empty");
    place.link(name + "/out", "../outside");
    place.pipe(name + "/deep/pipe");
    place.file(name + "/\xFF\n", name + " odd");
}

TEST(TrashEmptier, RemovesWhatReceiptsPutThereAndNothingElse) {
    EmptyingBench bench;
    const TemporaryFolder& place = bench.place;
    place.file("outside/precious", "precious");
    place.file("named twice", "named twice");
    place.hardLink("outside/other name", "named twice");
    for (const char* name : {"plain", "edited", "replaced", "gone", "back"}) place.file(name, name);
    for (const char* name : {"folder", "added to", "edited deep"}) makeFolder(place, name);
    place.link("folder/link", "../outside");
    place.hardLink("folder/precious", "outside/precious");
    place.hardLink("folder/precious too", "outside/precious");
    bench.put({"plain", "edited", "replaced", "gone", "back", "folder", "added to", "edited deep",
               "named twice"});
    place.file("data/Trash/files/theirs", "theirs");
    place.file("data/Trash/info/theirs.trashinfo", "note");
    place.file("data/Trash/files/edited", "EDITED");
    fs::remove(bench.inTrash("replaced"));
    place.file("data/Trash/files/replaced", "replaced");
    fs::rename(bench.inTrash("back"), place / "back");
    fs::remove(bench.inTrash("gone"));
    place.file("data/Trash/files/added to/deep/new", "new");
    place.file("data/Trash/files/edited deep/deep/er/two", "two!");

    const std::string anotherItem =
        "refused What lies in the Trash under this name is not what Tidyro moved there, or was "
        "changed since, so it was left alone.";
    const std::string changedInside = "refused Something in this folder changed after it went to "
                                      "the Trash, so it was left alone.";
    EXPECT_EQ(bench.emptied(), (std::map<std::string, std::string>{
                                   {"plain", "permanentlyRemoved"},
                                   {"folder", "permanentlyRemoved"},
                                   {"named twice", "permanentlyRemoved"},
                                   {"edited", anotherItem},
                                   {"replaced", anotherItem},
                                   {"gone", "refused This is not in the Trash any more."},
                                   {"back", "refused This is not in the Trash any more."},
                                   {"added to", changedInside},
                                   {"edited deep", changedInside}}));
    std::set<std::string> left;
    for (const auto& file : fs::directory_iterator(bench.trash + "/files")) {
        left.insert(file.path().filename().string());
    }
    EXPECT_EQ(left,
              (std::set<std::string>{"edited", "replaced", "added to", "edited deep", "theirs"}));
    for (const char* name : {"edited", "replaced", "added to", "edited deep", "theirs"}) {
        EXPECT_TRUE(bench.hasNote(name)) << name;
    }
    for (const char* name : {"plain", "folder", "named twice"}) EXPECT_FALSE(bench.hasNote(name));
    EXPECT_THAT(bench.privateFolders(), IsEmpty());
    EXPECT_EQ(contents(place / "outside/precious"), "precious");
    EXPECT_EQ(contents(place / "outside/other name"), "named twice");
    EXPECT_EQ(contents(place / "back"), "back");
    for (const char* name : {"/one", "/deep/new", "/\xFF\n"}) {
        EXPECT_TRUE(exists(bench.inTrash("added to" + std::string(name)))) << name;
    }
    // The cleanup that had moved them knows that they are gone.
    auto outcomes = bench.outcomes();
    EXPECT_EQ(outcomes["plain"], "noLongerInTrash");
    EXPECT_EQ(outcomes["folder"], "noLongerInTrash");
    EXPECT_EQ(outcomes["edited"], "movedToTrash");
    EXPECT_EQ(outcomes[FileURL::file(bench.inTrash("plain")).text()], "permanentlyRemoved");
    EXPECT_EQ(outcomes[FileURL::file(bench.inTrash("edited")).text()], "failed");
    EXPECT_THAT(bench.journal()->openIntents()->intents, IsEmpty());
}

TEST(TrashEmptier, PlansOnlyWhatIsKnownToLieThere) {
    EmptyingBench bench;
    for (const char* name : {"a", "b", "c", "d"}) bench.place.file(name, name);
    bench.put({"a", "b", "c", "d"});
    ASSERT_EQ(bench.plan.entries.size(), 4U);
    EXPECT_EQ(bench.plan.byteCount(), 40U);
    bench.intent.entries[0].outcome = {
        intent_outcome::RestoredFromTrash{bench.intent.entries[0].sourceURL}};
    bench.intent.entries[1].fingerprint.fileResourceIdentifier.reset();
    bench.receipt.entries[2].disposition = CleanupMoveDisposition::failed;
    const TrashEmptyingPlan::Source source{.receipt = bench.receipt, .intent = bench.intent};
    // A later cleanup used the place of "d" again.
    CleanupReceipt later = bench.receipt;
    later.createdAt = later.createdAt.adding(5);
    later.entries.erase(later.entries.begin(), later.entries.begin() + 3);
    later.entries.front().byteCount = 7;
    const TrashEmptyingPlan::Source again{.receipt = later, .intent = bench.intent};
    CleanupReceipt other = later;
    other.planID = UUID();
    const TrashEmptyingPlan::Source ofAnother{.receipt = other, .intent = bench.intent};
    const auto plan = TrashEmptyingPlan::make(std::vector{again, source, ofAnother}, Timestamp());
    ASSERT_EQ(plan.entries.size(), 1U);
    EXPECT_EQ(plan.entries.front().candidateID.rawValue, "d");
    EXPECT_EQ(plan.entries.front().wentAt, later.createdAt);
    EXPECT_EQ(plan.byteCount(), 7U);
}

TEST(TrashEmptier, AsksForTheVeryNumbers) {
    EmptyingBench bench;
    bench.place.file("a", "a");
    bench.put({"a"});
    const auto refusal = [&](auto change) {
        std::optional told(bench.acknowledgement());
        change(told);
        const auto made = bench.empty(told);
        EXPECT_TRUE(exists(bench.inTrash("a")) && bench.hasNote("a"));
        return made ? "emptied" : made.error().description();
    };
    EXPECT_THAT(refusal([](auto& told) { told.reset(); }), HasSubstr("Nothing was touched."));
    EXPECT_THAT(refusal([](auto& told) { told->planID = UUID(); }), HasSubstr("doesn't match"));
    EXPECT_THAT(refusal([](auto& told) { ++told->itemCount; }), HasSubstr("doesn't match"));
    EXPECT_THAT(refusal([](auto& told) { --told->byteCount; }), HasSubstr("doesn't match"));
    EXPECT_THAT(refusal([](auto& told) { told->acknowledgedAt = Timestamp(); }),
                HasSubstr("doesn't match"));
    const TrashEmptyingPlan whole = bench.plan;
    bench.plan.entries.push_back(whole.entries.front());
    EXPECT_THAT(refusal([](auto&) {}), HasSubstr("wasn't usable")) << "an item twice";
    bench.plan.entries.clear();
    EXPECT_THAT(refusal([](auto&) {}), HasSubstr("wasn't usable"));
    EXPECT_EQ(bench.schedule.count(), 0U);

    bench.plan = whole;
    std::stop_source source;
    source.request_stop();
    const auto cancelled = bench.empty(bench.acknowledgement(), source.get_token());
    ASSERT_FALSE(cancelled);
    EXPECT_EQ(cancelled.error().receipt()->entries.front().disposition,
              CleanupMoveDisposition::refused);
    EXPECT_TRUE(exists(bench.inTrash("a")) && bench.hasNote("a"));
    EXPECT_THAT(bench.journal()->openIntents()->intents, IsEmpty());
}

TEST(TrashEmptier, RemovesAnExtraCopyOnlyWhileTheOtherIsThere) {
    EmptyingBench bench;
    const TemporaryFolder& place = bench.place;
    for (const char* name : {"kept", "also kept", "extra", "other extra"}) place.file(name, "same");
    for (const auto& [extra, kept] : {std::pair("extra", "kept"), {"other extra", "also kept"}}) {
        bench.keptCopies[{extra}] = {.url = FileURL::file(place / kept),
                                     .fingerprint = bench.fingerprint(place / kept)};
    }
    bench.put({"extra", "other extra"});
    fs::remove(place / "also kept");
    EXPECT_EQ(bench.emptied(),
              (std::map<std::string, std::string>{
                  {"extra", "permanentlyRemoved"},
                  {"other extra", "refused The copy that was to be kept is no longer there, so "
                                  "this one stays."}}));
    EXPECT_TRUE(exists(bench.inTrash("other extra")) && bench.hasNote("other extra"));
    EXPECT_TRUE(exists(place / "kept"));
}

TEST(TrashEmptier, LeavesWhatWentThereLaterThanNow) {
    EmptyingBench bench;
    bench.place.file("a", "a");
    makeFolder(bench.place, "f");
    bench.put({"a", "f"});
    // The clock stood a day ahead when the folder went; since then something was put into it.
    bench.plan.entries[1].wentAt = Timestamp::now().adding(86'400);
    bench.place.file("data/Trash/files/f/deep/later", "later");
    const auto told = bench.emptied();
    EXPECT_EQ(told.at("a"), "permanentlyRemoved");
    EXPECT_EQ(told.at("f"), "refused By the clock this went to the Trash later than now, so it was "
                            "left alone. Set the clock right and try again.");
    EXPECT_EQ(contents(bench.inTrash("f/deep/later")), "later");
}

TEST(TrashEmptier, TellsTheBytesThatAreReallyFree) {
    for (const std::string type : {"here", "ext4", "btrfs"}) {
        SCOPED_TRACE(type);
        const auto image = type == "here" ? nullptr : MountedImage::make(type);
        if (type != "here" && !image) GTEST_SKIP() << "needs root and mkfs." << type;
        EmptyingBench bench({}, image ? &image->folder() : nullptr);
        const TemporaryFolder& place = bench.place;
        place.noise("plain", 200'000);
        place.noise("folder/in", 100'000, 2);
        place.noise("folder/twice", 400'000, 3);
        place.hardLink("folder/again", "folder/twice");
        place.noise("linked", 800'000, 4);
        place.hardLink("stays", "linked");
        place.hole("hole", 1'000'000'000);
        place.noise("pair", 50'000, 5);
        place.hardLink("pair again", "pair");
        std::vector<std::string> names{"plain", "folder", "linked", "hole", "pair", "pair again"};
        if (type == "btrfs") {
            ASSERT_TRUE(runQuietly("cp --reflink=always '" + place / "stays" + "' '" +
                                   place / "clone" + "'"));
            names.push_back("clone");
        }
        ASSERT_TRUE(runQuietly("sync"));
        bench.put(names);
        for (const auto& [name, what] : bench.emptied()) EXPECT_EQ(what, "permanentlyRemoved");
        EXPECT_NEAR(static_cast<double>(bench.freedBytes), 750'000, 20'000);
    }
}

TEST(TrashEmptier, LeavesFoldersThatHoldWhatItMayNotRemove) {
    const auto told = inMountNamespace([] {
        EmptyingBench bench;
        makeFolder(bench.place, "mounted");
        makeFolder(bench.place, "mounted itself");
        bench.put({"mounted", "mounted itself"});
        if (!runQuietly("mount -t tmpfs none '" + bench.inTrash("mounted/deep/empty") + "'") ||
            !runQuietly("mount -t tmpfs none '" + bench.inTrash("mounted itself") + "'")) {
            return std::string("not mounted");
        }
        bench.place.file("data/Trash/files/mounted/deep/empty/a", "a");
        std::string all;
        for (const auto& [name, what] : bench.emptied()) all += name + ": " + what + "\n";
        all += std::to_string(bench.byContents().count("mounted two"));
        static_cast<void>(runQuietly("umount '" + bench.inTrash("mounted/deep/empty") + "' '" +
                                     bench.inTrash("mounted itself") + "'"));
        return all;
    });
    if (told && *told != "not mounted") {
        EXPECT_EQ(*told, "mounted: refused Something in this folder cannot be removed, so all of "
                         "it was left alone.\n"
                         "mounted itself: refused What lies in the Trash under this name is not "
                         "what Tidyro moved there, or was changed since, so it was left alone.\n1");
    }
    const TemporaryFolder place;
    place.permissions(".", 0777);
    EXPECT_EQ(asOrdinaryUser([&] {
                  EmptyingBench bench;
                  makeFolder(bench.place, "closed");
                  bench.place.permissions("closed/deep/er", 0555);
                  bench.put({"closed"});
                  const std::string what = bench.emptied()["closed"];
                  const bool isWhole = exists(bench.inTrash("closed/deep/er/two")) &&
                                       exists(bench.inTrash("closed/one"));
                  bench.place.permissions("data/Trash/files/closed/deep/er", 0755);
                  return what + (isWhole ? "" : " in part");
              }),
              "refused Something in this folder cannot be removed, so all of it was left alone.");
}

/// What must hold of the items "a" and "f" wherever an emptying stopped.
void expectNothingLost(const EmptyingBench& bench, bool isTold) {
    const auto found = bench.byContents();
    const auto outcomes = bench.outcomes();
    const auto isRecorded = [&](const std::string& name) {
        const std::string path = bench.inTrash(name);
        const auto told =
            outcomes.find((name == "f" ? FileURL::folder(path) : FileURL::file(path)).text());
        return told != outcomes.end() && told->second == "permanentlyRemoved";
    };
    EXPECT_EQ(found.count("theirs"), 1U);
    EXPECT_TRUE(exists(bench.inTrash("theirs")) && bench.hasNote("theirs"));
    EXPECT_EQ(contents(bench.place / "outside/precious"), "precious");
    const auto isWhole = [&](const std::string& folder) {
        return exists(folder + "/one") && exists(folder + "/deep/er/two") &&
               exists(folder + "/out") && exists(folder + "/deep/pipe") &&
               exists(folder + "/deep/empty");
    };
    for (const char* text : {"a", "f one", "f two", "f odd"}) {
        EXPECT_LE(found.count(text), 1U) << text << " is there twice";
        if (found.count(text) == 1) continue;
        EXPECT_TRUE(isRecorded(*text == 'a' ? "a" : "f") ||
                    (isTold && *text == 'f')) // partly, which its receipt tells
            << text << " is nowhere";
    }
    // In the Trash with its note, or in the private folder; nothing is whole anywhere else.
    const auto privates = bench.privateFolders();
    const std::string aside = privates.empty() ? "/nothing" : privates.front();
    for (const std::string name : {"a", "f"}) {
        const bool isThere = exists(bench.inTrash(name)) || exists(aside + "/" + name);
        EXPECT_TRUE(!isThere || bench.hasNote(name)) << name;
    }
    if (!isRecorded("f") && !isTold) {
        EXPECT_TRUE(isWhole(bench.inTrash("f")) || isWhole(aside + "/f"));
    }
}

/// Puts an emptying in order that died.
void expectSettled(EmptyingBench& bench) {
    const auto before = bench.byContents();
    platform::LiveFolderChanges changes;
    platform::FolderFlushes flushes(changes);
    const auto log = bench.journal(&flushes);
    CleanupSettlement settlement({.journal = log.get(),
                                  .ledger = &bench.ledger,
                                  .changes = &changes,
                                  .flushes = &flushes,
                                  .volumes = &bench.volumes,
                                  .trashHome = FileURL::folder(bench.trash)});
    const auto settled = settlement.settle();
    ASSERT_TRUE(settled) << settled.error().description();
    for (const SettledCleanup& cleanup : settled->cleanups) {
        EXPECT_TRUE(cleanup.isAccountedFor && cleanup.isClosed)
            << ::testing::PrintToString(cleanup.troubles);
    }
    EXPECT_THAT(bench.privateFolders(), IsEmpty());
    const auto after = bench.byContents();
    for (const auto& [text, path] : before) EXPECT_EQ(after.count(text), before.count(text));
    if (exists(bench.inTrash("a"))) {
        EXPECT_TRUE(bench.hasNote("a"));
    }
}

TEST(TrashEmptier, LosesNothingWhereverItStops) {
    using Disturbance = ChangeSchedule::Disturbance;
    std::uint64_t count = 0;
    for (std::uint64_t at = 0; at <= count; ++at) {
        for (const auto& [how, code] :
             {std::pair(Disturbance::endBefore, 0), std::pair(Disturbance::endAfter, 0),
              std::pair(Disturbance::failure, EIO), std::pair(Disturbance::failure, ENOSPC),
              std::pair(Disturbance::failure, EINTR)}) {
            SCOPED_TRACE("change " + std::to_string(at) + ", " +
                         std::to_string(static_cast<int>(how)) + ", " + std::to_string(code));
            EmptyingBench bench({.at = at, .how = how, .code = code});
            bench.place.file("a", "a");
            makeFolder(bench.place, "f");
            bench.place.file("outside/precious", "precious");
            bench.put({"a", "f"});
            bench.place.file("data/Trash/files/theirs", "theirs");
            bench.place.file("data/Trash/info/theirs.trashinfo", "note");
            const auto made = bench.empty(bench.acknowledgement());
            if (at == 0) count = bench.schedule.count();
            const CleanupReceipt* told =
                made ? &*made : (bench.schedule.isOver() ? nullptr : made.error().receipt());
            expectNothingLost(bench, told != nullptr);
            if (told == nullptr) {
                expectSettled(bench);
                continue;
            }
            for (const CleanupReceiptEntry& entry : told->entries) {
                const bool isGone = entry.disposition == CleanupMoveDisposition::permanentlyRemoved;
                EXPECT_EQ(exists(entry.originalURL.path()), !isGone)
                    << entry.failureDescription.value_or("");
            }
        }
    }
    EXPECT_GE(count, 30U);
}

/// The live changes, and how many of them no flush has brought to the disk.
class FlushWatch final : public platform::FolderChanges {
  public:
    std::size_t unflushed = 0;
    std::function<void()> beforeRemoval = nullptr;

    Changed renameNeverReplacing(const EntryName& from, const EntryName& to) override {
        ++unflushed;
        return live_.renameNeverReplacing(from, to);
    }
    Changed renameReplacing(const EntryName& from, const EntryName& to) override {
        return live_.renameReplacing(from, to);
    }
    Changed link(const EntryName& existing, const EntryName& added) override {
        return live_.link(existing, added);
    }
    Changed makeEmptyFile(const EntryName& at) override { return live_.makeEmptyFile(at); }
    Changed makeFolder(const EntryName& at, unsigned permissions) override {
        ++unflushed;
        return live_.makeFolder(at, permissions);
    }
    Changed removeFile(const EntryName& at) override {
        ++unflushed;
        beforeRemoval();
        return live_.removeFile(at);
    }
    Changed removeFolder(const EntryName& at) override {
        if (!platform::PrivateFolder::isName(at.name)) ++unflushed;
        return live_.removeFolder(at);
    }
    Changed flush(const FolderDescriptor& folder) override {
        unflushed = 0;
        return live_.flush(folder);
    }
    Changed flushVolume(const FolderDescriptor& folder) override { return flush(folder); }

  private:
    platform::LiveFolderChanges live_;
};

/// Hands all on; `onFlushed` runs once, when records were flushed.
class ForwardedJournal : public CleanupIntentJournaling {
  public:
    explicit ForwardedJournal(CleanupIntentJournaling& journal) : journal_(journal) {}
    std::function<void()> onFlushed = nullptr;

    Result<void> begin(const CleanupIntent& intent) override { return journal_.begin(intent); }
    Result<void> recordOutcome(const CleanupIntentEntry::Outcome& outcome, const LocalItemID& item,
                               const UUID& intentID) override {
        return journal_.recordOutcome(outcome, item, intentID);
    }
    Result<void> flushRecords(const UUID& intentID) override {
        auto flushed = journal_.flushRecords(intentID);
        if (const auto act = std::exchange(onFlushed, nullptr)) act();
        return flushed;
    }
    Result<void> close(const UUID& intentID, Timestamp at) override {
        return journal_.close(intentID, at);
    }
    Result<void> requireReceiptRecovery(const CleanupReceipt& receipt) override {
        return journal_.requireReceiptRecovery(receipt);
    }
    Result<OpenIntents> openIntents() override { return journal_.openIntents(); }
    Result<void> recordRestoreOutcomes(const RestoreOutcomes& outcomes) override {
        return journal_.recordRestoreOutcomes(outcomes);
    }
    Result<void> forget(const UUID& intentID) override { return journal_.forget(intentID); }

  private:
    CleanupIntentJournaling& journal_;
};

/// Lets no record of a removal be taken for flushed that is not.
class JournalWatch final : public ForwardedJournal {
  public:
    JournalWatch(CleanupIntentJournaling& journal, FlushWatch& changes)
        : ForwardedJournal(journal), changes_(changes) {}
    bool isFlushed = true;

    Result<void> recordOutcome(const CleanupIntentEntry::Outcome& outcome, const LocalItemID& item,
                               const UUID& intentID) override {
        isFlushed = false;
        return ForwardedJournal::recordOutcome(outcome, item, intentID);
    }
    Result<void> flushRecords(const UUID& intentID) override {
        auto flushed = ForwardedJournal::flushRecords(intentID);
        EXPECT_EQ(changes_.unflushed, 0U) << "the log tells what the disk does not know";
        isFlushed = true;
        return flushed;
    }
    Result<void> close(const UUID& intentID, Timestamp at) override {
        auto closed = ForwardedJournal::close(intentID, at);
        EXPECT_EQ(changes_.unflushed, 0U);
        return closed;
    }

  private:
    FlushWatch& changes_;
};

TEST(TrashEmptier, RemovesNothingBeforeItIsWrittenForGood) {
    EmptyingBench bench;
    for (const char* name : {"a", "b"}) bench.place.file(name, name);
    makeFolder(bench.place, "f");
    bench.put({"a", "b", "f"});
    FlushWatch changes;
    platform::FolderFlushes flushes(changes);
    const auto log = bench.journal(&flushes);
    JournalWatch journal(*log, changes);
    std::size_t removals = 0;
    changes.beforeRemoval = [&] {
        ++removals;
        EXPECT_TRUE(journal.isFlushed);
    };
    TrashEmptier emptier({.volumes = bench.volumes,
                          .changes = changes,
                          .flushes = flushes,
                          .journal = journal,
                          .ledger = bench.ledger});
    const auto made = emptier.empty(
        {.plan = bench.plan, .acknowledgement = bench.acknowledgement(), .at = Timestamp::now()});
    ASSERT_TRUE(made);
    EXPECT_EQ(made->permanentlyRemovedByteCount(), bench.plan.byteCount());
    EXPECT_EQ(removals, 10U) << "with the notes";
}

/// Cannot write down that something failed.
class FullJournal final : public ForwardedJournal {
  public:
    using ForwardedJournal::ForwardedJournal;
    Result<void> recordOutcome(const CleanupIntentEntry::Outcome& outcome, const LocalItemID& item,
                               const UUID& intentID) override {
        if (std::holds_alternative<intent_outcome::Failed>(outcome.value)) {
            return std::unexpected(Error{Error::CouldNotWrite{"full"}});
        }
        return ForwardedJournal::recordOutcome(outcome, item, intentID);
    }
};

TEST(TrashEmptier, RemovesNothingMoreOnceTheJournalFailed) {
    EmptyingBench bench;
    for (const char* name : {"a", "b", "c"}) bench.place.file(name, name);
    bench.put({"a", "b", "c"});
    platform::FolderFlushes flushes(bench.changes);
    const auto log = bench.journal(&flushes);
    FullJournal journal(*log);
    // All are set aside and recorded; then the second one is touched, so that it has to go back.
    journal.onFlushed = [&] {
        const auto found = bench.privateFolders();
        ASSERT_EQ(found.size(), 1U);
        fs::permissions(found[0] + "/b", fs::perms::owner_read);
    };
    TrashEmptier emptier({.volumes = bench.volumes,
                          .changes = bench.changes,
                          .flushes = flushes,
                          .journal = journal,
                          .ledger = bench.ledger});
    const auto made = emptier.empty(
        {.plan = bench.plan, .acknowledgement = bench.acknowledgement(), .at = Timestamp::now()});
    ASSERT_FALSE(made);
    EXPECT_TRUE(std::holds_alternative<CleanupExecutionError::JournalStopped>(made.error().value));
    EXPECT_FALSE(exists(bench.inTrash("a")));
    for (const char* name : {"b", "c"}) EXPECT_EQ(contents(bench.inTrash(name)), name);
}

TEST(TrashEmptier, RemovesNoStrangerThatTakesAnItemsPlace) {
    // Before or after each rename another process saves files anew: beside themselves, and renamed
    // over what is there. It works by the paths in the Trash, and in a folder that it has open.
    enum class Moment : std::uint8_t { before, after };
    std::uint64_t count = 0;
    std::size_t plantedCount = 0;
    const auto emptyWhileSaving = [&](Moment moment, std::uint64_t at) {
        SCOPED_TRACE("rename " + std::to_string(at));
        EmptyingBench bench;
        bench.place.file("a", "a");
        makeFolder(bench.place, "f");
        bench.put({"a", "f"});
        const auto inside = platform::FolderDescriptor::openRoot(bench.inTrash("f/deep/er"));
        ASSERT_TRUE(inside);
        std::set<std::string> planted;
        const auto save = [&](const std::string& path, int folder = AT_FDCWD) {
            const std::string text = "stranger " + std::to_string(planted.size());
            bench.place.file(text, text);
            if (::renameat(AT_FDCWD, (bench.place / text).c_str(), folder, path.c_str()) == 0) {
                planted.insert(text);
            } else {
                fs::remove(bench.place / text);
            }
        };
        std::uint64_t seen = 0;
        (moment == Moment::before ? bench.changes.beforeRename : bench.changes.afterRename) = [&] {
            if (++seen != at) return;
            save(bench.inTrash("a"));
            save(bench.inTrash("f/one"));
            save(bench.inTrash("f/deep/new"));
            save("two", inside->fd());
            save("three", inside->fd());
        };
        const auto made = bench.empty(bench.acknowledgement());
        EXPECT_TRUE(made);
        if (at == 0) count = seen;
        const auto found = bench.byContents();
        for (const std::string& text : planted) EXPECT_EQ(found.count(text), 1U) << text;
        plantedCount += planted.size();
        // What stays because of them is told.
        const bool isAllGone = std::ranges::all_of(made->entries, [](const auto& entry) {
            return entry.disposition == CleanupMoveDisposition::permanentlyRemoved;
        });
        EXPECT_TRUE(!isAllGone || !exists(bench.inTrash("f")));
    };
    for (const Moment moment : {Moment::before, Moment::after}) {
        for (std::uint64_t at = 0; at <= count; ++at) emptyWhileSaving(moment, at);
    }
    EXPECT_GE(count, 9U);
    EXPECT_GE(plantedCount, count * 4);
}

} // namespace
} // namespace tidyro

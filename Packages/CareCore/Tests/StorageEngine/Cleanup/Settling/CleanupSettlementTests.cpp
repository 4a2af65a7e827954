#include "StorageEngine/Cleanup/Settling/CleanupSettlement.h"

#include <cerrno>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Base/PathText.h"
#include "Platform/Files/DurableFile.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/Trash.h"
#include "Platform/Folders/TrashNote.h"
#include "Platform/Machine/RandomUUID.h"
#include "Platform/Testing/FakeVolumes.h"
#include "Platform/Testing/ScheduledChangeGate.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {
namespace {

namespace fs = std::filesystem;
using namespace testing;
using platform::EntryName;
using platform::FolderDescriptor;
using platform::PrivateFolder;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Disturbance = ChangeSchedule::Disturbance;
using Found = SettledCleanup::Found;
using ExclusiveRename = ScheduledFolderChanges::ExclusiveRename;

std::string contents(const std::string& path) {
    return platform::readWholeFile(path, 1U << 20U).value_or("unreadable");
}
bool exists(const std::string& path) { return platform::fileMetadata(path).has_value(); }

FileFingerprint fingerprintOf(const std::string& path) {
    const auto seen = platform::fileMetadata(path);
    // The numbers of the device are those of another start of the machine.
    return {.byteCount = seen->byteCount,
            .modificationDate = seen->modified,
            .volumeIdentifier = "inside@7",
            .fileResourceIdentifier = "4711:" + std::to_string(seen->identity.inode)};
}

/// What runs in one process: it changes the disk by a schedule.
struct Process {
    ChangeSchedule schedule;
    ScheduledFolderChanges changes;
    ScheduledChangeGate gate;
    platform::FolderFlushes flushes{changes};
    FileCleanupIntentJournal journal;

    Process(const FileURL& intents, ChangeSchedule::Plan plan, ExclusiveRename rename)
        : schedule(std::move(plan)),
          changes(schedule, rename, Flushes::counted),
          gate(schedule, Flushes::counted),
          journal(intents, {.flushChanges = [this] { return flushes.flush(); },
                            .reserveByteCount = 0,
                            .gate = &gate,
                            .steadySeconds = nullptr}) {}
};

/// A place with a Trash, a journal and an intent.
struct SettlingPlace {
    TemporaryFolder place;
    std::string home = place / "Trash";
    FileURL intents = FileURL::folder(place / "intents");
    platform::testing::FakeVolumes volumes =
        platform::testing::FakeVolumes::withOneAt(place.path());
    InMemoryRecoveryLedger ledger;
    ExclusiveRename rename = ExclusiveRename::known;
    CleanupIntent intent{.id = platform::randomUUID(),
                         .planID = platform::randomUUID(),
                         .createdAt = Timestamp::now(),
                         .mode = CleanupExecutionMode::recoverable,
                         .entries = {}};
    std::uint64_t changesToBegin = 0;
    std::map<std::string, std::string> written = {}; ///< contents by the name of the entry

    void add(const std::string& path) {
        const std::string name(path::lastComponent(path));
        if (!exists(place / path)) place.file(path, "contents of " + name);
        written[name] = contents(place / path);
        intent.entries.push_back({.candidateID = {name},
                                  .sourceURL = FileURL::file(place / path),
                                  .fingerprint = fingerprintOf(place / path)});
    }
    [[nodiscard]] std::string privateIn(const std::string& folder) const {
        return place / (folder + "/" + PrivateFolder::nameFor(intent.id));
    }
    void putIntoTrash(const std::string& name, const std::string& original) const {
        place.file("Trash/files/" + name, "contents of " + name);
        place.file("Trash/info/" + name + ".trashinfo",
                   platform::trashNote(original, {}, Timestamp::now()));
    }
    /// A cleanup that was cut short before it did anything.
    void begin() const {
        FileCleanupIntentJournal journal(intents, {.reserveByteCount = 0});
        ASSERT_TRUE(journal.begin(intent));
    }

    CleanupSettlement settlement(Process& process) {
        return CleanupSettlement({.journal = &process.journal,
                                  .ledger = &ledger,
                                  .changes = &process.changes,
                                  .flushes = &process.flushes,
                                  .gate = &process.gate,
                                  .volumes = &volumes,
                                  .trashHome = FileURL::folder(home)});
    }
    /// Settles, disturbed or not; the number of changes that it made.
    std::uint64_t settle(ChangeSchedule::Plan plan = {}) {
        Process process(intents, std::move(plan), rename);
        static_cast<void>(settlement(process).settle());
        return process.schedule.count();
    }
    /// What the one open intent holds, told and then settled.
    SettledCleanup settled() {
        Process process(intents, {}, rename);
        auto told = settlement(process).tell();
        EXPECT_EQ(process.schedule.count(), 0U) << "telling changed something";
        auto done = settlement(process).settle();
        if (!told || !done || told->cleanups.size() != 1 || done->cleanups.size() != 1) {
            ADD_FAILURE() << "not one cleanup: " << (done ? "" : done.error().description());
            return {};
        }
        const auto answers = [](const SettledCleanup& cleanup) {
            std::vector<std::pair<std::string, Found>> all;
            for (const auto& each : cleanup.items) {
                all.emplace_back(each.originalURL.path(), each.found);
            }
            for (const auto& each : cleanup.strangers) {
                all.emplace_back(each.originalURL.path(), each.found);
            }
            return all;
        };
        EXPECT_EQ(answers(told->cleanups[0]), answers(done->cleanups[0]));
        EXPECT_EQ(told->cleanups[0].isAccountedFor, done->cleanups[0].isAccountedFor);
        return std::move(done->cleanups[0]);
    }
};

std::vector<Found> foundOf(const SettledCleanup& cleanup) {
    std::vector<Found> all;
    for (const auto& item : cleanup.items) all.push_back(item.found);
    return all;
}

/// Carries out the intent of a place as a cleanup does, and stops at the first failure. It never
/// closes.
void carryOut(SettlingPlace& at, Process& process) {
    if (!process.journal.begin(at.intent)) return;
    at.changesToBegin = process.schedule.count();
    const auto record = [&](const CleanupIntentEntry& entry, CleanupIntentEntry::Outcome outcome) {
        return process.journal.recordOutcome(outcome, entry.candidateID, at.intent.id).has_value();
    };
    platform::Trash trash({.volumes = &at.volumes,
                           .changes = &process.changes,
                           .gate = &process.gate,
                           .flushes = &process.flushes,
                           .home = FileURL::folder(at.home)});
    const std::string folderPath(path::parent(at.intent.entries[0].sourceURL.path()));
    const auto folder = FolderDescriptor::openRoot(folderPath);
    if (at.intent.mode == CleanupExecutionMode::recoverable) {
        for (const CleanupIntentEntry& entry : at.intent.entries) {
            const std::string& path = entry.sourceURL.path();
            auto slot = trash.reserve({.folder = *folder,
                                       .name = std::string(path::lastComponent(path)),
                                       .path = path,
                                       .seen = *platform::fileMetadata(path)});
            if (!slot || !slot->move()) return;
            if (!record(entry, {intent_outcome::MovedToTrash{slot->url()}})) return;
        }
        return;
    }
    const bool isInTrash = path::lastComponent(folderPath) == "files";
    const auto base =
        FolderDescriptor::openRoot(isInTrash ? std::string(path::parent(folderPath)) : folderPath);
    const std::string mineName = PrivateFolder::nameFor(at.intent.id);
    const auto mine = PrivateFolder::make(process.changes, *base, mineName);
    if (!mine) return;
    const auto names = [&](const CleanupIntentEntry& entry) {
        return std::string(entry.sourceURL.lastComponent());
    };
    for (const CleanupIntentEntry& entry : at.intent.entries) {
        const std::string name = names(entry);
        if (!platform::moveNeverReplacing(process.changes, {.folder = *folder, .name = name},
                                          {.folder = mine->folder(), .name = name})) {
            return;
        }
    }
    for (const CleanupIntentEntry& entry : at.intent.entries) {
        if (!record(entry, {intent_outcome::PermanentlyRemoved{}})) return;
    }
    if (!process.journal.flushRecords(at.intent.id)) return;
    for (const CleanupIntentEntry& entry : at.intent.entries) {
        const std::string name = names(entry);
        if (!process.changes.removeFile({.folder = mine->folder(), .name = name})) return;
        const auto trashed = platform::TrashedItem::open(entry.sourceURL);
        if (isInTrash && !trashed->forget(process.changes)) return;
    }
    static_cast<void>(process.changes.removeFolder({.folder = *base, .name = mineName}));
}

/// Each item is at its place, in the Trash with its note, or recorded as removed: one of these, and
/// with its contents.
void expectAllAccountedFor(SettlingPlace& at) {
    Process process(at.intents, {}, at.rename);
    const auto open = process.journal.openIntents();
    ASSERT_TRUE(open);
    EXPECT_THAT(open->unreadable, IsEmpty());
    for (const RecordedIntent& each : open->intents)
        ADD_FAILURE() << "open: " << each.intent.id.text();
    const auto all = process.journal.allIntents();
    ASSERT_TRUE(all);
    if (all->intents.empty()) { // it never began
        for (const CleanupIntentEntry& entry : at.intent.entries) {
            EXPECT_EQ(contents(entry.sourceURL.path()), at.written[entry.candidateID.rawValue]);
        }
        return;
    }
    const auto receipts = at.ledger.storedReceipts();
    ASSERT_THAT(receipts, SizeIs(1));
    ASSERT_EQ(receipts[0].entries.size(), at.intent.entries.size());
    std::size_t trashed = 0;
    for (const CleanupReceiptEntry& entry : receipts[0].entries) {
        SCOPED_TRACE(entry.candidateID.rawValue);
        const std::string& text = at.written[entry.candidateID.rawValue];
        const std::string& path = entry.originalURL.path();
        switch (entry.disposition) {
        case CleanupMoveDisposition::failed: EXPECT_EQ(contents(path), text); break;
        case CleanupMoveDisposition::permanentlyRemoved: EXPECT_FALSE(exists(path)); break;
        case CleanupMoveDisposition::movedToTrash: {
            ++trashed;
            EXPECT_FALSE(exists(path));
            EXPECT_EQ(contents(entry.resultingTrashURL->path()), text);
            const std::string name(entry.resultingTrashURL->lastComponent());
            const auto note =
                platform::readTrashNote(contents(at.home + "/info/" + name + ".trashinfo"), {});
            EXPECT_TRUE(note && note->path == path);
            break;
        }
        default: ADD_FAILURE() << "neither";
        }
        EXPECT_FALSE(exists(at.privateIn(
            fs::path(path).parent_path().lexically_relative(at.place.path()).string())));
    }
    if (at.intent.mode == CleanupExecutionMode::recoverable && exists(at.home + "/files")) {
        const auto entries = fs::directory_iterator(at.home + "/files");
        EXPECT_EQ(static_cast<std::size_t>(std::distance(begin(entries), end(entries))), trashed)
            << "something is twice";
    }
    EXPECT_FALSE(exists(at.privateIn("Trash")));
}

enum class Kind : std::uint8_t { recoverable, permanent, emptying };

std::unique_ptr<SettlingPlace> prepared(Kind kind, ExclusiveRename rename) {
    auto at = std::make_unique<SettlingPlace>();
    at->rename = rename;
    for (const std::string name : {"a", "b"}) {
        if (kind == Kind::emptying) {
            at->putIntoTrash(name, at->place / name);
            at->add("Trash/files/" + name);
        } else {
            at->add("folder/" + name);
        }
    }
    if (kind != Kind::recoverable) at->intent.mode = CleanupExecutionMode::permanent;
    at->intent.createdAt = Timestamp::now();
    return at;
}

class CleanupSettlementCrashes : public ::testing::TestWithParam<std::pair<Kind, ExclusiveRename>> {
};

/// Ends a cleanup at each of its changes, then the settling at each of its own, and settles again.
TEST_P(CleanupSettlementCrashes, LoseNothingWhereverTheyStrike) {
    const auto [kind, rename] = GetParam();
    struct Way {
        Disturbance how;
        int code;
    };
    const std::vector<Way> deaths{{Disturbance::endBefore, 0}, {Disturbance::endAfter, 0}};
    const std::vector<Way> all{{Disturbance::endBefore, 0},
                               {Disturbance::endAfter, 0},
                               {Disturbance::failure, EIO},
                               {Disturbance::failure, ENOSPC},
                               {Disturbance::failure, EINTR}};
    // A failure in the cleanup leaves what a death before the change does, or less.
    const auto interrupted = [&](std::uint64_t k, const Way& way) {
        auto at = prepared(kind, rename);
        Process process(at->intents, {.at = k, .how = way.how, .code = way.code}, rename);
        carryOut(*at, process);
        return std::pair(std::move(at), process.schedule.count());
    };
    const auto [whole, count] = interrupted(0, deaths[0]);
    ASSERT_GE(count, 15U);
    std::uint64_t settlingCount = 0;
    for (std::uint64_t k = 1; k <= count; ++k) {
        for (const Way& death : deaths) {
            // What precedes a change is what followed the one before.
            if (death.how == Disturbance::endBefore && k > 1) continue;
            std::uint64_t changes = 0;
            for (std::uint64_t j = 0; j <= changes; ++j) {
                for (const Way& way : all) {
                    SCOPED_TRACE(::testing::Message()
                                 << "cleanup ends at " << k << ", settling at " << j << " by "
                                 << int(way.how) << " " << way.code);
                    const auto at = interrupted(k, death).first;
                    const std::uint64_t made =
                        at->settle({.at = j, .how = way.how, .code = way.code});
                    // Before it had begun there is one state, however it came about.
                    if (j == 0 && k >= whole->changesToBegin) changes = made;
                    at->settle();
                    expectAllAccountedFor(*at);
                    if (::testing::Test::HasFailure()) return;
                    if (j == 0) break;
                }
            }
            settlingCount = std::max(settlingCount, changes);
        }
    }
    EXPECT_GE(settlingCount, 5U);
}

INSTANTIATE_TEST_SUITE_P(Every, CleanupSettlementCrashes,
                         ::testing::Values(std::pair(Kind::recoverable, ExclusiveRename::known),
                                           std::pair(Kind::permanent, ExclusiveRename::known),
                                           std::pair(Kind::permanent, ExclusiveRename::unknown),
                                           std::pair(Kind::emptying, ExclusiveRename::known)));

TEST(CleanupSettlement, PutsBackWhatLiesInAPrivateFolder) {
    SettlingPlace at;
    at.add("folder/a");
    at.add("folder/taken");
    at.intent.mode = CleanupExecutionMode::permanent;
    at.begin();
    const std::string mine = at.privateIn("folder");
    fs::create_directory(mine);
    fs::permissions(mine, fs::perms::owner_all);
    for (const char* name : {"a", "taken"})
        fs::rename(at.place / (std::string("folder/") + name), mine + "/" + name);
    at.place.file("folder/taken", "somebody else's");
    at.place.file("stranger", "no entry's");
    fs::rename(at.place / "stranger", mine + "/stranger");
    at.place.file("placeholder");
    at.place.permissions("placeholder", 0);
    fs::rename(at.place / "placeholder", mine + "/placeholder");
    const SettledCleanup told = at.settled();
    EXPECT_THAT(foundOf(told), ElementsAre(Found::putBack, Found::inTrash));
    ASSERT_THAT(told.strangers, SizeIs(1));
    EXPECT_EQ(told.strangers[0].found, Found::putBack);
    EXPECT_EQ(contents(at.place / "folder/stranger"), "no entry's");
    EXPECT_EQ(contents(at.place / "folder/a"), "contents of a");
    EXPECT_EQ(contents(at.place / "folder/taken"), "somebody else's");
    EXPECT_EQ(contents(told.items[1].url->path()), "contents of taken");
    EXPECT_THAT(contents(at.home + "/info/taken.trashinfo"), HasSubstr("/folder/taken\n"));
    EXPECT_FALSE(exists(mine));
    EXPECT_FALSE(exists(at.place / "folder/placeholder"));
    EXPECT_TRUE(told.isClosed);
    EXPECT_THAT(at.ledger.storedReceipts(), SizeIs(1));
}

TEST(CleanupSettlement, LeavesAndTellsWhatCannotGoAnywhere) {
    SettlingPlace at;
    at.putIntoTrash("a", at.place / "a");
    at.add("Trash/files/a");
    at.intent.mode = CleanupExecutionMode::permanent;
    at.begin();
    const std::string mine = at.privateIn("Trash");
    fs::create_directory(mine);
    fs::permissions(mine, fs::perms::owner_all);
    fs::rename(at.home + "/files/a", mine + "/a");
    at.place.file("Trash/files/a", "went there since");
    for (int run = 0; run < 2; ++run) {
        const SettledCleanup told = at.settled();
        EXPECT_THAT(foundOf(told), ElementsAre(Found::stays));
        EXPECT_FALSE(told.isAccountedFor || told.isClosed);
        EXPECT_EQ(contents(mine + "/a"), "contents of a");
    }
    fs::remove(at.home + "/files/a");
    EXPECT_TRUE(at.settled().isClosed);
    EXPECT_EQ(contents(at.home + "/files/a"), "contents of a");

    // A folder of others, or a link, under the name is none of ours.
    SettlingPlace other;
    other.add("folder/a");
    other.intent.mode = CleanupExecutionMode::permanent;
    other.begin();
    other.place.file("elsewhere/b");
    other.place.link("folder/" + PrivateFolder::nameFor(other.intent.id), "../elsewhere");
    const SettledCleanup told = other.settled();
    EXPECT_THAT(told.troubles, SizeIs(1));
    EXPECT_FALSE(told.isAccountedFor);
    EXPECT_TRUE(exists(other.place / "elsewhere/b"));
}

TEST(CleanupSettlement, FindsItemsInTheTrashByWhatTheyAre) {
    SettlingPlace at;
    for (const char* name : {"noted", "unnoted", "torn", "twice", "linked", "folder"}) {
        if (std::string_view(name) == "folder") at.place.file("place/folder/inside");
        at.add(std::string("place/") + name);
    }
    at.begin();
    at.place.folder("Trash/files");
    at.place.folder("Trash/info");
    const auto note = [&](const std::string& name, const std::string& original) {
        at.place.file("Trash/info/" + name + ".trashinfo",
                      platform::trashNote(at.place / original, {}, Timestamp::now()));
    };
    const auto move = [&](const std::string& name, const std::string& to) {
        fs::rename(at.place / ("place/" + name), at.home + "/files/" + to);
    };
    note("noted.2", "place/noted");
    move("noted", "noted.2");
    move("unnoted", "unnoted");
    at.place.file("Trash/info/torn.trashinfo");
    move("torn", "torn");
    note("twice", "place/twice");
    at.place.hardLink("Trash/files/twice", "place/twice");
    // A second name of the person's own, which went to the Trash by itself.
    note("own name", "place/own name");
    at.place.hardLink("Trash/files/own name", "place/linked");
    note("folder", "place/folder");
    move("folder", "folder");
    // Another file has the name, and the place of an item that was never moved.
    at.putIntoTrash("linked", at.place / "place/linked");
    const SettledCleanup told = at.settled();
    EXPECT_THAT(foundOf(told), ElementsAre(Found::inTrash, Found::inTrash, Found::inTrash,
                                           Found::atPlace, Found::atPlace, Found::inTrash));
    EXPECT_EQ(told.items[0].url->path(), at.home + "/files/noted.2");
    for (const char* name : {"unnoted", "torn"}) {
        EXPECT_THAT(contents(at.home + "/info/" + name + ".trashinfo"),
                    HasSubstr("place/" + std::string(name) + "\nDeletionDate=2"));
    }
    EXPECT_FALSE(exists(at.home + "/files/twice"));
    EXPECT_FALSE(exists(at.home + "/info/twice.trashinfo"));
    EXPECT_EQ(contents(at.place / "place/twice"), "contents of twice");
    EXPECT_TRUE(exists(at.home + "/files/own name"));
    EXPECT_TRUE(exists(at.home + "/files/linked"));
    EXPECT_TRUE(told.isClosed);
}

TEST(CleanupSettlement, TakesAnotherNameInTheTrashForAnotherItem) {
    SettlingPlace at;
    at.add("folder/a");
    at.begin();
    at.putIntoTrash("b", at.place / "folder/b");
    fs::remove(at.home + "/files/b");
    at.place.hardLink("Trash/files/b", "folder/a");
    fs::remove(at.place / "folder/a");
    EXPECT_THAT(foundOf(at.settled()), ElementsAre(Found::unaccounted));
    EXPECT_THAT(contents(at.home + "/info/b.trashinfo"), HasSubstr("/folder/b\n"));
    EXPECT_TRUE(exists(at.home + "/files/b"));
}

TEST(CleanupSettlement, AccountsForNothingThatItDidNotFind) {
    const auto settledAfter = [](CleanupExecutionMode mode, auto prepare) {
        SettlingPlace at;
        for (int i = 0; i < 3; ++i) at.add("folder/" + std::to_string(i));
        at.intent.mode = mode;
        at.begin();
        fs::remove(at.place / "folder/0");
        prepare(at);
        const SettledCleanup told = at.settled();
        EXPECT_EQ(told.isClosed, told.items[0].found != Found::unaccounted);
        return told.items[0];
    };
    using enum CleanupExecutionMode;
    const auto nothing = [](SettlingPlace&) {};
    EXPECT_EQ(settledAfter(simulation, nothing).found, Found::goneBefore);
    for (const auto mode : {recoverable, permanent}) {
        EXPECT_EQ(settledAfter(mode, nothing).reason,
                  "It is neither at its place nor in the Trash.");
        EXPECT_EQ(
            settledAfter(mode, [](SettlingPlace& at) { at.place.file("folder/0", "new"); }).reason,
            "It is neither at its place nor in the Trash.")
            << "a younger item, even with the same number";
        EXPECT_EQ(
            settledAfter(mode,
                         [](SettlingPlace& at) { at.volumes.answer->front().identifier = "other"; })
                .reason,
            "The disk that it lay on is not there.");
    }
}

TEST(CleanupSettlement, TellsWhereItLookedForWhatItDidNotFind) {
    SettlingPlace at;
    for (const char* name : {"found", "lost"}) at.add(std::string("folder/") + name);
    at.intent.mode = CleanupExecutionMode::permanent;
    at.begin();
    at.place.folder("Trash/files");
    at.place.folder("Trash/info");
    fs::remove(at.place / "folder/lost");
    const std::string folder = at.place / "folder";
    for (int time = 0; time < 2; ++time) {
        const SettledCleanup told = at.settled();
        EXPECT_FALSE(told.isClosed) << "it is looked for again";
        EXPECT_THAT(
            told.openQuestions(),
            ElementsAre(
                "Tidyro could not confirm what became of " + folder +
                "/lost. It is neither at its place nor in the Trash. It was looked for in " +
                folder + ", " + folder + "/" + platform::PrivateFolder::nameFor(at.intent.id) +
                " and " + at.home +
                "/files. If you find it elsewhere or do not miss it, there is nothing to "
                "do. The record of this cleanup is kept, and the item is looked for again "
                "the next time."));
    }
}

/// The log and what it tells of reach the disk in no certain order.
TEST(CleanupSettlement, CorrectsOutcomesThatACrashUndid) {
    SettlingPlace at;
    for (const char* name : {"there", "moved", "refused", "gone"}) {
        at.add(std::string("folder/") + name);
    }
    at.place.folder("Trash/info");
    at.place.folder("Trash/files");
    {
        FileCleanupIntentJournal journal(at.intents, {.reserveByteCount = 0});
        ASSERT_TRUE(journal.begin(at.intent));
        for (const char* name : {"there", "moved", "gone"}) {
            const auto url = FileURL::file(at.home + "/files/" + name);
            ASSERT_TRUE(
                journal.recordOutcome({intent_outcome::MovedToTrash{url}}, {name}, at.intent.id));
        }
        ASSERT_TRUE(journal.recordOutcome({intent_outcome::Failed{"it changed"}}, {"refused"},
                                          at.intent.id));
    }
    fs::rename(at.place / "folder/moved", at.home + "/files/moved"); // its note did not get there
    at.place.file("Trash/info/refused.trashinfo",
                  platform::trashNote(at.place / "folder/refused", {}, Timestamp::now()));
    fs::rename(at.place / "folder/refused", at.home + "/files/refused"); // and did not go back
    fs::remove(at.place / "folder/gone");                                // emptied since
    const SettledCleanup told = at.settled();
    EXPECT_THAT(foundOf(told), ElementsAre(Found::atPlace, Found::inTrash, Found::inTrash));
    EXPECT_THAT(contents(at.home + "/info/moved.trashinfo"), HasSubstr("/folder/moved\n"));
    ASSERT_THAT(at.ledger.storedReceipts(), SizeIs(1));
    std::vector<CleanupMoveDisposition> dispositions;
    const auto stored = at.ledger.storedReceipts();
    for (const auto& entry : stored[0].entries) {
        dispositions.push_back(entry.disposition);
    }
    using enum CleanupMoveDisposition;
    EXPECT_THAT(dispositions, ElementsAre(failed, movedToTrash, movedToTrash, movedToTrash));
}

/// An emptying may die while it takes a folder apart.
TEST(CleanupSettlement, PutsBackWhatIsLeftOfAFolder) {
    SettlingPlace at;
    at.place.file("Trash/files/tree/inside/file");
    at.place.file("Trash/info/tree.trashinfo", "[Trash Info]\nPath=/tree\n");
    at.add("Trash/files/tree");
    at.intent.mode = CleanupExecutionMode::permanent;
    at.intent.createdAt = Timestamp::now().adding(1);
    at.begin();
    {
        FileCleanupIntentJournal journal(at.intents, {.reserveByteCount = 0});
        ASSERT_TRUE(
            journal.recordOutcome({intent_outcome::PermanentlyRemoved{}}, {"tree"}, at.intent.id));
    }
    const std::string mine = at.privateIn("Trash");
    fs::create_directory(mine);
    fs::permissions(mine, fs::perms::owner_all);
    fs::rename(at.home + "/files/tree", mine + "/tree");
    at.place.file("other");
    fs::rename(at.place / "other", mine + "/tree/changed");
    const SettledCleanup told = at.settled();
    EXPECT_THAT(foundOf(told), ElementsAre(Found::putBack));
    EXPECT_TRUE(exists(at.home + "/files/tree/inside/file"));
    EXPECT_FALSE(exists(mine));
    EXPECT_EQ(at.ledger.storedReceipts()[0].entries[0].disposition, CleanupMoveDisposition::failed);
}

TEST(CleanupSettlement, FindsWhatAnEndedCleanupLeft) {
    SettlingPlace at;
    at.add("folder/a");
    at.intent.mode = CleanupExecutionMode::permanent;
    at.begin();
    EXPECT_TRUE(at.settled().isClosed);
    const std::string mine = at.privateIn("folder");
    fs::create_directory(mine);
    fs::permissions(mine, fs::perms::owner_all);
    at.place.file("stranger", "x");
    fs::rename(at.place / "stranger", mine + "/stranger");
    Process process(at.intents, {}, at.rename);
    EXPECT_THAT(at.settlement(process).settle()->cleanups, IsEmpty());
    const auto settled = at.settlement(process).settle(CleanupSettlement::Depth::everything);
    ASSERT_THAT(settled->cleanups, SizeIs(1));
    EXPECT_THAT(settled->cleanups[0].strangers, SizeIs(1));
    EXPECT_EQ(contents(at.place / "folder/stranger"), "x");
    EXPECT_FALSE(exists(mine));
    EXPECT_THAT(at.ledger.storedReceipts(), SizeIs(1));
}

TEST(CleanupSettlement, KnowsHowFarACleanupMayHaveCome) {
    SettlingPlace at;
    constexpr std::size_t count = 2 * FileCleanupIntentJournal::maxUnflushedRecords + 2;
    for (std::size_t i = 0; i < count; ++i) at.add("folder/" + std::to_string(i));
    at.begin();
    fs::remove(at.place / ("folder/" + std::to_string(count - 1)));
    fs::remove(at.place / ("folder/" + std::to_string(count - 3)));
    const SettledCleanup told = at.settled();
    EXPECT_EQ(told.items[count - 1].found, Found::goneBefore) << "it cannot have got there";
    EXPECT_EQ(told.items[count - 2].found, Found::atPlace);
    EXPECT_EQ(told.items[count - 3].found, Found::unaccounted);
    EXPECT_FALSE(told.isClosed);
    EXPECT_THAT(at.settled().items, SizeIs(1)) << "the others are recorded";
}

TEST(CleanupSettlement, AnItemThatWasChangedSinceIsStillTheItem) {
    SettlingPlace at;
    at.add("folder/a");
    at.intent.createdAt = Timestamp::now().adding(1);
    at.begin();
    at.place.file("folder/a", "changed meanwhile");
    EXPECT_THAT(foundOf(at.settled()), ElementsAre(Found::atPlace));
    EXPECT_EQ(contents(at.place / "folder/a"), "changed meanwhile");
}

TEST(CleanupSettlement, ForgetsNothingThatIsStillNeeded) {
    SettlingPlace at;
    at.add("folder/a");
    at.begin();
    const auto forget = [&] {
        Process process(at.intents, {}, at.rename);
        const auto forgotten = at.settlement(process).forgetThoseWithoutReceipts(
            [&]() -> std::expected<std::vector<CleanupReceipt>, RecoveryLedgerError> {
                return at.ledger.storedReceipts();
            });
        return forgotten ? static_cast<int>(*forgotten) : -1;
    };
    EXPECT_EQ(forget(), 0) << "open";
    EXPECT_TRUE(at.settled().isClosed);
    EXPECT_EQ(forget(), 0) << "its receipt is kept";
    static_cast<void>(at.ledger.receipts(Timestamp::now().adding(91 * 86'400.0)));
    EXPECT_THAT(at.ledger.storedReceipts(), IsEmpty());
    const std::string mine = at.privateIn("folder");
    fs::create_directory(mine);
    EXPECT_EQ(forget(), 0) << "something may lie in its private folder";
    fs::remove(mine);
    EXPECT_EQ(forget(), 1);
    EXPECT_EQ(forget(), 0);
}

TEST(CleanupSettlement, RecordsNothingThatTheDiskDidNotConfirm) {
    bool isRefused = false;
    for (std::uint64_t j = 1, changes = 1; j <= changes; ++j) {
        SettlingPlace at;
        at.add("folder/a");
        at.begin();
        at.place.folder("Trash/info");
        at.putIntoTrash("other", "/other");
        fs::rename(at.place / "folder/a", at.home + "/files/a");
        Process process(at.intents, {.at = j, .how = Disturbance::failure, .code = EIO}, at.rename);
        const auto settled = at.settlement(process).settle();
        changes = process.schedule.count();
        if (settled ||
            !std::holds_alternative<CleanupSettlementError::NotConfirmed>(settled.error().value)) {
            continue;
        }
        isRefused = true;
        EXPECT_THAT(settled.error().description(), HasSubstr("did not confirm"));
        const auto all = process.journal.allIntents();
        EXPECT_FALSE(all->intents[0].intent.entries[0].outcome);
        EXPECT_THAT(at.ledger.storedReceipts(), IsEmpty());
    }
    EXPECT_TRUE(isRefused) << "nothing was flushed";
}

TEST(CleanupSettlement, StoresOneReceiptWhateverWasStoredBefore) {
    // The cleanup had ended and stored its receipt, and died before it could close.
    SettlingPlace at;
    at.add("folder/a");
    {
        Process process(at.intents, {}, at.rename);
        carryOut(at, process);
        at.intent.entries[0].outcome = {
            intent_outcome::MovedToTrash{FileURL::file(at.home + "/files/a")}};
        CleanupReceipt own = receiptOfSettledCleanup(at.intent, Timestamp::now().adding(1'000));
        own.id = platform::randomUUID();
        ASSERT_TRUE(at.ledger.append(own));
    }
    EXPECT_TRUE(at.settled().isClosed);
    EXPECT_THAT(at.ledger.storedReceipts(), SizeIs(1));

    // It had closed, and its receipt could not be stored.
    SettlingPlace missing;
    missing.add("folder/a");
    {
        Process process(missing.intents, {}, missing.rename);
        carryOut(missing, process);
        missing.intent.entries[0].outcome = {
            intent_outcome::MovedToTrash{FileURL::file(missing.home + "/files/a")}};
        ASSERT_TRUE(process.journal.requireReceiptRecovery(
            receiptOfSettledCleanup(missing.intent, Timestamp::now())));
        ASSERT_TRUE(process.journal.close(missing.intent.id, Timestamp::now()));
    }
    EXPECT_TRUE(missing.settled().isClosed);
    expectAllAccountedFor(missing);
}

/// Plans hold the paths that a person sees; a Trash notes where the items really lay.
TEST(CleanupSettlement, FindsItemsOfAHomeThatLiesBehindALink) {
    SettlingPlace at;
    at.place.folder("disk/home/cache");
    at.place.link("home", at.place / "disk/home");
    for (const char* name : {"there", "trashed", "aside"}) {
        at.add(std::string("home/cache/") + name);
    }
    at.intent.mode = CleanupExecutionMode::permanent;
    at.begin();
    fs::create_directory(at.privateIn("disk/home/cache"));
    fs::permissions(at.privateIn("disk/home/cache"), fs::perms::owner_all);
    fs::rename(at.place / "home/cache/aside", at.privateIn("disk/home/cache") + "/aside");
    at.place.folder("Trash/files");
    at.place.folder("Trash/info");
    fs::rename(at.place / "home/cache/trashed", at.place / "Trash/files/trashed");
    at.place.file("Trash/info/trashed.trashinfo",
                  platform::trashNote(at.place / "disk/home/cache/trashed", {}, Timestamp::now()));

    const SettledCleanup settled = at.settled();
    EXPECT_THAT(foundOf(settled), ElementsAre(Found::atPlace, Found::inTrash, Found::putBack));
    EXPECT_TRUE(settled.isAccountedFor);
    EXPECT_TRUE(settled.isClosed);
    EXPECT_EQ(contents(at.place / "home/cache/aside"), "contents of aside");
    EXPECT_FALSE(exists(at.privateIn("disk/home/cache")));
}

TEST(CleanupSettlement, KnowsThatSomethingWentWithTheFolderThatItLayIn) {
    SettlingPlace at;
    at.add("work/folder/inside");
    at.place.times("work/folder", 1'000, 1'000);
    at.add("work/folder");
    at.begin();
    at.place.folder("Trash/files");
    at.place.file("Trash/info/folder.trashinfo",
                  platform::trashNote(at.place / "work/folder", {}, Timestamp::now()));
    fs::rename(at.place / "work/folder", at.place / "Trash/files/folder");
    const SettledCleanup settled = at.settled();
    EXPECT_THAT(foundOf(settled), ElementsAre(Found::goneBefore, Found::inTrash));
    EXPECT_TRUE(settled.isAccountedFor);
}

} // namespace
} // namespace tidyro

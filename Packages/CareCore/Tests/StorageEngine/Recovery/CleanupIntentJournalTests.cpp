#include <cerrno>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Base/JSONCoding.h"
#include "Base/JSONText.h"
#include "Platform/Files/DurableFile.h"
#include "Platform/Files/SpaceReserve.h"
#include "StorageEngine/Recovery/CleanupRecovery.h"
#include "StorageEngine/Recovery/FileCleanupIntentJournal.h"
#include "StorageEngine/Recovery/SampleIntents.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

using namespace testing;
using platform::DiskChange;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/// Counts the changes, and lets one or all from one on fail; or ends the process there.
class TestGate final : public platform::ChangeGate {
  public:
    std::vector<DiskChange> changes;
    std::size_t stopsAt = 0; ///< the change that fails, counted from 1; 0 for none
    int error = 0;           ///< 0: the process ends
    bool endsAfter = false;
    std::optional<DiskChange> only = std::nullopt;

    Done perform(DiskChange kind, const std::function<Done()>& change) override {
        if (only && kind != *only) return change();
        changes.push_back(kind);
        if (changes.size() != stopsAt) return change();
        if (endsAfter) static_cast<void>(change());
        if (error == 0) ::_exit(0);
        return std::unexpected(SystemError{error});
    }
};

FileCleanupIntentJournal::Options quickOptions(platform::ChangeGate* gate = nullptr) {
    return {.reserveByteCount = 0,
            .maxLockWait = std::chrono::milliseconds(20),
            .gate = gate != nullptr ? gate : &platform::ChangeGate::open()};
}

std::string contents(const std::string& path) {
    return platform::readWholeFile(path, 1U << 24U).value_or("unreadable");
}

unsigned modeOf(const std::string& path) {
    struct stat status{};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 0777U;
}

/// What a journal that is made anew finds open.
std::vector<RecordedIntent> openIn(const FileURL& folder) {
    FileCleanupIntentJournal journal(folder, quickOptions());
    const auto open = journal.openIntents();
    if (!open) {
        ADD_FAILURE() << open.error().description();
        return {};
    }
    EXPECT_THAT(open->unreadable, IsEmpty());
    return open->intents;
}

struct JournalPlace {
    TemporaryFolder place;
    FileURL folder = FileURL::folder(place / "Harborline/intents");
    CleanupIntent intent = sampleIntent("/home/ada", 3);

    [[nodiscard]] std::string file(const std::string& ending) const {
        return folder.appending(intent.id.text() + ending).path();
    }
};

TEST(CleanupIntentJournal, WritesItsFormatToTheLetter) {
    JournalPlace at;
    const std::string id = at.intent.id.text();
    at.intent.entries.resize(1);
    FileCleanupIntentJournal journal(at.folder, quickOptions());
    ASSERT_TRUE(journal.begin(at.intent));
    EXPECT_EQ(contents(at.file(".json")),
              R"({"id":")" + id + R"(","planID":")" + at.intent.planID.text() +
                  R"(","createdAt":1000.0,"mode":"recoverable","entries":[{"candidateID":)"
                  R"({"rawValue":"a"},"sourceURL":"file:///home/ada/a","fingerprint":)"
                  R"({"byteCount":0}}]})");
    ASSERT_TRUE(journal.recordOutcome(movedTo("/T/a b"), itemID("a"), at.intent.id));
    ASSERT_TRUE(
        journal.recordOutcome({intent_outcome::PermanentlyRemoved{}}, itemID("a"), at.intent.id));
    ASSERT_TRUE(journal.recordOutcome({intent_outcome::Failed{"why"}}, itemID("a"), at.intent.id));
    ASSERT_TRUE(journal.close(at.intent.id, Timestamp::sinceReference(2)));
    EXPECT_EQ(
        contents(at.file(".outcomes")),
        R"({"outcome":{"candidateID":{"rawValue":"a"},"outcome":{"movedToTrash":{"_0":"file:///T/a%20b"}}}})"
        "\n"
        R"({"outcome":{"candidateID":{"rawValue":"a"},"outcome":{"permanentlyRemoved":{}}}})"
        "\n"
        R"({"outcome":{"candidateID":{"rawValue":"a"},"outcome":{"failed":{"_0":"why"}}}})"
        "\n"
        R"({"closed":{"at":2.0}})"
        "\n");
    EXPECT_EQ(modeOf(at.folder.path()), 0700U);
    EXPECT_EQ(modeOf(at.file(".json")), 0600U);
    EXPECT_EQ(modeOf(at.file(".outcomes")), 0600U);
    EXPECT_EQ(logLine({intent_log::ReceiptMissing{}}), "{\"receiptMissing\":{}}\n");
    EXPECT_EQ(
        logLine({intent_log::RestoreOutcomes{
            {{itemID("a"), {intent_outcome::RestoredFromTrash{FileURL::file("/a")}}}}, true}}),
        R"({"restoreOutcomes":{"_0":[{"candidateID":{"rawValue":"a"},"outcome":)"
        R"({"restoredFromTrash":{"_0":"file:///a"}}}],"receiptMissing":true}})"
        "\n");
    EXPECT_THAT(openIn(at.folder), IsEmpty());
}

TEST(CleanupIntentJournal, WritesALongIntentWholeThoughInPieces) {
    JournalPlace at;
    at.intent = sampleIntent("/home/ada", 3 * TextInPieces::pieceBytes / 100);
    FileCleanupIntentJournal journal(at.folder, quickOptions());
    ASSERT_TRUE(journal.begin(at.intent));
    const std::string written = contents(at.file(".json"));
    EXPECT_GT(written.size(), 2 * TextInPieces::pieceBytes);
    EXPECT_EQ(written, jsonText(toJSON(at.intent)));
}

TEST(CleanupIntentJournal, FlushesTheFirstRecordThenByNumberAndTime) {
    JournalPlace at;
    at.intent = sampleIntent("/home/ada", 600);
    TestGate gate;
    double now = 100;
    std::size_t flushedChanges = 0;
    auto options = quickOptions(&gate);
    options.steadySeconds = [&] { return now; };
    options.flushChanges = [&]() -> std::expected<void, SystemError> {
        ++flushedChanges;
        return {};
    };
    FileCleanupIntentJournal journal(at.folder, options);
    using enum DiskChange;
    ASSERT_TRUE(journal.begin(at.intent));
    // Two folders with the one above each, then the log and the snapshot with its sibling.
    EXPECT_THAT(gate.changes, ElementsAre(makeFolder, flush, makeFolder, flush, makeFile, makeFile,
                                          write, flush, rename, flush));
    gate.only = flush;
    std::size_t next = 0;
    const auto flushesOf = [&](std::size_t records) {
        gate.changes.clear();
        for (std::size_t i = 0; i < records; ++i) {
            const auto& entry = at.intent.entries[next++];
            EXPECT_TRUE(journal.recordOutcome(movedTo("/T"), entry.candidateID, at.intent.id));
        }
        return gate.changes.size();
    };
    EXPECT_EQ(flushesOf(1), 1U);
    now += 0.999;
    EXPECT_EQ(flushesOf(199), 0U);
    EXPECT_EQ(flushesOf(1), 1U);
    EXPECT_EQ(flushesOf(1), 0U);
    now += 1.0;
    EXPECT_EQ(flushesOf(1), 1U);
    EXPECT_EQ(flushesOf(200), 1U);
    EXPECT_EQ(flushesOf(1), 0U);
    EXPECT_EQ(flushedChanges, 4U);
    gate.changes.clear();
    ASSERT_TRUE(journal.close(at.intent.id, Timestamp::now()));
    EXPECT_THAT(gate.changes, SizeIs(1));
    EXPECT_EQ(flushedChanges, 5U);
}

TEST(CleanupIntentJournal, NeverFlushesAgainAfterAFlushThatFailed) {
    JournalPlace at;
    for (const bool isOfChanges : {false, true}) {
        at.intent.id = platform::randomUUID();
        TestGate gate;
        std::size_t changesFlushed = 0;
        auto options = quickOptions(&gate);
        options.flushChanges = [&]() -> std::expected<void, SystemError> {
            ++changesFlushed;
            if (isOfChanges) return std::unexpected(SystemError{EIO});
            return {};
        };
        FileCleanupIntentJournal journal(at.folder, options);
        ASSERT_TRUE(journal.begin(at.intent));
        gate.only = DiskChange::flush;
        gate.changes.clear();
        gate.stopsAt = 1;
        gate.error = EIO;
        const auto failed = journal.recordOutcome(movedTo("/T"), itemID("a"), at.intent.id);
        ASSERT_FALSE(failed);
        EXPECT_EQ(failed.error().description(),
                  "Tidyro could not write to its safety log, so it stopped before finishing this "
                  "step. Nothing further was touched.");
        EXPECT_FALSE(journal.recordOutcome(movedTo("/T"), itemID("b"), at.intent.id));
        EXPECT_FALSE(journal.close(at.intent.id, Timestamp::now()));
        EXPECT_EQ(gate.changes.size(), isOfChanges ? 0U : 1U);
        EXPECT_EQ(changesFlushed, 1U);
    }
    EXPECT_THAT(openIn(at.folder), SizeIs(2)) << "both were cut short, and neither is running";
}

/// A cleanup of two items, with each step that was acknowledged written to `told`.
void runCleanup(const FileURL& folder, const CleanupIntent& intent, TestGate& gate,
                const std::string& told) {
    std::ofstream steps(told);
    auto options = quickOptions(&gate);
    options.steadySeconds = [now = 0.0]() mutable { return now += 2; }; // every record is flushed
    FileCleanupIntentJournal journal(folder, options);
    if (!journal.begin(intent)) return;
    steps << "begun" << std::flush;
    for (const char* name : {"a", "b"}) {
        if (!journal.recordOutcome(movedTo("/T"), itemID(name), intent.id)) break;
        steps << " " << name << std::flush;
    }
    if (journal.close(intent.id, Timestamp::now())) steps << " closed" << std::flush;
}

TEST(CleanupIntentJournal, KeepsWhatItAcknowledgedWhereverItStops) {
    TestGate counted;
    {
        const JournalPlace at;
        runCleanup(at.folder, at.intent, counted, at.place / "told");
        EXPECT_EQ(contents(at.place / "told"), "begun a b closed");
    }
    ASSERT_EQ(counted.changes.size(), 16U);
    for (std::size_t k = 1; k <= counted.changes.size(); ++k) {
        for (const int error : {0, -1, EIO, ENOSPC, EINTR}) {
            SCOPED_TRACE("change " + std::to_string(k) + ", error " + std::to_string(error));
            const JournalPlace at;
            TestGate gate;
            gate.stopsAt = k;
            gate.error = error < 0 ? 0 : error;
            gate.endsAfter = error < 0;
            const auto run = [&] {
                runCleanup(at.folder, at.intent, gate, at.place / "told");
                return std::string();
            };
            EXPECT_EQ(error > 0 ? run() : inChild(run), "");
            const std::string told = contents(at.place / "told");

            const auto open = openIn(at.folder);
            if (told.ends_with("closed")) {
                EXPECT_THAT(open, IsEmpty());
            } else if (error > 0 && told.empty()) {
                EXPECT_THAT(open, IsEmpty()) << "an intent that was refused";
            } else if (!told.empty()) {
                // The closing record may have arrived without being acknowledged.
                const bool mayBeClosed = told.ends_with("b");
                ASSERT_TRUE(open.size() == 1 || (mayBeClosed && open.empty()));
                for (const RecordedIntent& found : open) {
                    EXPECT_FALSE(found.isRunning);
                    EXPECT_EQ(found.passedOverLineCount, 0U);
                    EXPECT_EQ(found.intent.entries[0].outcome.has_value() ||
                                  told.find('a') == std::string::npos,
                              true);
                    EXPECT_EQ(found.intent.entries[1].outcome.has_value() || !told.ends_with("b"),
                              true);
                    EXPECT_FALSE(found.intent.entries[2].outcome);
                }
            }
            // Nothing stands in the way of the next cleanup.
            FileCleanupIntentJournal next(at.folder, quickOptions());
            ASSERT_TRUE(next.begin(sampleIntent("/home/ada", 1)));
            for (const auto& entry : std::filesystem::directory_iterator(at.folder.path())) {
                EXPECT_NE(entry.path().extension(), ".tmp");
            }
        }
    }
}

TEST(CleanupIntentJournal, PassesOverTornLinesAndTellsThem) {
    JournalPlace at;
    {
        FileCleanupIntentJournal journal(at.folder, quickOptions());
        ASSERT_TRUE(journal.begin(at.intent));
        ASSERT_TRUE(journal.recordOutcome(movedTo("/T/a"), itemID("a"), at.intent.id));
    }
    std::ofstream(at.file(".outcomes"), std::ios::app) << R"({"outcome":{"candidateID":{"ra)";
    {
        FileCleanupIntentJournal journal(at.folder, quickOptions());
        ASSERT_TRUE(journal.recordOutcome(movedTo("/T/b"), itemID("b"), at.intent.id));
    }
    std::ofstream(at.file(".outcomes"), std::ios::app)
        << std::string(5, '\0') << "\n\n"
        << R"({"outcome":{"candidateID":{"rawValue":"z"},"outcome":{"simulated":{}}}})" << "\n"
        << R"({"outcome":{"candidateID":{"rawValue":"c"},"outcome":{"simulated":{}}}})";
    const auto open = openIn(at.folder);
    ASSERT_THAT(open, SizeIs(1));
    EXPECT_EQ(open[0].passedOverLineCount, 3U) << "torn, zeros, and an item of another intent";
    EXPECT_EQ(open[0].intent.entries[0].outcome, movedTo("/T/a"));
    EXPECT_EQ(open[0].intent.entries[1].outcome, movedTo("/T/b"));
    EXPECT_TRUE(open[0].intent.unresolvedEntries().empty());
    EXPECT_TRUE(open[0].intent.isOpen());
}

TEST(CleanupIntentJournal, TellsDamagedIntentsBesideTheOthers) {
    JournalPlace at;
    FileCleanupIntentJournal journal(at.folder, quickOptions());
    ASSERT_TRUE(journal.begin(at.intent));
    const UUID damaged = platform::randomUUID();
    const UUID exchanged = platform::randomUUID();
    std::ofstream(at.folder.appending(damaged.text() + ".json").path()) << "{";
    std::filesystem::copy(at.file(".json"), at.folder.appending(exchanged.text() + ".json").path());
    std::ofstream(at.folder.appending("notes.json").path()) << "{";
    const auto open = journal.openIntents();
    ASSERT_TRUE(open);
    EXPECT_THAT(open->intents, SizeIs(1));
    EXPECT_THAT(open->unreadable, SizeIs(2));

    const auto unknown = journal.recordOutcome(movedTo("/T"), itemID("z"), at.intent.id);
    ASSERT_FALSE(unknown);
    EXPECT_EQ(unknown.error().value, decltype(unknown.error().value)(
                                         CleanupIntentJournalError::UnknownIntent{at.intent.id}));
    EXPECT_FALSE(journal.recordOutcome(movedTo("/T"), itemID("a"), platform::randomUUID()));
    EXPECT_FALSE(journal.close(platform::randomUUID(), Timestamp::now()));
}

TEST(CleanupIntentJournal, HasOneWriterAndKnowsWhatItIsDoing) {
    JournalPlace at;
    {
        FileCleanupIntentJournal first(at.folder, quickOptions());
        FileCleanupIntentJournal second(at.folder, quickOptions());
        EXPECT_THAT(openIn(at.folder), IsEmpty()) << "no folder yet";
        ASSERT_TRUE(first.begin(at.intent));
        EXPECT_FALSE(second.begin(sampleIntent("/home/ada", 1)));
        EXPECT_FALSE(second.hold());
        EXPECT_FALSE(second.forget(at.intent.id));
        auto open = openIn(at.folder);
        ASSERT_THAT(open, SizeIs(1));
        EXPECT_TRUE(open[0].isRunning);
        EXPECT_THAT(CleanupRecoveryReconciler{.journal = &second}.pendingReports().value(),
                    IsEmpty());
        open = first.openIntents()->intents;
        EXPECT_TRUE(open.at(0).isRunning);
    }
    // As after a crash: the holder is gone.
    const auto open = openIn(at.folder);
    ASSERT_THAT(open, SizeIs(1));
    EXPECT_FALSE(open[0].isRunning);

    FileCleanupIntentJournal recovery(at.folder, quickOptions());
    FileCleanupIntentJournal other(at.folder, quickOptions());
    {
        const auto hold = recovery.hold();
        ASSERT_TRUE(hold);
        EXPECT_FALSE(other.begin(sampleIntent("/home/ada", 1)));
        ASSERT_TRUE(recovery.close(at.intent.id, Timestamp::now()));
        EXPECT_FALSE(other.begin(sampleIntent("/home/ada", 1))) << "held beyond one change";
    }
    ASSERT_TRUE(other.begin(sampleIntent("/home/ada", 1)));
}

CleanupReceiptEntry told(const std::string& name, CleanupMoveDisposition disposition) {
    return {.candidateID = itemID(name),
            .originalURL = FileURL::file("/home/ada/" + name),
            .byteCount = 1,
            .disposition = disposition};
}

TEST(CleanupIntentJournal, TakesThePlaceOfAReceiptThatIsMissing) {
    JournalPlace at;
    at.intent.entries = sampleIntent("/home/ada", 4).entries;
    CleanupReceipt receipt{.id = platform::randomUUID(),
                           .planID = at.intent.planID,
                           .entries = {told("a", CleanupMoveDisposition::movedToTrash),
                                       told("b", CleanupMoveDisposition::movedToTrash),
                                       told("c", CleanupMoveDisposition::refused)},
                           .createdAt = Timestamp::now(),
                           .retainUntil = Timestamp::now()};
    FileCleanupIntentJournal journal(at.folder, quickOptions());
    ASSERT_TRUE(journal.begin(at.intent));
    ASSERT_TRUE(journal.recordOutcome(movedTo("/T/a"), itemID("a"), at.intent.id));
    const auto isUnsupported = [&] {
        const auto required = journal.requireReceiptRecovery(receipt);
        return !required && required.error().description() ==
                                "The safety log cannot retain exact recovery outcomes for this "
                                "operation.";
    };
    EXPECT_TRUE(isUnsupported()) << "nobody knows where b went";
    receipt.entries[1].resultingTrashURL = FileURL::file("/T/b");
    receipt.entries[0].disposition = CleanupMoveDisposition::failed;
    EXPECT_TRUE(isUnsupported()) << "the journal says that a was moved";
    receipt.entries[0].disposition = CleanupMoveDisposition::movedToTrash;
    receipt.planID = platform::randomUUID();
    EXPECT_TRUE(isUnsupported()) << "no intent of this plan";
    receipt.planID = at.intent.planID;
    ASSERT_TRUE(journal.requireReceiptRecovery(receipt));
    ASSERT_TRUE(journal.close(at.intent.id, Timestamp::now()));

    const auto open = openIn(at.folder);
    ASSERT_THAT(open, SizeIs(1)) << "closed, but without a receipt";
    EXPECT_TRUE(open[0].isReceiptMissing);
    EXPECT_FALSE(open[0].intent.isOpen());
    EXPECT_EQ(open[0].intent.entries[1].outcome, movedTo("/T/b"));
    EXPECT_EQ(open[0].intent.entries[2].outcome, CleanupIntentEntry::Outcome{intent_outcome::Failed{
                                                     "Left alone by the final check."}});
    EXPECT_FALSE(open[0].intent.entries[3].outcome) << "the receipt does not speak of it";
}

TEST(CleanupIntentJournal, RecordsWhatRecoveryDidAndForgets) {
    JournalPlace at;
    // An earlier cleanup moved a file of the same name to the same place in the Trash.
    CleanupIntent earlier = sampleIntent("/home/ada", 1, 500);
    FileCleanupIntentJournal journal(at.folder, quickOptions());
    for (const CleanupIntent* intent : {&at.intent, &earlier}) {
        ASSERT_TRUE(journal.begin(*intent));
        ASSERT_TRUE(journal.recordOutcome(movedTo("/T/a"), itemID("a"), intent->id));
    }
    ASSERT_TRUE(journal.recordOutcome(movedTo("/T/b"), itemID("b"), at.intent.id));
    ASSERT_TRUE(journal.requireReceiptRecovery(
        {.id = {}, .planID = at.intent.planID, .entries = {}, .createdAt = {}, .retainUntil = {}}));

    using MovedItem = InterruptedCleanupReport::MovedItem;
    const MovedItem a{FileURL::file("/home/ada/a"), FileURL::file("/T/a")};
    const MovedItem b{FileURL::file("/home/ada/b"), FileURL::file("/T/b")};
    const MovedItem stranger{FileURL::file("/home/ada/a"), FileURL::file("/T/b")};
    EXPECT_FALSE(journal.recordRestoreOutcomes({.restored = {a, stranger}}));
    ASSERT_TRUE(journal.recordRestoreOutcomes({.restored = {a}, .noLongerInTrash = {b}}));
    ASSERT_TRUE(journal.recordRestoreOutcomes({.restored = {a}})) << "the earlier one is left";
    auto open = journal.openIntents()->intents;
    ASSERT_THAT(open, SizeIs(2));
    const CleanupIntentEntry::Outcome restored{
        intent_outcome::RestoredFromTrash{FileURL::file("/home/ada/a")}};
    EXPECT_EQ(open[1].intent.entries[0].outcome, restored);
    EXPECT_EQ(open[1].intent.entries[1].outcome,
              CleanupIntentEntry::Outcome{intent_outcome::NoLongerInTrash{b.trashURL}});
    EXPECT_TRUE(open[1].isReceiptMissing) << "putting back brings no receipt";

    ASSERT_TRUE(journal.forget(at.intent.id));
    ASSERT_TRUE(journal.forget(at.intent.id)) << "what is gone is forgotten";
    EXPECT_FALSE(std::filesystem::exists(at.file(".json")));
    EXPECT_FALSE(std::filesystem::exists(at.file(".outcomes")));
    open = journal.openIntents()->intents;
    ASSERT_THAT(open, SizeIs(1));
    EXPECT_EQ(open[0].intent.id, earlier.id);
}

/// Takes all space of a disk: in large pieces, in blocks, in names.
void fill(const TemporaryFolder& disk, std::size_t& number) {
    const auto next = [&] { return disk / ("fill" + std::to_string(number++)); };
    for (std::uint64_t size = 256UL << 20U; size >= 1UL << 16U; size /= 2) {
        while (platform::reserveSpace(next(), size)) {}
    }
    for (const std::size_t size : {4'096U, 512U, 1U}) {
        auto file = platform::AppendFile::open(next());
        if (!file) break;
        while (file->append(std::string(size, 'x'))) {}
        static_cast<void>(file->flush());
    }
    for (int i = 0; i < 20'000 && platform::AppendFile::open(next()); ++i) {}
}

TEST(CleanupIntentJournal, RecordsACleanupOfAFullDisk) {
    for (const std::string type : {"ext4", "xfs", "btrfs"}) {
        SCOPED_TRACE(type);
        const auto image = MountedImage::make(type);
        if (!image) GTEST_SKIP() << "needs root and mkfs." << type;
        const TemporaryFolder& disk = image->folder();
        const FileURL folder = FileURL::folder(disk / "intents");
        FileCleanupIntentJournal journal(folder, {.reserveByteCount = 16U << 20U});
        ASSERT_TRUE(journal.begin(sampleIntent("/home/ada", 1)));
        const CleanupIntent intent = sampleIntent("/home/ada", 5'000);
        const auto withoutReserve = [&] {
            FileCleanupIntentJournal other(FileURL::folder(disk / "other"), quickOptions());
            return other.begin(sampleIntent("/home/ada", 5'000)).has_value();
        };
        std::size_t files = 0;
        bool isFull = false;
        for (int tries = 0; tries < 10 && !isFull; ++tries) {
            fill(disk, files);
            isFull = !withoutReserve();
        }
        ASSERT_TRUE(isFull);
        ASSERT_TRUE(journal.begin(intent));
        for (const CleanupIntentEntry& entry : intent.entries) {
            ASSERT_TRUE(journal.recordOutcome(movedTo("/T"), entry.candidateID, intent.id));
        }
        EXPECT_FALSE(std::filesystem::exists(folder.appending("reserve").path()));
        std::filesystem::remove(disk / "fill0");
        ASSERT_TRUE(runQuietly("sync -f '" + disk.path() + "'"));
        ASSERT_TRUE(journal.close(intent.id, Timestamp::now()));
        EXPECT_GE(std::filesystem::file_size(folder.appending("reserve").path()), 16U << 20U);
    }
}

TEST(CleanupRecovery, SortsWhatAnInterruptedCleanupLeft) {
    const TemporaryFolder place;
    place.file("g");
    place.link("h", "nowhere");
    CleanupIntent intent = sampleIntent(place.path(), 9);
    const std::vector<CleanupIntentEntry::Outcome> outcomes{
        movedTo("/T/a"),
        movedTo("/T/b"),
        {intent_outcome::RestoredFromTrash{FileURL::file("/c")}},
        {intent_outcome::NoLongerInTrash{FileURL::file("/d")}},
        {intent_outcome::Failed{"why"}},
        {intent_outcome::PermanentlyRemoved{}}};
    for (std::size_t i = 0; i < outcomes.size(); ++i) intent.entries[i].outcome = outcomes[i];

    const CleanupRecoveryReconciler reconciler{.journal = nullptr};
    const auto report = reconciler.report({.intent = intent, .passedOverLineCount = 2});
    EXPECT_EQ(report.intentID, intent.id);
    EXPECT_EQ(report.planID, intent.planID);
    EXPECT_EQ(report.startedAt, intent.createdAt);
    EXPECT_THAT(report.movedToTrash, ElementsAre(intent.entries[0], intent.entries[1]));
    ASSERT_THAT(report.movedItems, SizeIs(2));
    EXPECT_EQ(report.movedItems[1].originalURL, intent.entries[1].sourceURL);
    EXPECT_EQ(report.movedItems[1].trashURL, FileURL::file("/T/b"));
    EXPECT_EQ(report.movedItems[1].candidateID, itemID("b"));
    EXPECT_THAT(report.failureDescriptions, ElementsAre("why"));
    EXPECT_THAT(report.untouched, ElementsAre(intent.entries[6], intent.entries[7]));
    EXPECT_THAT(report.unaccountedFor, ElementsAre(intent.entries[8]));
    EXPECT_EQ(report.passedOverLineCount, 2U);
    EXPECT_EQ(report.summary(), "2 moved to Trash, 1 removed permanently, 1 failed, 2 untouched, "
                                "1 restored, 1 no longer in Trash, 1 Tidyro could not confirm.");
}

TEST(CleanupRecovery, SaysThatNothingHappenedAfterACrashAtTheBeginning) {
    JournalPlace at;
    { ASSERT_TRUE(FileCleanupIntentJournal(at.folder, quickOptions()).begin(at.intent)); }
    FileCleanupIntentJournal journal(at.folder, quickOptions());
    const CleanupRecoveryReconciler reconciler{
        .journal = &journal, .fileExists = [](const std::string&) { return true; }};
    const auto reports = reconciler.pendingReports();
    ASSERT_TRUE(reports);
    ASSERT_THAT(*reports, SizeIs(1));
    EXPECT_EQ(reports->front().untouched, at.intent.entries);
    EXPECT_EQ(reports->front().summary(), "This cleanup stopped before it changed anything.");
}

} // namespace
} // namespace tidyro

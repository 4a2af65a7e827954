#include "StorageEngine/Recovery/CleanupHistoryIndex.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Platform/Files/DurableFile.h"
#include "StorageEngine/Recovery/SampleIntents.h"

namespace tidyro {
namespace {

using namespace testing;
using ::testing::IsEmpty;
using ::testing::SizeIs;

CleanupReceipt receiptWith(std::size_t count, double createdAt) {
    CleanupReceipt receipt{.id = platform::randomUUID(),
                           .planID = platform::randomUUID(),
                           .entries = {},
                           .createdAt = Timestamp::sinceReference(createdAt),
                           .retainUntil = Timestamp::sinceReference(createdAt + 90 * 86'400.0),
                           .actuallyReclaimedByteCount = 17};
    using enum CleanupMoveDisposition;
    for (std::size_t i = 0; i < count; ++i) {
        const std::string path = "/home/ada/.cache/some/folder/" + std::to_string(i);
        receipt.entries.push_back({.candidateID = itemID("file://" + path),
                                   .originalURL = FileURL::file(path),
                                   .byteCount = 4'096,
                                   .disposition = i % 10 == 0 ? refused : permanentlyRemoved});
    }
    return receipt;
}

struct HistoryPlace {
    TemporaryFolder place;
    FileURL ledgerURL = FileURL::file(place / "Recovery/ledger.json");
    std::string key = std::string(32, 'k');
    JSONRecoveryLedger ledger = *JSONRecoveryLedger::open(ledgerURL, key);
    FileCleanupIntentJournal journal{FileURL::folder(place / "intents"), {.reserveByteCount = 0}};
    CleanupHistoryIndex index{{.ledgerURL = ledgerURL,
                               .journal = &journal,
                               .storedReceipts = [this] { return ledger.storedReceipts(); }}};

    /// What the index tells, and whether it had to be made anew. Both ways give the same.
    CleanupHistoryIndex::History told() {
        auto history = index.history();
        if (!history) {
            ADD_FAILURE() << "no history";
            return {};
        }
        const auto again = index.history();
        EXPECT_FALSE(again->wasMadeAnew) << "it is not used";
        EXPECT_EQ(again->lines, history->lines);
        EXPECT_EQ(again->unreadableIntentCount, history->unreadableIntentCount);
        return *std::move(history);
    }
};

TEST(CleanupHistoryIndex, TellsEachReceiptAndOpenIntentInOneLine) {
    HistoryPlace at;
    EXPECT_THAT(at.told().lines, IsEmpty());
    const CleanupReceipt receipt = receiptWith(20, 2'000);
    ASSERT_TRUE(at.ledger.append(receipt));
    const CleanupIntent open = sampleIntent("/home/ada", 3, 1'000);
    const CleanupIntent closed = sampleIntent("/home/ada", 3, 1'500);
    for (const CleanupIntent& intent : {open, closed}) ASSERT_TRUE(at.journal.begin(intent));
    EXPECT_THAT(*at.journal.runningIntents(), SizeIs(2));
    ASSERT_TRUE(at.journal.recordOutcome(movedTo("/T/c"), itemID("c"), open.id));
    ASSERT_TRUE(at.journal.close(closed.id, Timestamp::sinceReference(1'600)));
    const auto history = at.told();
    EXPECT_TRUE(history.wasMadeAnew);
    ASSERT_THAT(history.lines, SizeIs(2));
    EXPECT_EQ(history.lines[0], (CleanupHistoryLine{.kind = CleanupHistoryKind::openIntent,
                                                    .id = open.id,
                                                    .planID = open.planID,
                                                    .createdAt = open.createdAt,
                                                    .mode = CleanupExecutionMode::recoverable,
                                                    .movedToTrash = {.count = 1, .byteCount = 2},
                                                    .unresolved = {.count = 2, .byteCount = 1}}));
    EXPECT_EQ(history.lines[1],
              (CleanupHistoryLine{.kind = CleanupHistoryKind::receipt,
                                  .id = receipt.id,
                                  .planID = receipt.planID,
                                  .createdAt = receipt.createdAt,
                                  .retainUntil = receipt.retainUntil,
                                  .mode = CleanupExecutionMode::permanent,
                                  .permanentlyRemoved = {.count = 18, .byteCount = 18 * 4'096},
                                  .failed = {.count = 2, .byteCount = 2 * 4'096},
                                  .actuallyReclaimedByteCount = 17}));
    ASSERT_TRUE(at.journal.close(open.id, Timestamp::sinceReference(3'000)));
    EXPECT_THAT(*at.journal.runningIntents(), IsEmpty());
    EXPECT_THAT(at.told().lines, SizeIs(1));
}

TEST(CleanupHistoryIndex, IsMadeAnewWhenItIsStaleOrDamaged) {
    HistoryPlace at;
    ASSERT_TRUE(at.ledger.append(receiptWith(3, 1'000)));
    ASSERT_TRUE(at.journal.begin(sampleIntent("/home/ada", 1, 2'000)));
    EXPECT_TRUE(at.told().wasMadeAnew);
    ASSERT_TRUE(at.ledger.append(receiptWith(3, 3'000)));
    EXPECT_THAT(at.told().lines, SizeIs(3));
    const CleanupIntent another = sampleIntent("/home/ada", 1, 4'000);
    ASSERT_TRUE(at.journal.begin(another));
    EXPECT_THAT(at.told().lines, SizeIs(4));
    ASSERT_TRUE(at.journal.forget(another.id));
    EXPECT_THAT(at.told().lines, SizeIs(3));

    const std::string path = at.index.indexURL().path();
    const std::string whole = platform::readWholeFile(path, 1U << 20U).value();
    const auto afterWriting = [&](const std::string& text) {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
        const auto history = at.told();
        EXPECT_THAT(history.lines, SizeIs(3));
        EXPECT_EQ(platform::readWholeFile(path, 1U << 20U), whole);
        return history.wasMadeAnew;
    };
    EXPECT_FALSE(afterWriting(whole));
    EXPECT_TRUE(afterWriting(""));
    EXPECT_TRUE(afterWriting("{}\n" + whole));
    for (std::size_t cut = 1; cut < whole.size(); cut += whole.size() / 20) {
        EXPECT_TRUE(afterWriting(whole.substr(0, cut)));
        std::string changed = whole;
        changed[cut] ^= 1; // a number perhaps, which reads as well as the right one
        EXPECT_TRUE(afterWriting(changed)) << "byte " << cut;
    }
    std::filesystem::remove(at.ledgerURL.path());
    EXPECT_THAT(at.told().lines, SizeIs(1));
    // What cannot be read is told, and the index that was there stays.
    std::ofstream(at.ledgerURL.path()) << "damaged";
    EXPECT_FALSE(at.index.history());
}

TEST(CleanupHistoryIndex, TellsALongHistoryAtOnce) {
    HistoryPlace at;
    std::vector<CleanupReceipt> receipts;
    constexpr std::size_t count = 50;
    for (std::size_t i = 0; i < count; ++i)
        receipts.push_back(receiptWith(2'000, 1'000.0 * double(i)));
    ASSERT_TRUE(platform::makePrivateFolder(at.ledgerURL.parent().path()));
    ASSERT_TRUE(platform::writeDurably(at.ledgerURL.path(), ledgerText(receipts, at.key)));
    const auto millisecondsToTell = [&] {
        const auto begun = std::chrono::steady_clock::now();
        EXPECT_THAT(at.index.history()->lines, SizeIs(count));
        const auto took = std::chrono::steady_clock::now() - begun;
        return std::chrono::duration<double, std::milli>(took).count();
    };
    const double made = millisecondsToTell();
    const double told = millisecondsToTell();
    std::printf("100,000 items in %zu receipts: made in %.1f ms, told in %.2f ms\n", count, made,
                told);
    EXPECT_LT(told, made);
}

} // namespace
} // namespace tidyro

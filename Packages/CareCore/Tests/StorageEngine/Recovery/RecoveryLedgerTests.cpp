#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Base/Base64.h"
#include "Base/JSONCoding.h"
#include "CareDomain/SampleRecords.h"
#include "Platform/Files/DurableFile.h"
#include "Platform/Machine/SealedBox.h"
#include "StorageEngine/Recovery/RecoveryLedger.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Kind = RecoveryLedgerError::Kind;

constexpr double day = 86'400;

/// A receipt of a day, kept for ninety.
CleanupReceipt receiptOfDay(double number) {
    auto receipt = testing::sample<CleanupReceipt>(static_cast<std::uint64_t>(number));
    receipt.createdAt = Timestamp::sinceReference(number * day);
    receipt.retainUntil = receipt.createdAt.adding(90 * day);
    return receipt;
}

Timestamp dayNumber(double number) { return Timestamp::sinceReference(number * day); }

struct LedgerPlace {
    testing::TemporaryFolder place;
    FileURL file = FileURL::file(place / "Harborline/Recovery/ledger.json");
    FileURL keyFile = FileURL::file(place / "Harborline/Keys/recovery-ledger.key");
    std::string key = std::string(32, 'k');

    [[nodiscard]] JSONRecoveryLedger open() const { return *JSONRecoveryLedger::open(file, key); }
    [[nodiscard]] std::string text() const {
        return platform::readWholeFile(file.path(), 1U << 24U).value_or("unreadable");
    }
};

TEST(RecoveryLedger, KeepsReceiptsSealed) {
    const LedgerPlace at;
    auto ledger = at.open();
    EXPECT_THAT(*ledger.receipts(dayNumber(1)), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(at.file.path()));
    ASSERT_TRUE(ledger.append(receiptOfDay(1)));
    ASSERT_TRUE(ledger.append(receiptOfDay(2)));
    const std::string first = at.text();
    CleanupReceipt again = receiptOfDay(1);
    again.actuallyReclaimedByteCount = 7;
    ASSERT_TRUE(ledger.append(again));
    EXPECT_THAT(*at.open().receipts(dayNumber(2)), ElementsAre(again, receiptOfDay(2)));
    EXPECT_TRUE(at.text().starts_with(R"({"version":1,"algorithm":"AES.GCM","sealedPayload":")"));
    EXPECT_EQ(at.text().find("file:"), std::string::npos);
    EXPECT_NE(at.text().substr(0, 70), first.substr(0, 70)) << "each write has its own nonce";
    struct stat status{};
    ASSERT_EQ(::stat(at.file.path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    ASSERT_EQ(::stat(at.file.parent().path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0700U);
}

TEST(RecoveryLedger, KeepsALongReceiptThatIsWrittenInPieces) {
    // Whatever the length, the base64 goes on over the ends of the pieces.
    for (const std::size_t more : {0U, 1U, 2U}) {
        const LedgerPlace at;
        CleanupReceipt receipt = receiptOfDay(1);
        receipt.entries.resize(1);
        receipt.entries.resize(1'000, receipt.entries.front());
        receipt.entries.back().failureDescription = std::string(300'000 + more, 'x');
        ASSERT_TRUE(at.open().append(receiptOfDay(2)));
        ASSERT_TRUE(at.open().append(receipt));
        EXPECT_THAT(*at.open().receipts(dayNumber(3)), ElementsAre(receiptOfDay(2), receipt));
        EXPECT_EQ(receiptsInLedger(at.text(), at.key)->size(), 2U);
    }
}

TEST(RecoveryLedger, DropsWhatIsOverButNotByAWrongClock) {
    const LedgerPlace at;
    auto ledger = at.open();
    for (const double number : {1.0, 50.0, 100.0}) {
        ASSERT_TRUE(ledger.append(receiptOfDay(number)));
    }
    EXPECT_THAT(*ledger.receipts(dayNumber(90.9)), SizeIs(3));
    EXPECT_THAT(*ledger.receipts(dayNumber(91)), ElementsAre(receiptOfDay(50), receiptOfDay(100)));
    EXPECT_THAT(*ledger.storedReceipts(), SizeIs(2)) << "gone from the file";
    EXPECT_THAT(*ledger.receipts(dayNumber(9'000)), IsEmpty());
    EXPECT_THAT(*ledger.receipts(dayNumber(120)), SizeIs(2)) << "the clock was set right again";

    auto needing = JSONRecoveryLedger::open(
        at.file, at.key,
        {.isStillNeeded = [](const CleanupReceipt& each) { return each == receiptOfDay(50); }});
    ASSERT_TRUE(needing->append(receiptOfDay(200)));
    EXPECT_THAT(*needing->receipts(dayNumber(200)), ElementsAre(receiptOfDay(200)));
    EXPECT_THAT(*needing->storedReceipts(), ElementsAre(receiptOfDay(50), receiptOfDay(200)));
}

TEST(RecoveryLedger, NeverReplacesWhatItCannotRead) {
    const LedgerPlace at;
    ASSERT_TRUE(at.open().append(receiptOfDay(1)));
    const std::string good = at.text();
    std::string other = at.key;
    other[5] = 'x';
    const auto kindFor = [&](const std::string& text, const std::string& key) {
        std::ofstream(at.file.path(), std::ios::trunc) << text;
        auto ledger = *JSONRecoveryLedger::open(at.file, key);
        const auto read = ledger.receipts(dayNumber(1));
        EXPECT_FALSE(read);
        EXPECT_FALSE(ledger.append(receiptOfDay(2)));
        EXPECT_EQ(at.text(), text) << "it was replaced";
        EXPECT_FALSE(std::filesystem::exists(at.file.path() + ".partial"));
        return read ? Kind::unwritable : read.error().kind;
    };
    const auto replaced = [&](std::string_view from, std::string_view to) {
        std::string text = good;
        return text.replace(text.find(from), from.size(), to);
    };
    EXPECT_EQ(kindFor(good, other), Kind::malformedEnvelope);
    EXPECT_EQ(kindFor("", at.key), Kind::malformedEnvelope);
    EXPECT_EQ(kindFor(good.substr(0, good.size() / 2), at.key), Kind::malformedEnvelope);
    EXPECT_EQ(kindFor(replaced("\"version\":1", "\"version\":2"), at.key), Kind::malformedEnvelope);
    EXPECT_EQ(kindFor(replaced("AES.GCM", "AES.CBC"), at.key), Kind::malformedEnvelope);
    EXPECT_EQ(kindFor(replaced("\"}", "=\"}"), at.key), Kind::malformedEnvelope);
    EXPECT_EQ(kindFor(R"({"version":1,"algorithm":"AES.GCM","sealedPayload":")" +
                          base64Text(platform::seal(std::as_bytes(std::span(at.key)),
                                                    R"({"receipts":1})")) +
                          "\"}",
                      at.key),
              Kind::malformedEnvelope);
    std::filesystem::remove(at.file.path());
    std::filesystem::create_directory(at.file.path());
    EXPECT_EQ(at.open().receipts(dayNumber(1)).error().kind, Kind::unreadable);

    const auto refused = JSONRecoveryLedger::open(at.file, "too short");
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().description(),
              "Tidyro could not unlock your cleanup history because its protection key isn't set "
              "up correctly. Restarting Tidyro may fix this. If it keeps happening, reset the "
              "history in Settings.");
}

TEST(RecoveryLedger, LosesNothingToAnotherWriter) {
    const LedgerPlace at;
    std::vector<std::thread> writers;
    for (std::size_t writer = 0; writer < 3; ++writer) {
        writers.emplace_back([&, writer] {
            auto ledger = at.open();
            for (std::size_t i = 0; i < 5; ++i) {
                CleanupReceipt receipt = receiptOfDay(1);
                receipt.id =
                    UUID({static_cast<std::uint8_t>(writer), static_cast<std::uint8_t>(i)});
                EXPECT_TRUE(ledger.append(receipt));
            }
        });
    }
    for (std::thread& writer : writers) writer.join();
    EXPECT_THAT(*at.open().storedReceipts(), SizeIs(15));
}

TEST(RecoveryLedgerKey, IsMadeOnceAndNeverForALedgerThatHasOne) {
    const LedgerPlace at;
    const auto key = recoveryLedgerKey(at.keyFile, at.file);
    ASSERT_TRUE(key);
    EXPECT_THAT(*key, SizeIs(32));
    EXPECT_EQ(recoveryLedgerKey(at.keyFile, at.file), key);
    struct stat status{};
    ASSERT_EQ(::stat(at.keyFile.path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    ASSERT_EQ(::stat(at.keyFile.parent().path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0700U);
    std::size_t files = 0;
    for ([[maybe_unused]] const auto& each :
         std::filesystem::directory_iterator(at.keyFile.parent().path())) {
        ++files;
    }
    EXPECT_EQ(files, 1U) << "the key lies there twice";

    ASSERT_TRUE(JSONRecoveryLedger::open(at.file, *key)->append(receiptOfDay(1)));
    for (const std::size_t length : {0U, 15U, 33U, 64U}) {
        std::ofstream(at.keyFile.path(), std::ios::trunc) << std::string(length, 'x');
        EXPECT_EQ(recoveryLedgerKey(at.keyFile, at.file).error().kind,
                  Kind::invalidEncryptionKeyLength);
    }
    for (const std::size_t length : {16U, 24U}) {
        std::ofstream(at.keyFile.path(), std::ios::trunc) << std::string(length, 'x');
        EXPECT_EQ(recoveryLedgerKey(at.keyFile, at.file), std::string(length, 'x'));
    }
    std::filesystem::remove(at.keyFile.path());
    EXPECT_EQ(recoveryLedgerKey(at.keyFile, at.file).error().kind,
              Kind::invalidEncryptionKeyLength);
    EXPECT_FALSE(std::filesystem::exists(at.keyFile.path()));
}

TEST(RecoveryLedgerKey, IsTheSameForAllWhoAskAtOnce) {
    const LedgerPlace at;
    std::vector<std::string> keys(8);
    std::vector<std::thread> askers;
    for (std::string& key : keys) {
        askers.emplace_back([&] { key = recoveryLedgerKey(at.keyFile, at.file).value_or("none"); });
    }
    for (std::thread& asker : askers) asker.join();
    EXPECT_THAT(keys, ::testing::Each(keys.front()));
    EXPECT_THAT(keys.front(), SizeIs(32));
}

} // namespace
} // namespace tidyro

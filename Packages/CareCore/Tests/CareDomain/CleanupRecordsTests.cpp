#include <algorithm>
#include <cstdint>
#include <iterator>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Base/JSONCoding.h"
#include "Base/StableHash.h"
#include "CareDomain/CleanupCandidate.h"
#include "CareDomain/CleanupPlan.h"
#include "CareDomain/CleanupReceipt.h"
#include "CareDomain/PermanentCleanupAcknowledgement.h"
#include "CareDomain/SampleRecords.h"
#include "Platform/Machine/OperatingSystem.h"

namespace tidyro {
namespace {

using ::testing::ElementsAre;

TEST(CleanupRecords, AreUsedAsTheirHeadersSay) {
    const ReclaimGoal goal{.byteCount = 1'000'000};
    const std::string text = jsonText(toJSON(goal));
    EXPECT_EQ(text, R"({"byteCount":1000000})");
    EXPECT_EQ(fromJSONText<ReclaimGoal>(text), goal);

    const FileURL url = FileURL::file("/home/ada/Downloads/old.dmg");
    const CleanupAuthorization picked{authorization::DiskItem{.itemURL = url}};
    EXPECT_EQ(picked.provenanceSummary(), "old.dmg, which you chose");
}

TEST(CleanupEvidence, HasOneFormWhateverTheOrder) {
    using enum EvidenceCode;
    const CleanupEvidence written{
        .codes = {verifiedBuiltInRule, oldEnough, activeGrowth, oldEnough}, .summary = "s"};
    EXPECT_EQ(jsonText(toJSON(written)),
              R"({"codes":["activeGrowth","oldEnough","verifiedBuiltInRule"],"summary":"s"})");
    const auto read = fromJSONText<CleanupEvidence>(
        R"({"codes":["oldEnough","verifiedBuiltInRule","oldEnough","activeGrowth"],"summary":"s"})");
    ASSERT_TRUE(read);
    EXPECT_EQ(*read, written);
    EXPECT_EQ(stableHash(*read), stableHash(written));

    const EvidenceCodes all(allCases<EvidenceCode>());
    EXPECT_EQ(all.size(), 24U);
    EXPECT_TRUE(std::ranges::is_sorted(std::vector<EvidenceCode>(all.begin(), all.end()),
                                       EvidenceCodes::ByRawText()));
    for (const EvidenceCode code : allCases<EvidenceCode>()) {
        const EvidenceCodes one{code};
        EXPECT_EQ(std::vector<EvidenceCode>(one.begin(), one.end()), std::vector{code});
        EXPECT_TRUE(one.contains(code) && !EvidenceCodes().contains(code));
    }
}

TEST(CleanupCategory, FewMayBeCleanedUnasked) {
    std::vector<CleanupCategory> allowed;
    std::ranges::copy_if(allCases<CleanupCategory>(), std::back_inserter(allowed),
                         mayBeAllowlistedForSafeCleanup);
    EXPECT_THAT(allowed,
                ElementsAre(CleanupCategory::regenerableCache, CleanupCategory::temporaryArtifact,
                            CleanupCategory::expiredLog, CleanupCategory::appTemporaryData));
}

TEST(CleanupExecutionMode, SaysHowThingsComeBack) {
    using enum CleanupExecutionMode;
    EXPECT_EQ(recoveryMethod(simulation), "Simulation only; no file is moved or deleted.");
    EXPECT_EQ(recoveryMethod(recoverable), platform::systemText(SystemText::movedToTrash));
    EXPECT_EQ(recoveryMethod(permanent), "Removed permanently. This cannot be undone.");
    EXPECT_FALSE(changesTheFilesystem(simulation));
    EXPECT_TRUE(changesTheFilesystem(recoverable) && changesTheFilesystem(permanent));
}

// The order of the cases is their rank; what the language calls otherwise keeps its text.
TEST(RiskTier, RanksFromSafeToProtected) {
    std::vector<std::string_view> texts;
    for (const RiskTier tier : allCases<RiskTier>()) texts.push_back(rawValue(tier));
    EXPECT_THAT(texts, ElementsAre("safeToReclaim", "reviewCarefully", "protected"));
    EXPECT_LT(RiskTier::reviewCarefully, RiskTier::protected_);
}

TEST(CleanupCandidate, IsAuthorizedAnew) {
    auto candidate = testing::sample<CleanupCandidate>();
    candidate.observation.url = FileURL::file("/" + std::string(100, 'x'));
    const CleanupAuthorization chosen{authorization::UserSelectedRoot{.url = FileURL()}};
    CleanupCandidate expected = candidate;
    expected.authorization = chosen;
    const CleanupCandidate before = candidate;
    EXPECT_EQ(candidate.authorized(chosen), expected);
    EXPECT_EQ(candidate, before);

    const char* path = candidate.observation.url.path().data();
    const CleanupCandidate moved = std::move(candidate).authorized(chosen);
    EXPECT_EQ(moved, expected);
    EXPECT_EQ(moved.observation.url.path().data(), path);
}

TEST(CleanupPlan, AddsUpItsProofCardsWithoutWrapping) {
    auto plan = testing::sample<CleanupPlan>();
    plan.entries[0].proofCard.byteCount = UINT64_MAX - 5;
    plan.entries[1].proofCard.byteCount = 5;
    EXPECT_EQ(plan.potentiallyReclaimableByteCount(), UINT64_MAX);
    plan.entries.push_back(plan.entries[1]);
    EXPECT_EQ(plan.potentiallyReclaimableByteCount(), UINT64_MAX);
    plan.entries.clear();
    EXPECT_EQ(plan.potentiallyReclaimableByteCount(), 0U);
}

TEST(PermanentCleanupAcknowledgement, CountsWhatWillBeDeleted) {
    const LocaleText german({.decimalPoint = ",", .groupSeparator = "."});
    for (const auto& [count, counted] : std::vector<std::pair<std::int64_t, std::string>>{
             {0, "0 items"},
             {1, "1 item"},
             {2, "2 items"},
             {1'234'567, "1.234.567 items"},
             {-1, "-1 items"},
             {std::numeric_limits<std::int64_t>::min(), "-9.223.372.036.854.775.808 items"}}) {
        EXPECT_EQ(PermanentCleanupAcknowledgement::destructiveActionTitle(count, german),
                  "Permanently delete " + counted);
    }
}

TEST(CleanupReceipt, TotalsEachOutcomeByItself) {
    using enum CleanupMoveDisposition;
    struct Case {
        std::vector<std::pair<CleanupMoveDisposition, std::uint64_t>> outcomes;
        std::uint64_t trashed;
        std::uint64_t removed;
        std::uint64_t onlySimulated;
        bool isPermanent;
    };
    for (const auto& [outcomes, trashed, removed, onlySimulated, isPermanent] : std::vector<Case>{
             {{}, 0, 0, 0, false},
             {{{failed, 8}, {refused, 16}}, 0, 0, 0, false},
             {{{movedToTrash, 1}, {simulated, 2}, {movedToTrash, 4}, {failed, 8}}, 5, 0, 2, false},
             {{{permanentlyRemoved, 0}}, 0, 0, 0, true},
             {{{movedToTrash, UINT64_MAX},
               {permanentlyRemoved, UINT64_MAX},
               {simulated, UINT64_MAX},
               {movedToTrash, 2},
               {permanentlyRemoved, 2},
               {simulated, 2}},
              UINT64_MAX,
              UINT64_MAX,
              UINT64_MAX,
              true}}) {
        auto receipt = testing::sample<CleanupReceipt>();
        receipt.entries.clear();
        for (const auto& [disposition, bytes] : outcomes) {
            auto entry = testing::sample<CleanupReceiptEntry>();
            entry.disposition = disposition;
            entry.byteCount = bytes;
            receipt.entries.push_back(entry);
        }
        EXPECT_EQ(receipt.movedToTrashByteCount(), trashed);
        EXPECT_EQ(receipt.permanentlyRemovedByteCount(), removed);
        EXPECT_EQ(receipt.simulatedByteCount(), onlySimulated);
        EXPECT_EQ(receipt.isPermanent(), isPermanent);
        EXPECT_TRUE(receipt.isRetained(receipt.retainUntil.adding(-0.001)));
        EXPECT_FALSE(receipt.isRetained(receipt.retainUntil));
    }
}

} // namespace
} // namespace tidyro

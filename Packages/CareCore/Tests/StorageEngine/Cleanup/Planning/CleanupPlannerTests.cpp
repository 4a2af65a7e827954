#include "StorageEngine/Cleanup/Planning/CleanupPlanner.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <limits>
#include <random>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace tidyro {
namespace {

using enum CleanupExecutionMode;

const FileURL home = FileURL::folder("/home/Ada");
constexpr Timestamp now = Timestamp::sinceReference(800'000'000);
constexpr std::uint64_t megabyte = 1'000'000;

CleanupCandidate candidate(const std::string& path, std::uint64_t bytes,
                           RiskTier tier = RiskTier::safeToReclaim,
                           CleanupCategory category = CleanupCategory::regenerableCache) {
    return {.observation = {.id = {path},
                            .url = home.appending(path),
                            .kind = FileKind::regularFile,
                            .byteCount = bytes,
                            .modificationDate = now.adding(-1'000),
                            .volumeIdentifier = "disk",
                            .fileResourceIdentifier = "1:2",
                            .isReadable = true,
                            .isCloudPlaceholder = false,
                            .isInProjectRepository = false,
                            .isBackupArtifact = false,
                            .linkCount = 1},
            .category = category,
            .assessment = {.tier = tier,
                           .evidence = {.codes = {EvidenceCode::regenerable}, .summary = "Old."}},
            .authorization = CleanupAuthorization{authorization::BuiltInRule{
                .id = "rule", .rootURL = home.appendingFolder("caches")}}};
}

/// The ids of the entries, one after another, or the error.
std::string told(const std::expected<CleanupPlan, CleanupPlanningError>& plan) {
    if (!plan) return std::string(description(plan.error()));
    std::string names;
    for (const CleanupPlanEntry& entry : plan->entries) {
        names += (names.empty() ? "" : " ") + entry.candidateID.rawValue;
    }
    return names;
}

TEST(CleanupPlanner, OrdersAndStopsAtTheGoal) {
    using enum RiskTier;
    const CleanupPlanner planner(CleanupPlanner::hour, home);
    const std::vector<LocalItemID> approved{{"r2"}, {"p"}, {"nobody"}};
    const std::vector<LocalItemID> preferred{{"r2"}, {"c"}, {"gone"}, {"a"}, {"c"}};
    const auto plan = [&](std::uint64_t goal, bool isEvery,
                          std::span<const LocalItemID> order = {}) {
        return told(planner.makePlan(
            {.goal = {.byteCount = goal},
             .candidates = {candidate("c", 400 * megabyte), candidate("b2", 500 * megabyte),
                            candidate("a", 600 * megabyte), candidate("b1", 500 * megabyte),
                            candidate("r1", 900 * megabyte, reviewCarefully),
                            candidate("r2", 800 * megabyte, reviewCarefully),
                            candidate("p", 700 * megabyte, protected_),
                            candidate("twice", 1, protected_), candidate("twice", 5'000 * megabyte),
                            candidate("empty", 0)},
             .mode = recoverable,
             .preferredOrder = order,
             .explicitlyApprovedReviewItems = approved,
             .includeEveryEligibleCandidate = isEvery,
             .now = now}));
    };
    EXPECT_EQ(plan(1'000 * megabyte, false), "a b1");
    EXPECT_EQ(plan(600 * megabyte, false), "a") << "reached, not passed";
    EXPECT_EQ(plan(600 * megabyte + 1, false), "a b1");
    EXPECT_EQ(plan(0, true), "a b1 b2 c empty r2");
    EXPECT_EQ(plan(1, true), "a b1 b2 c empty r2");
    EXPECT_EQ(plan(0, true, preferred), "c a b1 b2 empty r2") << "within a tier only";
    EXPECT_EQ(plan(std::numeric_limits<std::uint64_t>::max(), false), "a b1 b2 c empty r2");
    EXPECT_EQ(plan(0, false),
              "Tidyro wasn't given an amount of space to free up, so it has nothing to plan. "
              "Choose how much space to reclaim, or select specific items, and try again.");
}

/// Many items of few sizes, whose ids begin alike, go on with zeros, or are the beginning of
/// others.
TEST(CleanupPlanner, OrdersManyItemsAsComparingThemOneByOneDoes) {
    std::mt19937 random(7);
    const auto below = [&](std::size_t bound) { return random() % bound; };
    for (int round = 0; round < 50; ++round) {
        std::vector<CleanupCandidate> candidates;
        std::set<std::pair<std::uint64_t, std::string>> naive; // the largest first
        for (std::size_t i = 0; i < 400; ++i) {
            std::string id = "caches/a folder whose name is long/";
            const std::string_view letters("a\0\xFF", 3);
            for (std::size_t left = below(40); left > 0; --left) id += letters[below(3)];
            const std::uint64_t bytes = 1 + below(2);
            const bool isNew = std::ranges::none_of(
                candidates, [&](const CleanupCandidate& one) { return one.id().rawValue == id; });
            candidates.push_back(candidate("caches/x", bytes));
            candidates.back().observation.id.rawValue = id;
            if (isNew) naive.emplace(2 - bytes, id);
        }
        const auto plan = CleanupPlanner(1, home).makeExactPlan(
            {.candidates = candidates, .mode = simulation, .now = now});
        ASSERT_EQ(plan->entries.size(), naive.size());
        std::size_t at = 0;
        for (const auto& [rest, id] : naive) {
            ASSERT_EQ(plan->entries[at].candidateID.rawValue, id);
            ASSERT_EQ(plan->entries[at++].fingerprint.byteCount, 2 - rest);
        }
    }
}

TEST(CleanupPlanner, PutsWhatWasApprovedOnEachEntry) {
    const std::vector<LocalItemID> approved{{".Ollama/models/x"}, {"talk"}, {"download"}};
    const CleanupPlanner planner(0, home);
    std::vector<CleanupCandidate> candidates{
        candidate(".Ollama/models/x", 7),
        candidate("talk", 3, RiskTier::safeToReclaim, CleanupCategory::archivedConversation),
        candidate("cache", 5),
        candidate("download", 2, RiskTier::reviewCarefully, CleanupCategory::download)};
    const CleanupCandidate model = candidates.front();
    const auto plan = planner.makeExactPlan({.candidates = candidates,
                                             .mode = recoverable,
                                             .explicitlyApprovedReviewItems = approved,
                                             .purpose = "A film",
                                             .now = now});
    ASSERT_EQ(told(plan), "cache .Ollama/models/x talk download");
    EXPECT_EQ(plan->goal, (ReclaimGoal{.byteCount = 17, .purpose = "A film"}));
    EXPECT_EQ(plan->createdAt, now);
    EXPECT_EQ(plan->expiresAt, now.adding(1)) << "a lifetime below a second is one";
    EXPECT_EQ(plan->mode, recoverable);
    EXPECT_EQ(plan->entries[0].approvalRequirement, ApprovalRequirement::planLevel);
    EXPECT_EQ(plan->entries[0].proofCard.evidence.summary.text(), "Old.");
    const CleanupPlanEntry& entry = plan->entries[1];
    EXPECT_EQ(entry.sourceURL, model.observation.url);
    EXPECT_TRUE(entry.fingerprint.matches(model.observation));
    EXPECT_EQ(entry.authorization, model.authorization);
    EXPECT_EQ(entry.approvalRequirement, ApprovalRequirement::itemLevel);
    EXPECT_EQ(entry.proofCard,
              (ProofCard{.category = CleanupCategory::regenerableCache,
                         .riskTier = RiskTier::reviewCarefully,
                         .evidence = {.codes = {EvidenceCode::userReviewRequired,
                                                EvidenceCode::regenerable},
                                      .summary = "Old. Sessions, local models and container data "
                                                 "always need your review."},
                         .byteCount = 7,
                         .recoveryMethod = SharedText::lasting(recoveryMethod(recoverable))}));
    EXPECT_EQ(plan->entries[2].proofCard.riskTier, RiskTier::reviewCarefully);
    EXPECT_EQ(plan->entries[3].proofCard.evidence.summary.text(), "Old.") << "is not said twice";

    const auto another =
        planner.makeExactPlan({.candidates = candidates, .mode = simulation, .now = now});
    ASSERT_EQ(told(another), "cache");
    EXPECT_NE(another->id, plan->id);
    EXPECT_EQ(another->entries[0].proofCard.recoveryMethod.text(),
              "Simulation only; no file is moved or deleted.");
    for (const double lifetime : {std::numeric_limits<double>::infinity(),
                                  std::numeric_limits<double>::quiet_NaN(), -5.0}) {
        EXPECT_EQ(CleanupPlanner(lifetime, home).planLifetime(), 1) << lifetime;
    }
}

TEST(CleanupPlanner, RefusesAWholeSelection) {
    const CleanupPlanner planner(CleanupPlanner::hour, home);
    const auto permanently = [&](std::vector<CleanupCandidate> candidates) {
        const std::vector<LocalItemID> approved{{"r"}, {".docker/x"}};
        return told(planner.makeExactPlan({.candidates = std::move(candidates),
                                           .mode = permanent,
                                           .explicitlyApprovedReviewItems = approved,
                                           .now = now}));
    };
    const std::string refused =
        "Permanent removal only works on items rated Safe to Reclaim, and this selection includes "
        "something that isn't. No list was created and nothing was touched. Move these items to "
        "the Trash instead, or remove the ones that need your review from the selection.";
    EXPECT_EQ(permanently({candidate("a", 1), candidate("b", 1)}), "a b");
    EXPECT_EQ(permanently({candidate("a", 1), candidate("r", 1, RiskTier::reviewCarefully)}),
              refused);
    EXPECT_EQ(permanently({candidate("a", 1), candidate("p", 1, RiskTier::protected_)}), refused);
    EXPECT_EQ(permanently({candidate("a", 1), candidate(".docker/x", 1)}), refused);
    EXPECT_EQ(permanently({candidate("a", 1), candidate("a", 1, RiskTier::protected_)}), refused)
        << "one that is seen twice";

    const std::string nothing =
        "There's nothing eligible to clean in this selection, so no list was created. Everything "
        "here is either protected or hasn't been reviewed yet.";
    EXPECT_EQ(permanently({}), nothing);
    EXPECT_EQ(
        told(planner.makeExactPlan({.candidates = {candidate("r", 9, RiskTier::reviewCarefully),
                                                   candidate("p", 9, RiskTier::protected_)},
                                    .mode = recoverable,
                                    .now = now})),
        nothing);
}

} // namespace
} // namespace tidyro

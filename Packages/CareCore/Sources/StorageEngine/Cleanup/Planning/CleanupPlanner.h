#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Base/FileURL.h"
#include "Base/Timestamp.h"
#include "CareDomain/CleanupCandidate.h"
#include "CareDomain/CleanupPlan.h"

namespace tidyro {

/// Why there is no plan. Nothing was created and nothing was touched.
enum class CleanupPlanningError : std::uint8_t {
    emptyGoal,
    noEligibleCandidates,
    permanentCleanupRequiresSafeItems,
};

/// What a person is told.
[[nodiscard]] std::string_view description(CleanupPlanningError error);

/// Makes the exact, ordered and expiring list of items that a person is asked to approve.
///
///     const CleanupPlanner planner(CleanupPlanner::hour, home);
///     auto plan = planner.makePlan({.goal = {.byteCount = 1'000'000'000},
///                                   .candidates = std::move(candidates),
///                                   .mode = CleanupExecutionMode::recoverable,
///                                   .now = Timestamp::now()});
///     if (!plan) show(description(plan.error()));
///
/// It looks at nothing on the disk and changes nothing there. Immutable: any thread may ask.
class CleanupPlanner {
  public:
    /// How long plans live: those in memory an hour, those in a file a day.
    static constexpr double hour = 3'600;
    static constexpr double day = 86'400;

    /// `planLifetime` is in seconds. One that is below 1 or no finite number is raised to 1.
    CleanupPlanner(double planLifetime, FileURL home);

    [[nodiscard]] double planLifetime() const { return planLifetime_; }
    [[nodiscard]] const FileURL& home() const { return home_; }

    struct Request {
        ReclaimGoal goal;
        /// They are moved into the plan, so whoever needs them no more hands them over. Of several
        /// with one id the first counts.
        std::vector<CleanupCandidate> candidates;
        CleanupExecutionMode mode;
        /// Items that go first among those of one tier, in this order.
        std::span<const LocalItemID> preferredOrder = {};
        /// The items to review that the person let through one by one. No other item that needs
        /// review is planned.
        std::span<const LocalItemID> explicitlyApprovedReviewItems = {};
        bool includeEveryEligibleCandidate = false; ///< whatever the goal says
        Timestamp now;
    };
    /// Takes the eligible candidates until their bytes reach the goal: safe ones before those to
    /// review, preferred ones before others, large ones before small ones. Items in places of
    /// sessions, models and containers need review here, however they were rated.
    [[nodiscard]] std::expected<CleanupPlan, CleanupPlanningError> makePlan(Request request) const;

    struct ExactRequest {
        std::vector<CleanupCandidate> candidates;
        CleanupExecutionMode mode;
        std::span<const LocalItemID> explicitlyApprovedReviewItems = {};
        std::optional<std::string> purpose = std::nullopt;
        Timestamp now;
    };
    /// Makes the plan of exactly these items. Its goal is the sum of their bytes.
    [[nodiscard]] std::expected<CleanupPlan, CleanupPlanningError>
    makeExactPlan(ExactRequest request) const;

  private:
    double planLifetime_;
    FileURL home_;
};

} // namespace tidyro

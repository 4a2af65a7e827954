#include "StorageEngine/Cleanup/Planning/CleanupPlanner.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>

#include "Base/Fault.h"
#include "Base/Saturating.h"
#include "Base/StringTable.h"
#include "Platform/Machine/RandomUUID.h"
#include "StorageEngine/Rules/ReviewRequiredScope.h"

namespace tidyro {

namespace {

constexpr std::uint32_t notPreferred = std::numeric_limits<std::uint32_t>::max();

/// Asks the memory for a text some steps before it is read. The texts of what a scan sorted lie all
/// over the memory, and waiting for each one took half of the time of these loops.
void fetchEarly(std::string_view text) {
    constexpr std::size_t lineLength = 64;
    for (std::size_t at = 0; at < text.size(); at += lineLength) __builtin_prefetch(&text[at]);
}
constexpr std::size_t stepsAhead = 8;

/// Finds a candidate by its id. Half a million of them take a third of the time that the standard
/// table takes, which makes a block of memory for each.
class CandidatesByID {
  public:
    explicit CandidatesByID(const std::vector<CleanupCandidate>& candidates)
        : candidates_(candidates), slots_(std::bit_ceil(2 * candidates.size() + 1)) {}

    /// False for an id that one before it has.
    bool add(std::uint32_t index) {
        const std::string& id = candidates_[index].id().rawValue;
        const std::size_t hash = StringHash{}(id);
        Slot& slot = slots_[find(id, hash)];
        if (slot.index != none) return false;
        slot = {.hash = static_cast<std::uint32_t>(hash), .index = index};
        return true;
    }
    [[nodiscard]] std::optional<std::uint32_t> index(const LocalItemID& id) const {
        const Slot& slot = slots_[find(id.rawValue, StringHash{}(id.rawValue))];
        return slot.index == none ? std::nullopt : std::optional(slot.index);
    }

  private:
    static constexpr std::uint32_t none = std::numeric_limits<std::uint32_t>::max();
    struct Slot {
        std::uint32_t hash = 0; ///< tells most ids apart without looking at them
        std::uint32_t index = none;
    };

    /// The slot that has the id, or the free one that it would get. Half of them are free.
    [[nodiscard]] std::size_t find(std::string_view id, std::size_t hash) const {
        const std::size_t mask = slots_.size() - 1;
        std::size_t at = (hash >> 32U) & mask;
        while (slots_[at].index != none && (slots_[at].hash != static_cast<std::uint32_t>(hash) ||
                                            candidates_[slots_[at].index].id().rawValue != id)) {
            at = (at + 1) & mask;
        }
        return at;
    }

    const std::vector<CleanupCandidate>& candidates_;
    std::vector<Slot> slots_;
};

/// Where a candidate stands among the others.
struct Rank {
    RiskTier tier;
    std::uint32_t position; ///< in the preferred order
    std::uint64_t byteCount;
    std::uint32_t index;

    [[nodiscard]] bool isBefore(const Rank& other) const {
        if (tier != other.tier) return tier < other.tier;
        if (position != other.position) return position < other.position;
        return byteCount > other.byteCount;
    }
};

/// The candidates that may be planned, each id once. A candidate whose id was seen before is left
/// out even when the first one is not eligible: nobody can tell which of the two was approved.
std::vector<Rank> eligibleCandidates(const CleanupPlanner::Request& request) {
    const std::vector<CleanupCandidate>& candidates = request.candidates;
    struct Standing {
        bool isEligible = false;
        std::uint32_t position = notPreferred;
    };
    std::vector<Standing> standing(candidates.size());
    CandidatesByID byID(candidates);
    for (std::uint32_t i = 0; i < candidates.size(); ++i) {
        if (i + stepsAhead < candidates.size()) {
            fetchEarly(candidates[i + stepsAhead].id().rawValue);
        }
        standing[i].isEligible =
            byID.add(i) && candidates[i].assessment.tier == RiskTier::safeToReclaim;
    }
    for (const LocalItemID& approved : request.explicitlyApprovedReviewItems) {
        const auto index = byID.index(approved);
        if (index && candidates[*index].assessment.tier == RiskTier::reviewCarefully) {
            standing[*index].isEligible = true;
        }
    }
    std::uint32_t position = 0;
    for (const LocalItemID& preferred : request.preferredOrder) {
        const auto index = byID.index(preferred);
        if (index && standing[*index].position == notPreferred) {
            standing[*index].position = position++;
        }
    }
    std::vector<Rank> ranks;
    ranks.reserve(candidates.size());
    for (std::uint32_t i = 0; i < candidates.size(); ++i) {
        if (!standing[i].isEligible) continue;
        ranks.push_back({.tier = candidates[i].assessment.tier,
                         .position = standing[i].position,
                         .byteCount = candidates[i].potentiallyReclaimableByteCount(),
                         .index = i});
    }
    return ranks;
}

/// Sorts candidates by their ids. Ids are long, begin alike and lie all over the memory. So the
/// bytes behind the common beginning are laid beside each other, those are sorted, and only ids
/// that are alike in them are looked at again.
class SortingByID {
  public:
    explicit SortingByID(const std::vector<CleanupCandidate>& candidates)
        : candidates_(candidates) {}

    void sort(std::span<Rank> ranks) {
        keys_.clear();
        for (const Rank& rank : ranks) {
            const std::string& id = candidates_[rank.index].id().rawValue;
            keys_.push_back({.id = id, .index = rank.index});
        }
        if (std::ranges::is_sorted(keys_, {}, &Key::id)) return; // as a scan leaves them
        sort(std::span(keys_));
        for (std::size_t i = 0; i < keys_.size(); ++i) ranks[i].index = keys_[i].index;
    }

  private:
    /// Some bytes of the id, the first one highest, so that the numbers compare as the texts do. A
    /// text that ends before them has zeros there.
    struct Key {
        std::array<std::uint64_t, 2> bytes{};
        std::string_view id;
        std::uint32_t index;
    };
    static constexpr std::size_t bytesOfKey = 16;
    static constexpr std::size_t fewKeys = 8; ///< are not worth the passes

    static void sort(std::span<Key> keys) {
        if (keys.size() <= fewKeys) {
            std::ranges::sort(keys, {}, &Key::id);
            return;
        }
        const std::size_t common = commonLength(keys);
        for (Key& key : keys) key.bytes = bytesBehind(key.id, common);
        std::ranges::sort(keys, {}, &Key::bytes);
        for (std::size_t begin = 0, end = 1; begin < keys.size(); begin = end++) {
            while (end < keys.size() && keys[end].bytes == keys[begin].bytes) ++end;
            const auto alike = keys.subspan(begin, end - begin);
            // Zeros in a text and its end look the same, which would never come to an end.
            if (alike.size() == keys.size())
                std::ranges::sort(alike, {}, &Key::id);
            else if (alike.size() > 1)
                sort(alike);
        }
    }

    [[nodiscard]] static std::size_t commonLength(std::span<const Key> keys) {
        std::string_view common = keys.front().id;
        for (const Key& key : keys) {
            const auto differing = std::ranges::mismatch(common, key.id).in1;
            common = {common.begin(), differing};
        }
        return common.size();
    }

    [[nodiscard]] static std::array<std::uint64_t, 2> bytesBehind(std::string_view text,
                                                                  std::size_t common) {
        std::array<std::uint64_t, 2> bytes{};
        text = text.substr(common, bytesOfKey);
        for (std::size_t i = 0; i < text.size(); ++i) {
            const std::uint64_t byte = static_cast<unsigned char>(text[i]);
            bytes[i / 8] |= byte << (56 - 8 * (i % 8));
        }
        return bytes;
    }

    const std::vector<CleanupCandidate>& candidates_;
    std::vector<Key> keys_; ///< kept, since most runs are short
};

void sortRanks(const std::vector<CleanupCandidate>& candidates, std::span<Rank> ranks) {
    std::ranges::sort(ranks, [](const Rank& a, const Rank& b) {
        if (a.isBefore(b) || b.isBefore(a)) return a.isBefore(b);
        return a.index < b.index; // which keeps those together that lie together in memory
    });
    SortingByID byID(candidates);
    for (std::size_t begin = 0, end = 1; begin < ranks.size(); begin = end++) {
        while (end < ranks.size() && !ranks[begin].isBefore(ranks[end])) ++end;
        // All but the id is alike in these, so only their indices change places.
        if (end - begin > 1) byID.sort(ranks.subspan(begin, end - begin));
    }
}

/// Cuts the list off behind the candidate with which the bytes reach the goal.
void cutAtGoal(std::vector<Rank>& ranks, std::uint64_t goal) {
    std::uint64_t total = 0;
    std::size_t kept = 0;
    while (kept < ranks.size() && total < goal) {
        total = saturatingAdd(total, ranks[kept].byteCount);
        ++kept;
    }
    ranks.resize(kept);
}

CleanupPlanEntry entryFor(CleanupCandidate&& candidate, CleanupExecutionMode mode) {
    FileObservation& observation = candidate.observation;
    RiskAssessment& assessment = candidate.assessment;
    return {
        .candidateID = std::move(observation.id),
        .sourceURL = std::move(observation.url),
        .fingerprint = {.byteCount = observation.byteCount,
                        .modificationDate = observation.modificationDate,
                        .volumeIdentifier =
                            std::optional<std::string>(observation.volumeIdentifier),
                        .fileResourceIdentifier = std::move(observation.fileResourceIdentifier)},
        .proofCard = {.category = candidate.category,
                      .riskTier = assessment.tier,
                      .evidence = std::move(assessment.evidence),
                      .byteCount = observation.byteCount,
                      .recoveryMethod = SharedText::lasting(recoveryMethod(mode))},
        .approvalRequirement = assessment.tier == RiskTier::reviewCarefully
                                   ? ApprovalRequirement::itemLevel
                                   : ApprovalRequirement::planLevel,
        .authorization = std::move(candidate.authorization)};
}

} // namespace

std::string_view description(CleanupPlanningError error) {
    switch (error) {
    case CleanupPlanningError::emptyGoal:
        return "Tidyro wasn't given an amount of space to free up, so it has nothing to plan. "
               "Choose how much space to reclaim, or select specific items, and try again.";
    case CleanupPlanningError::noEligibleCandidates:
        return "There's nothing eligible to clean in this selection, so no list was created. "
               "Everything here is either protected or hasn't been reviewed yet.";
    case CleanupPlanningError::permanentCleanupRequiresSafeItems:
        return "Permanent removal only works on items rated Safe to Reclaim, and this selection "
               "includes something that isn't. No list was created and nothing was touched. Move "
               "these items to the Trash instead, or remove the ones that need your review from "
               "the selection.";
    }
    fault("an error of planning that does not exist");
}

CleanupPlanner::CleanupPlanner(double planLifetime, FileURL home)
    : planLifetime_(std::isfinite(planLifetime) ? std::max(planLifetime, 1.0) : 1.0),
      home_(std::move(home)) {}

std::expected<CleanupPlan, CleanupPlanningError> CleanupPlanner::makePlan(Request request) const {
    using enum CleanupPlanningError;
    if (request.goal.byteCount == 0 && !request.includeEveryEligibleCandidate) {
        return std::unexpected(emptyGoal);
    }
    require(request.candidates.size() < notPreferred, "a plan of more than four billion items");
    const bool isPermanent = request.mode == CleanupExecutionMode::permanent;
    const std::string homePrefix = loweredHomePrefix(home_);
    for (std::size_t i = 0; i < request.candidates.size(); ++i) {
        if (i + stepsAhead < request.candidates.size()) {
            fetchEarly(request.candidates[i + stepsAhead].observation.url.path());
        }
        CleanupCandidate& candidate = request.candidates[i];
        RiskAssessment& assessment = candidate.assessment;
        if (assessment.tier == RiskTier::safeToReclaim &&
            ReviewRequiredScope::needsReview(candidate.observation.url.path(), candidate.category,
                                             homePrefix)) {
            assessment = ReviewRequiredScope::downgraded(assessment);
        }
        if (isPermanent && candidate.assessment.tier != RiskTier::safeToReclaim) {
            return std::unexpected(permanentCleanupRequiresSafeItems);
        }
    }
    std::vector<Rank> selected = eligibleCandidates(request);
    sortRanks(request.candidates, selected);
    if (!request.includeEveryEligibleCandidate) cutAtGoal(selected, request.goal.byteCount);
    if (selected.empty()) return std::unexpected(noEligibleCandidates);

    CleanupPlan plan{.id = platform::randomUUID(),
                     .goal = std::move(request.goal),
                     .entries = {},
                     .createdAt = request.now,
                     .expiresAt = request.now.adding(planLifetime_),
                     .mode = request.mode};
    plan.entries.reserve(selected.size());
    for (const Rank& rank : selected) {
        plan.entries.push_back(entryFor(std::move(request.candidates[rank.index]), request.mode));
    }
    return plan;
}

std::expected<CleanupPlan, CleanupPlanningError>
CleanupPlanner::makeExactPlan(ExactRequest request) const {
    std::uint64_t total = 0;
    for (const CleanupCandidate& candidate : request.candidates) {
        total = saturatingAdd(total, candidate.potentiallyReclaimableByteCount());
    }
    return makePlan({.goal = {.byteCount = total, .purpose = std::move(request.purpose)},
                     .candidates = std::move(request.candidates),
                     .mode = request.mode,
                     .explicitlyApprovedReviewItems = request.explicitlyApprovedReviewItems,
                     .includeEveryEligibleCandidate = true,
                     .now = request.now});
}

} // namespace tidyro

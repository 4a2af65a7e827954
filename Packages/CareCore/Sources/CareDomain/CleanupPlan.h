#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Base/FileURL.h"
#include "Base/RawValues.h"
#include "Base/Record.h"
#include "Base/Saturating.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"
#include "CareDomain/CleanupAuthorization.h"
#include "CareDomain/FileFingerprint.h"
#include "CareDomain/FileObservation.h"
#include "CareDomain/ProofCard.h"

namespace tidyro {

/// How much space a cleanup should free.
struct ReclaimGoal {
    std::uint64_t byteCount;
    std::optional<std::string> purpose = std::nullopt;

    static constexpr auto fields() {
        return fieldList<ReclaimGoal>(field("byteCount", &ReclaimGoal::byteCount),
                                      field("purpose", &ReclaimGoal::purpose));
    }
    bool operator==(const ReclaimGoal&) const = default;
};

/// What it takes to approve an entry of a plan.
enum class ApprovalRequirement {
    planLevel, ///< the approval of the plan as a whole covers it
    itemLevel, ///< it must be approved by itself
};

constexpr RawValueTable<ApprovalRequirement, 2> rawValues(RawValueTag<ApprovalRequirement>) {
    return {{{{ApprovalRequirement::planLevel, "planLevel"},
              {ApprovalRequirement::itemLevel, "itemLevel"}}}};
}

/// One item of a plan.
struct CleanupPlanEntry {
    LocalItemID candidateID;
    FileURL sourceURL;
    FileFingerprint fingerprint; ///< of the item as it was planned, to recognise it later
    ProofCard proofCard;
    ApprovalRequirement approvalRequirement;
    std::optional<CleanupAuthorization> authorization = std::nullopt; ///< the candidate's

    static constexpr auto fields() {
        using Self = CleanupPlanEntry;
        return fieldList<Self>(
            field("candidateID", &Self::candidateID), field("sourceURL", &Self::sourceURL),
            field("fingerprint", &Self::fingerprint), field("proofCard", &Self::proofCard),
            field("approvalRequirement", &Self::approvalRequirement),
            field("authorization", &Self::authorization));
    }
    bool operator==(const CleanupPlanEntry&) const = default;
};

/// The exact list of items that the user is asked to approve.
struct CleanupPlan {
    UUID id; ///< new for every plan
    ReclaimGoal goal;
    std::vector<CleanupPlanEntry> entries; ///< in the order in which they are carried out
    Timestamp createdAt;
    Timestamp expiresAt;
    CleanupExecutionMode mode;

    /// The bytes on the entries' proof cards, saturating.
    [[nodiscard]] std::uint64_t potentiallyReclaimableByteCount() const {
        std::uint64_t total = 0;
        for (const CleanupPlanEntry& entry : entries) {
            total = saturatingAdd(total, entry.proofCard.byteCount);
        }
        return total;
    }

    static constexpr auto fields() {
        return fieldList<CleanupPlan>(
            field("id", &CleanupPlan::id), field("goal", &CleanupPlan::goal),
            field("entries", &CleanupPlan::entries), field("createdAt", &CleanupPlan::createdAt),
            field("expiresAt", &CleanupPlan::expiresAt), field("mode", &CleanupPlan::mode));
    }
    bool operator==(const CleanupPlan&) const = default;
};

} // namespace tidyro

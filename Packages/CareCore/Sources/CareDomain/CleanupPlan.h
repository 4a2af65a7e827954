#pragma once

#include <cstdint>
#include <vector>

#include "Base/Record.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"
#include "CareDomain/CleanupExecutionMode.h"
#include "CareDomain/CleanupPlanEntry.h"
#include "CareDomain/ReclaimGoal.h"

namespace tidyro {

/// The exact list that the user is asked to approve.
struct CleanupPlan {
    UUID id; ///< new for every plan
    ReclaimGoal goal;
    std::vector<CleanupPlanEntry> entries; ///< in the order in which they are carried out
    Timestamp createdAt;
    Timestamp expiresAt;
    CleanupExecutionMode mode;

    /// The bytes on the entries' proof cards, saturating.
    [[nodiscard]] std::uint64_t potentiallyReclaimableByteCount() const;

    static constexpr auto fields() {
        return fieldList<CleanupPlan>(
            field("id", &CleanupPlan::id), field("goal", &CleanupPlan::goal),
            field("entries", &CleanupPlan::entries), field("createdAt", &CleanupPlan::createdAt),
            field("expiresAt", &CleanupPlan::expiresAt), field("mode", &CleanupPlan::mode));
    }
    bool operator==(const CleanupPlan&) const = default;
};

} // namespace tidyro

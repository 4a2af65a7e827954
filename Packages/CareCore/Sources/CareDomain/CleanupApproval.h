#pragma once

#include <set>

#include "Base/Record.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"
#include "CareDomain/FileObservation.h"

namespace tidyro {

/// What the user approved of one plan.
struct CleanupApproval {
    UUID planID;
    std::set<LocalItemID> approvedCandidateIDs; ///< every entry that the user let through
    /// The entries among them that need an approval of their own and got it.
    std::set<LocalItemID> itemLevelApprovedCandidateIDs;
    Timestamp approvedAt;

    static constexpr auto fields() {
        using Self = CleanupApproval;
        return fieldList<Self>(
            field("planID", &Self::planID),
            field("approvedCandidateIDs", &Self::approvedCandidateIDs),
            field("itemLevelApprovedCandidateIDs", &Self::itemLevelApprovedCandidateIDs),
            field("approvedAt", &Self::approvedAt));
    }
    bool operator==(const CleanupApproval&) const = default;
};

} // namespace tidyro

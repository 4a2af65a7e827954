#pragma once

#include <optional>

#include "Base/FileURL.h"
#include "Base/Record.h"
#include "CareDomain/ApprovalRequirement.h"
#include "CareDomain/CleanupAuthorization.h"
#include "CareDomain/FileFingerprint.h"
#include "CareDomain/LocalItemID.h"
#include "CareDomain/ProofCard.h"

namespace tidyro {

/// One item of a plan.
struct CleanupPlanEntry {
    LocalItemID candidateID;
    FileURL sourceURL;
    FileFingerprint fingerprint; ///< when it was planned: what the item is recognised by later
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

} // namespace tidyro

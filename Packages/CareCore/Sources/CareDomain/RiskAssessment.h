#pragma once

#include "Base/Record.h"
#include "CareDomain/CleanupEvidence.h"
#include "CareDomain/RiskTier.h"

namespace tidyro {

/// The verdict on one item, with its reasons.
struct RiskAssessment {
    RiskTier tier;
    CleanupEvidence evidence;

    static constexpr auto fields() {
        return fieldList<RiskAssessment>(field("tier", &RiskAssessment::tier),
                                         field("evidence", &RiskAssessment::evidence));
    }
    bool operator==(const RiskAssessment&) const = default;
};

} // namespace tidyro

#pragma once

#include "Base/RawValues.h"
#include "Base/Record.h"
#include "CareDomain/CleanupEvidence.h"

namespace tidyro {

/// How careful a person has to be with an item. The order is the rank.
enum class RiskTier {
    safeToReclaim,   ///< may go when the plan is approved; permanent removal accepts nothing else
    reviewCarefully, ///< may go only when the item itself is approved
    protected_,      ///< never goes; "protected" is a word of the language
};

constexpr RawValueTable<RiskTier, 3> rawValues(RawValueTag<RiskTier>) {
    return {{{{RiskTier::safeToReclaim, "safeToReclaim"},
              {RiskTier::reviewCarefully, "reviewCarefully"},
              {RiskTier::protected_, "protected"}}}};
}

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

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Base/Record.h"
#include "CareDomain/CleanupCategory.h"
#include "CareDomain/CleanupEvidence.h"
#include "CareDomain/CleanupExecutionMode.h"
#include "CareDomain/RiskTier.h"

namespace tidyro {

/// Why one item of a plan may go, and how it could be got back: shown before it is approved.
struct ProofCard {
    CleanupCategory category;
    RiskTier riskTier;
    CleanupEvidence evidence;
    std::uint64_t byteCount;
    std::string recoveryMethod; ///< as `recoveryMethod(mode)` words it

    static constexpr auto fields() {
        return fieldList<ProofCard>(
            field("category", &ProofCard::category), field("riskTier", &ProofCard::riskTier),
            field("evidence", &ProofCard::evidence), field("byteCount", &ProofCard::byteCount),
            field("recoveryMethod", &ProofCard::recoveryMethod));
    }
    bool operator==(const ProofCard&) const = default;
};

/// How an item that went in this mode could be got back: one sentence for people.
[[nodiscard]] std::string_view recoveryMethod(CleanupExecutionMode mode);

} // namespace tidyro

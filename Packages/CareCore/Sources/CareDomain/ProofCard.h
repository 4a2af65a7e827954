#pragma once

#include <cstdint>
#include <string_view>

#include "Base/RawValues.h"
#include "Base/Record.h"
#include "Base/SharedText.h"
#include "CareDomain/CleanupCategory.h"
#include "CareDomain/CleanupEvidence.h"
#include "CareDomain/RiskAssessment.h"

namespace tidyro {

/// What carrying out a plan does to its items.
enum class CleanupExecutionMode {
    simulation,
    recoverable, ///< moves them to the Trash
    permanent,   ///< removes them for good
};

constexpr RawValueTable<CleanupExecutionMode, 3> rawValues(RawValueTag<CleanupExecutionMode>) {
    using enum CleanupExecutionMode;
    return {{{{simulation, "simulation"}, {recoverable, "recoverable"}, {permanent, "permanent"}}}};
}

[[nodiscard]] constexpr bool changesTheFilesystem(CleanupExecutionMode mode) {
    return mode != CleanupExecutionMode::simulation;
}

/// Why one item of a plan may go, and how it could be got back: shown before it is approved.
struct ProofCard {
    CleanupCategory category;
    RiskTier riskTier;
    CleanupEvidence evidence;
    std::uint64_t byteCount;
    SharedText recoveryMethod; ///< as `recoveryMethod(mode)` words it

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

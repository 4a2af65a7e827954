#pragma once

#include <cstdint>
#include <optional>
#include <type_traits>
#include <utility>

#include "Base/Record.h"
#include "CareDomain/CleanupAuthorization.h"
#include "CareDomain/CleanupCategory.h"
#include "CareDomain/FileObservation.h"
#include "CareDomain/RiskAssessment.h"

namespace tidyro {

/// One item that was rated and may be suggested for cleanup.
struct CleanupCandidate {
    FileObservation observation;
    CleanupCategory category;
    RiskAssessment assessment;
    /// Absent: nothing has yet allowed the item to be touched.
    std::optional<CleanupAuthorization> authorization = std::nullopt;

    [[nodiscard]] const LocalItemID& id() const { return observation.id; }
    [[nodiscard]] std::uint64_t potentiallyReclaimableByteCount() const {
        return observation.byteCount;
    }
    /// The same candidate under another authorization. A temporary candidate is moved, not copied.
    [[nodiscard]] CleanupCandidate authorized(CleanupAuthorization by) const& {
        return {.observation = observation,
                .category = category,
                .assessment = assessment,
                .authorization = std::move(by)};
    }
    [[nodiscard]] CleanupCandidate authorized(CleanupAuthorization by) && {
        authorization = std::move(by);
        return std::move(*this);
    }

    static constexpr auto fields() {
        using Self = CleanupCandidate;
        return fieldList<Self>(
            field("observation", &Self::observation), field("category", &Self::category),
            field("assessment", &Self::assessment), field("authorization", &Self::authorization));
    }
    bool operator==(const CleanupCandidate&) const = default;
};

// A scan makes hundreds of thousands of them. Lists must grow and be sorted by moving, not copying.
static_assert(std::is_nothrow_move_constructible_v<CleanupCandidate> &&
              std::is_nothrow_move_assignable_v<CleanupCandidate>);

} // namespace tidyro

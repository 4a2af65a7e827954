#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "Base/RawValues.h"
#include "Base/Record.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"
#include "CareDomain/FileObservation.h"

namespace tidyro {

/// Why an entry of a plan may not be carried out any more.
enum class RevalidationIssue : std::uint8_t {
    planExpired,
    itemMissing,
    itemChanged,
    protectedEntry,
    runtimeRestriction,
    authoritativePolicyMismatch,
    observationFailed,
    inUseByProcess,
};

constexpr RawValueTable<RevalidationIssue, 8> rawValues(RawValueTag<RevalidationIssue>) {
    using enum RevalidationIssue;
    return {{{{planExpired, "planExpired"},
              {itemMissing, "itemMissing"},
              {itemChanged, "itemChanged"},
              {protectedEntry, "protectedEntry"},
              {runtimeRestriction, "runtimeRestriction"},
              {authoritativePolicyMismatch, "authoritativePolicyMismatch"},
              {observationFailed, "observationFailed"},
              {inUseByProcess, "inUseByProcess"}}}};
}

/// What a person is told of the entry.
[[nodiscard]] std::string_view explanation(RevalidationIssue issue);

/// What the check of one entry found.
struct EntryRevalidation {
    LocalItemID candidateID;
    std::optional<RevalidationIssue> issue = std::nullopt; ///< absent: it may be carried out

    static constexpr auto fields() {
        return fieldList<EntryRevalidation>(field("candidateID", &EntryRevalidation::candidateID),
                                            field("issue", &EntryRevalidation::issue));
    }
    bool operator==(const EntryRevalidation&) const = default;
};

/// What the check of a plan found.
struct PlanRevalidationReport {
    UUID planID;
    Timestamp checkedAt;
    std::vector<EntryRevalidation> entries; ///< in the order of the plan

    static constexpr auto fields() {
        using Self = PlanRevalidationReport;
        return fieldList<Self>(field("planID", &Self::planID), field("checkedAt", &Self::checkedAt),
                               field("entries", &Self::entries));
    }
    bool operator==(const PlanRevalidationReport&) const = default;
};

} // namespace tidyro

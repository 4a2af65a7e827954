#pragma once

#include <cstdint>
#include <string_view>

#include "Base/RawValues.h"

namespace tidyro {

/// The person's setting for how old an item must be before a rule may offer it.
enum class CleanupAgeFloor : std::uint8_t {
    everything,
    recommended,
    ninetyDays,
    sixMonths,
    oneYear,
};

constexpr RawValueTable<CleanupAgeFloor, 5> rawValues(RawValueTag<CleanupAgeFloor>) {
    using enum CleanupAgeFloor;
    return {{{{everything, "everything"},
              {recommended, "recommended"},
              {ninetyDays, "ninetyDays"},
              {sixMonths, "sixMonths"},
              {oneYear, "oneYear"}}}};
}

/// Seconds that the setting itself asks for; 0 where it leaves the age to the rule or to nobody.
[[nodiscard]] double interval(CleanupAgeFloor floor);

/// The age in effect for a rule, from the rule's own minimum age; both in seconds. `everything`
/// lowers it to nothing, the fixed floors only ever raise it.
[[nodiscard]] double applied(CleanupAgeFloor floor, double minimumAge);

/// What people choose between, and what each choice means.
[[nodiscard]] std::string_view title(CleanupAgeFloor floor);
[[nodiscard]] std::string_view detailText(CleanupAgeFloor floor);

} // namespace tidyro

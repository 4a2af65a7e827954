#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string_view>

#include "Base/Timestamp.h"

namespace tidyro {

/// Numbers from `min` to `max`, both included. Empty when `min` is above `max`.
struct FindSpan {
    static constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
    static constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();

    std::int64_t min = lowest;
    std::int64_t max = highest;
    bool operator==(const FindSpan&) const = default;
};

/// Reads a single value: a size stands for itself, "2026-11" for all seconds of a month. Nothing
/// for a text that is no value.
using FindSpanReader = std::function<std::optional<FindSpan>(std::string_view)>;

/// Reads a value, a comparison with a value (">10", ">=10", "<10", "<=10", "=10"), or a range
/// ("1..2"), whose first or last value may be missing ("1..", "..2"). A range includes both values,
/// and the larger one may come first. "10+" means ">=10" and "10-" means "<=10": shells take the
/// other signs for themselves.
[[nodiscard]] std::optional<FindSpan> comparedSpan(std::string_view text,
                                                   const FindSpanReader& reader);

/// Reads sizes in bytes: a number, with or without a fraction, and a unit in any case. b, kb, mb,
/// gb and tb go up in steps of 1,000, kib, mib, gib and tib in steps of 1,024; k, m, g and t mean
/// kb, mb, gb and tb.
[[nodiscard]] std::optional<FindSpan> sizeSpan(std::string_view text);

/// Reads depths: how many folders lie above an entry, the root included.
[[nodiscard]] std::optional<FindSpan> depthSpan(std::string_view text);

/// Reads dates as seconds since 1970, in the time zone of the system: "today", "yesterday",
/// "thisweek", "lastweek", "thismonth", "lastmonth", "thisyear", "lastyear", "2026", "2026-11" or
/// "2026-11-21". Weeks begin on Monday. A range goes to the end of its last day.
///
/// An age is a number with a unit: s, min, h, d, w, mo (30 days) or y (365 days). "7d" and "<7d"
/// mean the last seven times 24 hours, ">2h" what is older than two hours. Only an age may end in
/// "-": "2026-" is a date that is not whole yet.
[[nodiscard]] std::optional<FindSpan> dateSpan(std::string_view text, Timestamp now);

} // namespace tidyro

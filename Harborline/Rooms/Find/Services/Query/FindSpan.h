#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string_view>

#include "Base/Timestamp.h"

namespace tidyro {

/// Numbers from one to another, both included; empty when `least` is above `most`.
struct FindSpan {
    static constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
    static constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();

    std::int64_t min = lowest;
    std::int64_t max = highest;
    bool operator==(const FindSpan&) const = default;
};

/// What a single value stands for: a size for itself, "2026-11" for all seconds of a month.
using FindSpanReader = std::function<std::optional<FindSpan>(std::string_view)>;

/// A value, a comparison with one (">10", ">=10", "<10", "<=10", "=10") or a range of two, of which
/// one may be missing ("1..2", "1..", "..2"). The ends of a range are in it, whichever comes first.
[[nodiscard]] std::optional<FindSpan> comparedSpan(std::string_view text,
                                                   const FindSpanReader& reader);

/// Bytes: a number, with a fraction if one likes, and a unit in any case: b, kb, mb, gb, tb in
/// steps of 1,000, kib, mib, gib, tib in steps of 1,024; k, m, g and t stand for the former.
[[nodiscard]] std::optional<FindSpan> sizeSpan(std::string_view text);

/// Folders below the root.
[[nodiscard]] std::optional<FindSpan> depthSpan(std::string_view text);

/// Seconds since 1970 that a person means by "today", "yesterday", "thisweek", "lastweek",
/// "thismonth", "lastmonth", "thisyear", "lastyear", "2026", "2026-11" or "2026-11-21", or by a
/// comparison or range of these, in the time zone of their system. Weeks begin on Monday, a range
/// goes up to the end of its last day.
[[nodiscard]] std::optional<FindSpan> dateSpan(std::string_view text, Timestamp now);

} // namespace tidyro

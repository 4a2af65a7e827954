#pragma once

#include <optional>
#include <string_view>

#include "Base/Timestamp.h"
#include "Rooms/Find/Services/Query/FindSpan.h"

namespace tidyro {

/// Seconds since 1970 that a person means by "today", "yesterday", "thisweek", "lastweek",
/// "thismonth", "lastmonth", "thisyear", "lastyear", "2026", "2026-11" or "2026-11-21", or by a
/// comparison or range of these, in the time zone of their system. Weeks begin on Monday, a range
/// goes up to the end of its last day.
[[nodiscard]] std::optional<FindSpan> dateSpan(std::string_view text, Timestamp now);

} // namespace tidyro

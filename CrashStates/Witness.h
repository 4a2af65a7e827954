#pragma once

#include <string>
#include <vector>

#include "Interrupted.h"

namespace tidyro::crash {

/// Asks a state that a crash left whether anything is lost, and settles it twice meanwhile. It
/// looks for the items by their contents alone, so that it shares no fault with what it judges.
///
/// `acknowledged` was told before the crash. Returns what is wrong, in sentences; nothing else is
/// left to do after it.
[[nodiscard]] std::vector<std::string> judge(const Places& places,
                                             const std::vector<Acknowledged>& acknowledged);

} // namespace tidyro::crash

#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Interrupted.h"

namespace tidyro::crash {

/// Asks a state that a crash left whether anything is lost, and has it settled twice meanwhile. It
/// looks for the items by their contents alone, so that it shares no fault with what it judges.
///
/// `acknowledged` was told before the crash. Returns what is wrong, in sentences; nothing else is
/// left to do after it.
[[nodiscard]] std::vector<std::string> judge(const Places& places,
                                             const std::vector<Acknowledged>& acknowledged,
                                             const std::function<void()>& settleAll);

} // namespace tidyro::crash

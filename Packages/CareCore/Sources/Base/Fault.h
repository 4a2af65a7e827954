#pragma once

#include <string_view>

namespace tidyro {

/// Ends the program with a reason on standard error. For programming faults only: what a user, a
/// file or the system can cause is an error value, never a fault.
[[noreturn]] void fault(std::string_view reason) noexcept;

/// Ends the program with status 1 because the system has no memory left for it. Nothing is saved:
/// files that matter are written so that the program may end at any moment.
[[noreturn]] void outOfMemory() noexcept;

/// A check that stays on in release builds.
///
///     require(node >= 0 && node < count(), "a node number is outside its tree");
inline void require(bool holds, std::string_view reason) noexcept {
    if (!holds) [[unlikely]]
        fault(reason);
}

} // namespace tidyro

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Base/LocaleText.h"

namespace tidyro {

/// The words that every room uses for amounts.
struct RoomText {
    /// The only formatter of sizes, in decimal units. "Zero KB" for 0, "1 byte", "999 bytes"; then
    /// KB without decimals, MB with at most one, GB and above with at most two. Trailing zeros go:
    /// "12 KB", "1.5 MB", "23.42 GB". Rounds half up; 999,500 bytes are "1 MB", not "1000 KB".
    [[nodiscard]] static std::string bytes(std::uint64_t count,
                                           const LocaleText& locale = LocaleText::current());

    /// "1 file", "2,000 files": the count and the noun that fits it.
    [[nodiscard]] static std::string counted(std::uint64_t count, std::string_view one,
                                             std::string_view many,
                                             const LocaleText& locale = LocaleText::current());
};

} // namespace tidyro

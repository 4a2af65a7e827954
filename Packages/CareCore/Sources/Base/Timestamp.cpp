#include "Base/Timestamp.h"

#include <algorithm>
#include <chrono>
#include <limits>

namespace tidyro {

Timestamp Timestamp::now() noexcept {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return since1970(std::chrono::duration<double>(sinceEpoch).count());
}

std::uint32_t compactSeconds(std::int64_t secondsSince1970) noexcept {
    constexpr std::int64_t latest = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(std::clamp<std::int64_t>(secondsSince1970, 0, latest));
}

std::int64_t nanosecondsSince1970(std::int64_t seconds, std::int64_t nanoseconds) noexcept {
    constexpr std::int64_t perSecond = 1'000'000'000;
    constexpr std::int64_t maxSeconds = std::numeric_limits<std::int64_t>::max() / perSecond - 1;
    return std::clamp(seconds, -maxSeconds, maxSeconds) * perSecond + nanoseconds;
}

} // namespace tidyro

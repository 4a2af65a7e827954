#include "Base/Calendar.h"

#include <cmath>
#include <ctime>

namespace tidyro {

DateComponents Calendar::components(Timestamp moment) const noexcept {
    const auto seconds = static_cast<std::time_t>(std::floor(moment.secondsSince1970()));
    std::tm parts{};
    if ((utc_ ? gmtime_r(&seconds, &parts) : localtime_r(&seconds, &parts)) == nullptr) {
        return {.year = 1970, .month = 1, .day = 1, .hour = 0, .minute = 0, .second = 0};
    }
    return {.year = parts.tm_year + 1900,
            .month = parts.tm_mon + 1,
            .day = parts.tm_mday,
            .hour = parts.tm_hour,
            .minute = parts.tm_min,
            .second = parts.tm_sec};
}

} // namespace tidyro

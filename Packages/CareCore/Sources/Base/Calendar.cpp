#include "Base/Calendar.h"

#include <chrono>
#include <cmath>
#include <cstdint>
#include <ctime>

namespace tidyro {

DateComponents Calendar::components(Timestamp moment) const noexcept {
    const auto seconds = static_cast<std::time_t>(std::floor(moment.secondsSince1970()));
    std::tm parts{};
    const bool isUTC = zone_ == Zone::utc;
    if ((isUTC ? gmtime_r(&seconds, &parts) : localtime_r(&seconds, &parts)) == nullptr) {
        return {.year = 1970, .month = 1, .day = 1, .hour = 0, .minute = 0, .second = 0};
    }
    return {.year = parts.tm_year + 1900,
            .month = parts.tm_mon + 1,
            .day = parts.tm_mday,
            .hour = parts.tm_hour,
            .minute = parts.tm_min,
            .second = parts.tm_sec};
}

Timestamp Calendar::beginningOfDay(int year, int month, int day) const noexcept {
    const auto wanted = std::chrono::year(year) / month / day;
    if (zone_ == Zone::utc) {
        const auto midnight = std::chrono::sys_days(wanted).time_since_epoch();
        return Timestamp::since1970(std::chrono::seconds(midnight).count(), 0);
    }
    std::tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_isdst = -1;
    Timestamp moment = Timestamp::since1970(static_cast<std::int64_t>(std::mktime(&parts)), 0);
    // The library may place a midnight that does not exist in the day before.
    constexpr double step = 15 * 60;
    constexpr int maxSteps = 2 * 24 * 4;
    for (int i = 0; i < maxSteps; ++i) {
        const DateComponents found = components(moment);
        if (std::chrono::year(found.year) / found.month / found.day >= wanted) break;
        moment = moment.adding(step);
    }
    return moment;
}

} // namespace tidyro

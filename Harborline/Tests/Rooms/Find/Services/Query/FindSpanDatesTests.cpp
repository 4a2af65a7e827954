#include "Rooms/Find/Services/Query/FindSpan.h"

#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>
#include <utility>

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Base/Calendar.h"

namespace tidyro {
namespace {

/// The time zone of the process while this stands.
class Zone {
  public:
    explicit Zone(const char* zone) {
        if (const char* before = std::getenv("TZ")) before_ = before;
        set(zone);
    }
    ~Zone() { set(before_.empty() ? nullptr : before_.c_str()); }
    Zone(const Zone&) = delete;
    Zone& operator=(const Zone&) = delete;

  private:
    static void set(const char* zone) {
        zone == nullptr ? unsetenv("TZ") : setenv("TZ", zone, 1);
        tzset();
    }
    std::string before_;
};

Timestamp utc(int year, int month, int day, int hour, int minute) {
    return Calendar::utc().beginningOfDay(year, month, day).adding(hour * 3'600 + minute * 60);
}

/// The span in UTC: "2026-03-28 23:00:00 - 2026-03-29 21:59:59".
std::string spanOf(std::string_view text, Timestamp now) {
    const auto span = dateSpan(text, now);
    if (!span) return "none";
    const auto moment = [](std::int64_t seconds) {
        if (seconds == FindSpan::lowest || seconds == FindSpan::highest) return std::string("...");
        return fmt::format("{:%Y-%m-%d %H:%M:%S}", fmt::gmtime(static_cast<std::time_t>(seconds)));
    };
    return moment(span->min) + " - " + moment(span->max);
}

struct DateReading {
    const char* zone;
    Timestamp now;
    std::string_view text;
    std::string_view span;
};

TEST(FindSpanDates, AreThoseOfThePersonsCalendar) {
    constexpr const char* berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
    constexpr const char* midnightGap = "<-03>3<-02>,M11.1.0/0,M2.3.0/0";
    const Timestamp sunday = utc(2026, 3, 29, 12, 0); // clocks were set forward in the night
    const Timestamp leapDay = utc(2028, 2, 29, 12, 0);
    const Timestamp newYear = utc(2026, 12, 31, 23, 30); // 00:30 of 2027, a Friday, in Berlin
    const DateReading readings[] = {
        {berlin, sunday, "today", "2026-03-28 23:00:00 - 2026-03-29 21:59:59"},
        {berlin, sunday, "Yesterday", "2026-03-27 23:00:00 - 2026-03-28 22:59:59"},
        {berlin, sunday, "thisweek", "2026-03-22 23:00:00 - 2026-03-29 21:59:59"},
        {berlin, sunday.adding(86'400), "thisweek", "2026-03-29 22:00:00 - 2026-04-05 21:59:59"},
        {berlin, sunday, "lastweek", "2026-03-15 23:00:00 - 2026-03-22 22:59:59"},
        {berlin, sunday, "lastmonth", "2026-01-31 23:00:00 - 2026-02-28 22:59:59"},
        {berlin, newYear, "today", "2026-12-31 23:00:00 - 2027-01-01 22:59:59"},
        {berlin, newYear, "yesterday", "2026-12-30 23:00:00 - 2026-12-31 22:59:59"},
        {berlin, newYear, "lastmonth", "2026-11-30 23:00:00 - 2026-12-31 22:59:59"},
        {berlin, newYear, "thisyear", "2026-12-31 23:00:00 - 2027-12-31 22:59:59"},
        {berlin, newYear, "lastyear", "2025-12-31 23:00:00 - 2026-12-31 22:59:59"},
        {"UTC0", newYear, "today", "2026-12-31 00:00:00 - 2026-12-31 23:59:59"},
        {"UTC0", newYear, "thisweek", "2026-12-28 00:00:00 - 2027-01-03 23:59:59"},
        {"UTC0", leapDay, "thismonth", "2028-02-01 00:00:00 - 2028-02-29 23:59:59"},
        {"UTC0", leapDay, "lastyear", "2027-01-01 00:00:00 - 2027-12-31 23:59:59"},
        {"UTC0", leapDay, "2028-02-29", "2028-02-29 00:00:00 - 2028-02-29 23:59:59"},
        {"UTC0", leapDay, "2026", "2026-01-01 00:00:00 - 2026-12-31 23:59:59"},
        {"UTC0", leapDay, "2026-11", "2026-11-01 00:00:00 - 2026-11-30 23:59:59"},
        {"UTC0", leapDay, ">2026-01-15", "2026-01-16 00:00:00 - ..."},
        {"UTC0", leapDay, ">=2026-1-15", "2026-01-15 00:00:00 - ..."},
        {"UTC0", leapDay, "<2026-02", "... - 2026-01-31 23:59:59"},
        {"UTC0", leapDay, "<=2026-02", "... - 2026-02-28 23:59:59"},
        {"UTC0", leapDay, "2026-03..2026-01", "2026-01-01 00:00:00 - 2026-03-31 23:59:59"},
        {"UTC0", leapDay, "yesterday..", "2028-02-28 00:00:00 - ..."},
        {"UTC0", leapDay, "2027-02-29", "none"},
        {"UTC0", leapDay, "2026-", "none"},
        // Midnight is skipped: the day begins at one o'clock, which is 03:00 in UTC.
        {midnightGap, utc(2026, 11, 1, 12, 0), "today",
         "2026-11-01 03:00:00 - 2026-11-02 01:59:59"},
    };
    for (const auto& [zone, now, text, span] : readings) {
        const Zone there(zone);
        EXPECT_EQ(spanOf(text, now), span) << zone << " " << text;
    }
}

TEST(FindSpanDates, ReadsAges) {
    const Timestamp now = utc(2026, 11, 22, 12, 0);
    const std::pair<std::string_view, std::string_view> readings[] = {
        {"7d", "2026-11-15 12:00:00 - ..."},
        {"<2h", "2026-11-22 10:00:01 - ..."},
        {"2H-", "2026-11-22 10:00:00 - ..."},
        {">2h", "... - 2026-11-22 09:59:59"},
        {"2h+", "... - 2026-11-22 10:00:00"},
        {"1w..90min", "2026-11-15 12:00:00 - 2026-11-22 10:30:00"},
        {"2mo", "2026-09-23 12:00:00 - ..."},
        {"7", "none"},
        {"7m", "none"},
        {"d", "none"},
        {"-1d", "none"},
        {"99999999999y", "none"},
        {"2h..today", "none"},
    };
    for (const auto& [text, span] : readings) EXPECT_EQ(spanOf(text, now), span) << text;
}

} // namespace
} // namespace tidyro

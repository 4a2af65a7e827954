#include "Rooms/Find/Services/Query/FindSpan.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <string>
#include <vector>

#include "Base/ArgumentText.h"
#include "Base/Calendar.h"
#include "Base/UnicodeText.h"

namespace tidyro {

namespace {

/// Days of a calendar on the wall, in no zone.
using Day = std::chrono::sys_days;
using std::chrono::days;
using std::chrono::months;
using std::chrono::year_month;
using std::chrono::years;

struct DaySpan {
    Day first;
    Day end; ///< the day after the last
};

DaySpan weekWith(Day day) {
    const auto sinceMonday = std::chrono::weekday(day).iso_encoding() - 1;
    const Day monday = day - days(sinceMonday);
    return {.first = monday, .end = monday + days(7)};
}

DaySpan wholeMonth(year_month month) {
    return {.first = month / 1, .end = (month + months(1)) / 1};
}

DaySpan wholeYear(std::chrono::year year) {
    return {.first = year / 1 / 1, .end = (year + years(1)) / 1 / 1};
}

std::optional<DaySpan> namedDays(std::string_view name, Day today) {
    const std::chrono::year_month_day date(today);
    const year_month month = date.year() / date.month();
    if (name == "today") return DaySpan{.first = today, .end = today + days(1)};
    if (name == "yesterday") return DaySpan{.first = today - days(1), .end = today};
    if (name == "thisweek") return weekWith(today);
    if (name == "lastweek") return weekWith(today - days(7));
    if (name == "thismonth") return wholeMonth(month);
    if (name == "lastmonth") return wholeMonth(month - months(1));
    if (name == "thisyear") return wholeYear(date.year());
    if (name == "lastyear") return wholeYear(date.year() - years(1));
    return std::nullopt;
}

/// Four digits, and for a month and a day one or two.
std::optional<std::vector<int>> dateNumbers(std::string_view text) {
    std::vector<int> numbers;
    while (numbers.size() < 3) {
        const std::size_t end = std::min(text.find('-'), text.size());
        const std::string_view digits = text.substr(0, end);
        const bool hasRightLength = numbers.empty() ? end == 4 : end == 1 || end == 2;
        const auto number = decimalArgument<int>(digits);
        if (!hasRightLength || !number || digits.front() == '+') return std::nullopt;
        numbers.push_back(*number);
        if (end == text.size()) return numbers;
        text.remove_prefix(end + 1);
    }
    return std::nullopt;
}

std::optional<DaySpan> writtenDays(std::string_view text) {
    const auto numbers = dateNumbers(text);
    if (!numbers) return std::nullopt;
    const std::chrono::year year((*numbers)[0]);
    if (numbers->size() == 1) return wholeYear(year);
    const std::chrono::month month(static_cast<unsigned>((*numbers)[1]));
    if (!month.ok()) return std::nullopt;
    if (numbers->size() == 2) return wholeMonth(year / month);
    const auto date = year / month / (*numbers)[2];
    if (!date.ok()) return std::nullopt;
    return DaySpan{.first = date, .end = Day(date) + days(1)};
}

std::int64_t beginningOf(Day day) {
    const std::chrono::year_month_day date(day);
    const Timestamp beginning = Calendar::current().beginningOfDay(
        static_cast<int>(date.year()), static_cast<int>(static_cast<unsigned>(date.month())),
        static_cast<int>(static_cast<unsigned>(date.day())));
    return static_cast<std::int64_t>(std::floor(beginning.secondsSince1970()));
}

struct AgeUnit {
    std::string_view name;
    std::int64_t seconds;
};

/// "m" is none: people mean minutes by it, or months.
constexpr std::int64_t secondsOfADay = 86'400;
constexpr std::array<AgeUnit, 7> ageUnits{{{"s", 1},
                                           {"min", 60},
                                           {"h", 3'600},
                                           {"d", secondsOfADay},
                                           {"w", 7 * secondsOfADay},
                                           {"mo", 30 * secondsOfADay},
                                           {"y", 365 * secondsOfADay}}};

std::optional<FindSpan> age(std::string_view text) {
    const std::size_t end = std::min(text.find_first_not_of("0123456789"), text.size());
    const auto* unit = std::ranges::find(ageUnits, text.substr(end), &AgeUnit::name);
    const auto number = decimalArgument<std::int64_t>(text.substr(0, end));
    constexpr std::int64_t maxNumber = 1'000'000'000; // so that the product cannot overflow
    if (unit == ageUnits.end() || !number || *number > maxNumber) return std::nullopt;
    return FindSpan{.min = *number * unit->seconds, .max = *number * unit->seconds};
}

/// Between which moments something was changed whose age is in the span of the text.
std::optional<FindSpan> spanOfAge(std::string_view text, Timestamp now) {
    auto ages = comparedSpan(text, age);
    if (!ages) return std::nullopt;
    if (age(text)) ages->min = FindSpan::lowest; // "7d" has a younger end that nobody writes
    if (ages->min > ages->max) return ages;
    const auto seconds = static_cast<std::int64_t>(std::floor(now.secondsSince1970()));
    FindSpan moments;
    if (ages->max != FindSpan::highest) moments.min = seconds - ages->max;
    if (ages->min != FindSpan::lowest) moments.max = seconds - ages->min;
    return moments;
}

} // namespace

std::optional<FindSpan> dateSpan(std::string_view text, Timestamp now) {
    const DateComponents parts = Calendar::current().components(now);
    const Day today = std::chrono::year(parts.year) / parts.month / parts.day;
    const auto read = [today](std::string_view value) -> std::optional<FindSpan> {
        auto span = namedDays(value, today);
        if (!span) span = writtenDays(value);
        if (!span) return std::nullopt;
        return FindSpan{.min = beginningOf(span->first), .max = beginningOf(span->end) - 1};
    };
    const std::string lower = lowercased(text);
    if (const auto moments = spanOfAge(lower, now)) return moments;
    if (lower.ends_with('-')) return std::nullopt; // a date that somebody goes on typing
    return comparedSpan(lower, read);
}

} // namespace tidyro

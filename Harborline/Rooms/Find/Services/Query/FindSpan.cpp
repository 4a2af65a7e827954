#include "Rooms/Find/Services/Query/FindSpan.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string>
#include <system_error>

#include "Base/UnicodeText.h"

namespace tidyro {

namespace {

constexpr FindSpan emptySpan{.min = 1, .max = 0};

struct Comparison {
    std::string_view sign;
    FindSpan (*applied)(FindSpan value);
};

/// Longer signs come before those that they begin with.
constexpr std::array<Comparison, 5> comparisons{{
    {">=", [](FindSpan value) { return FindSpan{.min = value.min}; }},
    {"<=", [](FindSpan value) { return FindSpan{.max = value.max}; }},
    {">",
     [](FindSpan value) {
         if (value.max == FindSpan::highest) return emptySpan;
         return FindSpan{.min = value.max + 1};
     }},
    {"<",
     [](FindSpan value) {
         if (value.min == FindSpan::lowest) return emptySpan;
         return FindSpan{.max = value.min - 1};
     }},
    {"=", [](FindSpan value) { return value; }},
}};

bool isDigit(char byte) { return byte >= '0' && byte <= '9'; }

/// Decimal digits and nothing else; what is too large is the largest number.
std::optional<std::int64_t> wholeNumber(std::string_view digits) {
    if (digits.empty() || !std::ranges::all_of(digits, isDigit)) return std::nullopt;
    std::int64_t value = 0;
    const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return read.ec == std::errc::result_out_of_range ? FindSpan::highest : value;
}

struct Unit {
    std::string_view name;
    std::int64_t bytes;
};

constexpr std::array<Unit, 14> units{{{"", 1},
                                      {"b", 1},
                                      {"k", 1'000},
                                      {"kb", 1'000},
                                      {"m", 1'000'000},
                                      {"mb", 1'000'000},
                                      {"g", 1'000'000'000},
                                      {"gb", 1'000'000'000},
                                      {"t", 1'000'000'000'000},
                                      {"tb", 1'000'000'000'000},
                                      {"kib", std::int64_t{1} << 10U},
                                      {"mib", std::int64_t{1} << 20U},
                                      {"gib", std::int64_t{1} << 30U},
                                      {"tib", std::int64_t{1} << 40U}}};

std::optional<std::int64_t> byteCount(std::string_view text) {
    const std::string lower = lowercased(text);
    const std::size_t end = std::min(lower.find_first_not_of("0123456789."), lower.size());
    const auto* unit = std::ranges::find(units, std::string_view(lower).substr(end), &Unit::name);
    if (unit == units.end()) return std::nullopt;
    const std::string_view number = std::string_view(lower).substr(0, end);
    const std::size_t point = std::min(number.find('.'), number.size());
    const auto whole = wholeNumber(number.substr(0, point));
    if (!whole) return std::nullopt;
    std::int64_t part = 0;
    if (point < number.size()) {
        // A thousandth of a thousandth is as fine as anyone asks.
        constexpr std::int64_t fine = 1'000'000;
        std::string digits(number.substr(point + 1));
        if (digits.empty()) return std::nullopt;
        digits.resize(6, '0');
        const auto millionths = wholeNumber(digits);
        if (!millionths) return std::nullopt;
        part = *millionths * (unit->bytes / fine) + *millionths * (unit->bytes % fine) / fine;
    }
    if (*whole > (FindSpan::highest - part) / unit->bytes) return FindSpan::highest;
    return *whole * unit->bytes + part;
}

std::optional<FindSpan> oneValue(std::optional<std::int64_t> value) {
    if (!value) return std::nullopt;
    return FindSpan{.min = *value, .max = *value};
}

} // namespace

std::optional<FindSpan> comparedSpan(std::string_view text, const FindSpanReader& reader) {
    for (const Comparison& comparison : comparisons) {
        if (!text.starts_with(comparison.sign)) continue;
        const auto value = reader(text.substr(comparison.sign.size()));
        if (!value) return std::nullopt;
        return comparison.applied(*value);
    }
    const std::size_t dots = text.find("..");
    if (dots == std::string_view::npos) {
        const bool isOpen = text.ends_with('+') || text.ends_with('-');
        const auto value = reader(text.substr(0, text.size() - (isOpen ? 1 : 0)));
        if (!value || !isOpen) return value;
        return text.ends_with('+') ? FindSpan{.min = value->min} : FindSpan{.max = value->max};
    }
    const std::string_view from = text.substr(0, dots);
    const std::string_view to = text.substr(dots + 2);
    if (from.empty() && to.empty()) return std::nullopt;
    const auto first = from.empty() ? FindSpan() : reader(from);
    const auto last = to.empty() ? FindSpan() : reader(to);
    if (!first || !last) return std::nullopt;
    if (from.empty()) return FindSpan{.max = last->max};
    if (to.empty()) return FindSpan{.min = first->min};
    return FindSpan{.min = std::min(first->min, last->min), .max = std::max(first->max, last->max)};
}

std::optional<FindSpan> sizeSpan(std::string_view text) {
    return comparedSpan(text, [](std::string_view value) { return oneValue(byteCount(value)); });
}

std::optional<FindSpan> depthSpan(std::string_view text) {
    return comparedSpan(text, [](std::string_view value) { return oneValue(wholeNumber(value)); });
}

} // namespace tidyro

#include "Base/LocaleText.h"

#include <climits>
#include <cstdlib>
#include <locale>
#include <stdexcept>

#include <fmt/format.h>

#include "Base/UnicodeText.h"

namespace tidyro {

namespace {

std::string nameFromEnvironment() {
    for (const char* variable : {"LC_ALL", "LC_NUMERIC", "LANG"}) {
        // Read once, before any thread of ours could change the environment; none does.
        const char* value = std::getenv(variable); // NOLINT(concurrency-mt-unsafe)
        if (value != nullptr && *value != '\0') return value;
    }
    return "C";
}

} // namespace

LocaleText LocaleText::named(const std::string& name) {
    if (name == "C" || name == "POSIX" || name.starts_with("C.")) return LocaleText(Rules{});
    try {
        // The wide facet: a separator such as U+202F does not fit into one char.
        const std::locale locale(name);
        const auto& numbers = std::use_facet<std::numpunct<wchar_t>>(locale);
        return LocaleText(
            {.decimalPoint = utf8Text(static_cast<char32_t>(numbers.decimal_point())),
             .groupSeparator = utf8Text(static_cast<char32_t>(numbers.thousands_sep())),
             .grouping = numbers.grouping()});
    } catch (const std::runtime_error&) {
        return LocaleText(Rules{}); // not installed
    }
}

const LocaleText& LocaleText::current() {
    static const LocaleText text = named(nameFromEnvironment());
    return text;
}

std::string LocaleText::count(std::uint64_t value) const { return grouped(fmt::to_string(value)); }

std::string LocaleText::decimal(double value, int fractionDigits) const {
    std::string digits = fmt::format("{:.{}f}", value, fractionDigits);
    const std::string sign = digits.starts_with('-') ? "-" : "";
    digits.erase(0, sign.size());
    const std::size_t point = digits.find('.');
    std::string text = sign + grouped(digits.substr(0, point));
    if (point != std::string::npos) text += rules_.decimalPoint + digits.substr(point + 1);
    return text;
}

std::string LocaleText::grouped(std::string digits) const {
    std::size_t group = 0;
    std::size_t end = digits.size();
    while (group < rules_.grouping.size()) {
        const char size = rules_.grouping[group];
        if (size <= 0 || size == CHAR_MAX || end <= static_cast<std::size_t>(size)) break;
        end -= static_cast<std::size_t>(size);
        digits.insert(end, rules_.groupSeparator);
        if (group + 1 < rules_.grouping.size()) ++group;
    }
    return digits;
}

} // namespace tidyro

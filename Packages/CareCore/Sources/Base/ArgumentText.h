#pragma once

#include <charconv>
#include <limits>
#include <optional>
#include <string_view>
#include <system_error>

namespace tidyro {

/// The number that a person typed: an optional sign and decimal digits, nothing else, within the
/// type's range. An unsigned number takes "-" before zeros only.
template <class Integer>
[[nodiscard]] std::optional<Integer> decimalArgument(std::string_view text) {
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-')) return std::nullopt;
    }
    if (text.starts_with('-') && std::numeric_limits<Integer>::min() == 0) {
        text.remove_prefix(1);
        if (text.find_first_not_of('0') != std::string_view::npos) return std::nullopt;
    }
    Integer value{};
    const auto read = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || read.ec != std::errc{} || read.ptr != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

} // namespace tidyro

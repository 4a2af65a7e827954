#pragma once

#include <algorithm>
#include <array>
#include <string_view>

namespace tidyro {

/// Whether someone who types `text` before a colon means the field of this name, which is given in
/// lower case.
[[nodiscard]] constexpr bool isFieldName(std::string_view text, std::string_view name) {
    const auto lower = [](char byte) {
        return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte + ('a' - 'A')) : byte;
    };
    return std::ranges::equal(text, name, {}, lower);
}

/// Whether it is one of the fields that say how a text matches, which may stand before one another.
[[nodiscard]] constexpr bool isTextFieldName(std::string_view text) {
    constexpr std::array<std::string_view, 5> names{"case", "word", "exact", "regex", "path"};
    return std::ranges::any_of(names, [&](auto name) { return isFieldName(text, name); });
}

} // namespace tidyro

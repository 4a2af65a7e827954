#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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

/// A piece of a query.
struct FindQueryToken {
    enum class Kind : std::uint8_t { word, open, close, both, either, denial };
    Kind kind;
    std::string text = {};    ///< as it was typed, without quotes
    std::size_t unquoted = 0; ///< how many bytes stand before the first quote
    bool operator==(const FindQueryToken&) const = default;
};

struct FindQueryTokens {
    std::vector<FindQueryToken> tokens;
    std::optional<std::string> problem = std::nullopt; ///< one sentence for people
};

/// Cuts a query into words, brackets and operators that form a whole: each bracket has its other
/// one and none stands more than 64 deep, each operator has something to join. What did not was
/// mended. In time that grows with the length of the text.
[[nodiscard]] FindQueryTokens findQueryTokens(std::string_view query);

} // namespace tidyro

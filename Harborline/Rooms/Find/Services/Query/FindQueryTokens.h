#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/UnicodeText.h"

namespace tidyro {

/// Whether a text before a colon names this field, in any case. `name` is in lower case.
[[nodiscard]] constexpr bool isFieldName(std::string_view text, std::string_view name) {
    return std::ranges::equal(text, name, {}, lowerASCII);
}

/// Whether a text before a colon names a field that says how a text matches. Several of them may
/// stand before one text.
[[nodiscard]] constexpr bool isTextFieldName(std::string_view text) {
    constexpr std::array<std::string_view, 5> names{"case", "word", "exact", "regex", "path"};
    return std::ranges::any_of(names, [&](auto name) { return isFieldName(text, name); });
}

/// A word, bracket or operator of a query.
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

/// Cuts a query into words, brackets and operators, and mends what does not fit together. In the
/// result every bracket has its counterpart, none is more than 64 deep, and every operator has
/// something to join. Takes time in proportion to the length of the text.
[[nodiscard]] FindQueryTokens findQueryTokens(std::string_view query);

} // namespace tidyro

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidyro {

/// A piece of a query.
struct FindQueryToken {
    enum class Kind : std::uint8_t { word, open, close, both, either, denial };
    Kind kind;
    std::string text = {};    ///< as it was typed, without quotes
    std::size_t unquoted = 0; ///< so many bytes at its beginning stood outside quotes
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

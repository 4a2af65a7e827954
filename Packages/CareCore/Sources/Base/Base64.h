#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tidyro {

/// Standard base64 of RFC 4648, with padding and without line breaks.
[[nodiscard]] std::string base64Text(std::string_view bytes);

/// The bytes of such a text; none for anything else, also for one whose unused bits are not zero.
[[nodiscard]] std::optional<std::string> base64Bytes(std::string_view text);

} // namespace tidyro

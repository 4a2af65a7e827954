#include "Platform/Machine/SHA256.h"

#include <string_view>

namespace tidyro::platform {

std::string hexText(const SHA256::Digest& digest) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    text.reserve(2 * digest.size());
    for (const std::uint8_t byte : digest) {
        text += digits[byte >> 4U];
        text += digits[byte & 15U];
    }
    return text;
}

} // namespace tidyro::platform

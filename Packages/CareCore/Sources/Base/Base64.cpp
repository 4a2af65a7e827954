#include "Base/Base64.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace tidyro {

namespace {

constexpr std::string_view base64Digits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t noDigit = 64;

constexpr auto base64Values = [] {
    std::array<std::uint8_t, 256> values{};
    values.fill(noDigit);
    for (std::size_t i = 0; i < base64Digits.size(); ++i) {
        values[static_cast<unsigned char>(base64Digits[i])] = static_cast<std::uint8_t>(i);
    }
    return values;
}();

} // namespace

std::string base64Text(std::string_view bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (; !bytes.empty(); bytes.remove_prefix(std::min<std::size_t>(bytes.size(), 3))) {
        std::uint32_t group = 0;
        for (std::size_t i = 0; i < 3; ++i) {
            group = group << 8U | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U);
        }
        for (std::size_t i = 0; i < 4; ++i) {
            text += i <= bytes.size() ? base64Digits[group >> (18 - 6 * i) & 63U] : '=';
        }
    }
    return text;
}

std::optional<std::string> base64Bytes(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    std::size_t padding = 0;
    while (padding < 2 && text.ends_with('=')) {
        text.remove_suffix(1);
        ++padding;
    }
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3 + 2);
    std::uint32_t group = 0;
    unsigned bits = 0;
    for (const char digit : text) {
        const std::uint8_t value = base64Values[static_cast<unsigned char>(digit)];
        if (value == noDigit) return std::nullopt;
        group = group << 6U | value;
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            bytes += static_cast<char>(group >> bits & 255U);
        }
    }
    if ((group & ((1U << bits) - 1U)) != 0) return std::nullopt;
    return bytes;
}

} // namespace tidyro

#include "Base/UUID.h"

#include <charconv>

#include <fmt/format.h>

namespace tidyro {

namespace {

constexpr bool isAfterDash(std::size_t byte) {
    return byte == 4 || byte == 6 || byte == 8 || byte == 10;
}

} // namespace

std::optional<UUID> UUID::fromText(std::string_view text) {
    Bytes bytes{};
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (isAfterDash(i)) {
            if (!text.starts_with('-')) return std::nullopt;
            text.remove_prefix(1);
        }
        if (text.size() < 2) return std::nullopt;
        const char* const end = text.substr(0, 2).end();
        const auto read = std::from_chars(text.begin(), end, bytes[i], 16);
        if (read.ec != std::errc{} || read.ptr != end) return std::nullopt;
        text.remove_prefix(2);
    }
    if (!text.empty()) return std::nullopt;
    return UUID(bytes);
}

std::string UUID::text() const {
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < bytes_.size(); ++i) {
        if (isAfterDash(i)) text += '-';
        text += fmt::format("{:02X}", bytes_[i]);
    }
    return text;
}

} // namespace tidyro

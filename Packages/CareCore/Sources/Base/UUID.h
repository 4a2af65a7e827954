#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tidyro {

/// A universally unique identifier, RFC 4122. Made by Platform's `randomUUID()`.
class UUID {
  public:
    using Bytes = std::array<std::uint8_t, 16>;

    constexpr UUID() = default; ///< all zero
    constexpr explicit UUID(const Bytes& bytes) noexcept : bytes_(bytes) {}

    /// Reads 8-4-4-4-12 hexadecimal digits in either case; none for anything else.
    [[nodiscard]] static std::optional<UUID> fromText(std::string_view text);

    /// 36 characters, upper-case digits.
    [[nodiscard]] std::string text() const;
    [[nodiscard]] constexpr const Bytes& bytes() const noexcept { return bytes_; }

    friend constexpr auto operator<=>(const UUID&, const UUID&) = default;

  private:
    Bytes bytes_{};
};

} // namespace tidyro

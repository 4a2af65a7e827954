#pragma once

#include <cstdint>
#include <limits>

namespace tidyro {

/// Byte counts are unsigned 64-bit, and no arithmetic on them wraps: a total that would pass either
/// end of the range stays at that end.

[[nodiscard]] constexpr std::uint64_t saturatingAdd(std::uint64_t a, std::uint64_t b) noexcept {
    std::uint64_t sum = 0;
    return __builtin_add_overflow(a, b, &sum) ? std::numeric_limits<std::uint64_t>::max() : sum;
}

[[nodiscard]] constexpr std::uint64_t saturatingMultiply(std::uint64_t a,
                                                         std::uint64_t b) noexcept {
    std::uint64_t product = 0;
    return __builtin_mul_overflow(a, b, &product) ? std::numeric_limits<std::uint64_t>::max()
                                                  : product;
}

template <class Unsigned>
[[nodiscard]] constexpr Unsigned saturatingSubtract(Unsigned a, Unsigned b) noexcept {
    return a > b ? static_cast<Unsigned>(a - b) : Unsigned{0};
}

} // namespace tidyro

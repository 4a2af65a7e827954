#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace tidyro {

/// What tells files apart, and proves nothing of those that it does not: files that differ in it
/// differ. `seed` is what was known before.
[[nodiscard]] inline std::uint64_t sampleHash(std::span<const std::byte> bytes,
                                              std::uint64_t seed) {
    return XXH3_64bits_withSeed(bytes.data(), bytes.size(), seed);
}

} // namespace tidyro

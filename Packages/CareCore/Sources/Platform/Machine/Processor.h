#pragma once

namespace tidyro::platform {

/// Whether this processor compares 32 bytes at once: AVX2, with the bit instructions that every
/// such processor has beside it (BMI, POPCNT), and a system that keeps its registers. False for
/// any that is not x86-64. Thread-safe.
[[nodiscard]] bool hasAVX2();

} // namespace tidyro::platform

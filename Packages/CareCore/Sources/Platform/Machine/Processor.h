#pragma once

namespace tidyro::platform {

/// Whether AVX2 may be used, which compares 32 bytes at once. Yes means that the processor has it
/// together with the bit instructions BMI and POPCNT, and that the system keeps its registers.
/// False for any processor but x86-64. Any thread may ask.
[[nodiscard]] bool hasAVX2();

} // namespace tidyro::platform

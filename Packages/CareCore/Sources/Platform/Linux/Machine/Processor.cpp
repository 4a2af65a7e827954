#include "Platform/Machine/Processor.h"

namespace tidyro::platform {

#if defined(__x86_64__)

bool hasAVX2() {
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
           __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("popcnt");
}

#else

bool hasAVX2() { return false; }

#endif

} // namespace tidyro::platform

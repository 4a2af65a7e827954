#include "Platform/Machine/Processor.h"

#include <cstddef>

#include <sys/sysctl.h>

namespace tidyro::platform {

bool hasAVX2() {
    // An unknown name is a feature that is not there. Every Mac with the one has the bit
    // instructions, too.
    int has = 0;
    std::size_t size = sizeof has;
    return ::sysctlbyname("hw.optional.avx2_0", &has, &size, nullptr, 0) == 0 && has != 0;
}

} // namespace tidyro::platform

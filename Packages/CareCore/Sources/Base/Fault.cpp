#include "Base/Fault.h"

#include <cstdio>
#include <cstdlib>

namespace tidyro {

void fault(std::string_view reason) noexcept {
    // Nothing can be done about a failure to say why.
    static_cast<void>(std::fprintf(stderr, "Tidyro stopped on a programming fault: %.*s\n",
                                   static_cast<int>(reason.size()), reason.data()));
    std::abort();
}

void outOfMemory() noexcept {
    static_cast<void>(std::fputs("Stopped: there is not enough memory.\n", stderr));
    std::_Exit(1);
}

} // namespace tidyro

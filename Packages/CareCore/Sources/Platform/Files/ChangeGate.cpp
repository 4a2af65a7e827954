#include "Platform/Files/ChangeGate.h"

namespace tidyro::platform {

ChangeGate& ChangeGate::open() {
    static ChangeGate gate;
    return gate;
}

} // namespace tidyro::platform

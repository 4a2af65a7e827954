#pragma once

#include "Base/UUID.h"

namespace tidyro::platform {

/// A version 4 UUID from the system's random source.
[[nodiscard]] UUID randomUUID();

} // namespace tidyro::platform

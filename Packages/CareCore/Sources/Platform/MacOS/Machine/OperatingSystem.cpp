#include "Platform/Machine/OperatingSystem.h"

namespace tidyro::platform {

OperatingSystem operatingSystem() { return OperatingSystem::macOS; }

} // namespace tidyro::platform

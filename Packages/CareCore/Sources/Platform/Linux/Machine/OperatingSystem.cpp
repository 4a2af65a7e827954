#include "Platform/Machine/OperatingSystem.h"

namespace tidyro::platform {

OperatingSystem operatingSystem() { return OperatingSystem::linux_; }

} // namespace tidyro::platform

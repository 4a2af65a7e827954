#include "Platform/Posix/Files/Flush.h"

#include <unistd.h>

namespace tidyro::platform {

bool flushToDisk(int descriptor) { return ::fsync(descriptor) == 0; }

} // namespace tidyro::platform

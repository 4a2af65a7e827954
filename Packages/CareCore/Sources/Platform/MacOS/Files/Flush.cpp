#include "Platform/Posix/Files/Flush.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace tidyro::platform {

bool flushToDisk(int descriptor) {
    // fsync leaves the bytes in the drive's own cache; volumes that have no full flush say ENOTSUP.
    if (::fcntl(descriptor, F_FULLFSYNC) == 0) return true;
    return errno == ENOTSUP && ::fsync(descriptor) == 0;
}

} // namespace tidyro::platform

#pragma once

#include <cstdint>
#include <expected>
#include <string>

#include "Base/SystemError.h"

/// Space that is set aside on a disk, to be given back when the disk is full. A full disk refuses
/// every new file, also the records of a cleanup that would free it.
namespace tidyro::platform {

/// Makes a file of this length, mode 0600, whose blocks are all its own. One that has them already
/// stays. ENOTSUP where the file system cannot set space aside; on failure there is no file.
[[nodiscard]] std::expected<void, SystemError> reserveSpace(const std::string& path,
                                                            std::uint64_t byteCount);

/// Gives the space back and returns once the file system has it. False when nothing was set aside.
[[nodiscard]] bool releaseSpace(const std::string& path);

} // namespace tidyro::platform

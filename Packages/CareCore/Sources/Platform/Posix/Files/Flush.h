#pragma once

#include <cstdint>
#include <expected>
#include <string>

#include "Base/SystemError.h"

namespace tidyro::platform {

/// Brings the bytes of an open file or folder to the medium itself, past the drive's own cache.
[[nodiscard]] std::expected<void, SystemError> flushToDisk(int fd);

/// Brings everything that was changed on the volume of an open file or folder to its medium. Where
/// the system cannot do that for a volume by itself, it does so for all.
[[nodiscard]] std::expected<void, SystemError> flushVolume(int fd);

/// Makes sure that what was made, renamed or removed in a folder outlasts a crash. Where the
/// folder's file system cannot promise that, it succeeds all the same.
[[nodiscard]] std::expected<void, SystemError> flushFolder(const std::string& path);

/// Gives an open file this length and blocks of its own for all of it. ENOTSUP where the file
/// system cannot.
[[nodiscard]] std::expected<void, SystemError> allocateBlocks(int fd, std::uint64_t byteCount);

} // namespace tidyro::platform

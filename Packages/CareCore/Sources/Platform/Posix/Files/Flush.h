#pragma once

#include <expected>
#include <string>

#include "Base/SystemError.h"

namespace tidyro::platform {

/// Brings the bytes of an open file or folder to the medium itself, past the drive's own cache.
[[nodiscard]] std::expected<void, SystemError> flushToDisk(int fd);

/// Makes sure that what was made, renamed or removed in a folder outlasts a crash. Where the
/// folder's file system cannot promise that, it succeeds all the same.
[[nodiscard]] std::expected<void, SystemError> flushFolder(const std::string& path);

} // namespace tidyro::platform

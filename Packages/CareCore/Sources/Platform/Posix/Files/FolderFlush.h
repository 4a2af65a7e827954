#pragma once

#include <expected>
#include <string>

#include "Base/SystemError.h"

namespace tidyro::platform {

/// Makes sure that what was made, renamed or removed in a folder outlasts a crash, as far as the
/// folder's file system can.
[[nodiscard]] std::expected<void, SystemError> flushFolder(const std::string& path);

} // namespace tidyro::platform

#pragma once

#include "Platform/Files/FileContents.h"

namespace tidyro::platform {

/// Opens a file for reading as `FileContents` promises it; negative with errno on failure.
[[nodiscard]] int openQuietly(int folder, const char* name, FileContents::OwnerHint& owners);

} // namespace tidyro::platform

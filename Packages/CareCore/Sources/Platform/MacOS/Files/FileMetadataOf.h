#pragma once

#include <sys/stat.h>

#include "Platform/Files/FileMetadata.h"

namespace tidyro::platform {

[[nodiscard]] FileMetadata fileMetadataOf(const struct stat& status);

} // namespace tidyro::platform

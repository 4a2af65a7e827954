#pragma once

#include <expected>

#include "Platform/Files/FileMetadata.h"

namespace tidyro::platform {

/// What statx says, with further AT_ flags.
[[nodiscard]] std::expected<FileMetadata, SystemError> fileMetadataAt(int folder, const char* name,
                                                                      int flags);

} // namespace tidyro::platform

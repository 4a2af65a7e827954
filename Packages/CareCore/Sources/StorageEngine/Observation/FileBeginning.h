#pragma once

#include <expected>
#include <string_view>

#include "Base/SystemError.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderReading.h"

namespace tidyro {

/// Whether the regular file that was seen under a name in an open folder begins with these bytes,
/// at most 64. The error is ESTALE when another file stands there by now.
[[nodiscard]] std::expected<bool, SystemError>
fileBeginsWith(const platform::FolderDescriptor& folder, const char* name,
               const platform::FileMetadata& seen, std::string_view beginning);

} // namespace tidyro

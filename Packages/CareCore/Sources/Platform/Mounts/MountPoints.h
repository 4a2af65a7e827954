#pragma once

#include <set>
#include <string>

#include "Platform/Folders/FolderReading.h"

namespace tidyro::platform {

/// The places below an open folder on which something is mounted, as paths relative to it. A walk
/// that knows them need not open a mount point to find out that it is one, which may wake an
/// automounter or wait for a server that is gone. What is mounted later it still has to notice
/// itself. Empty on a system that tells mount points while it lists folders, and when the list
/// cannot be read.
[[nodiscard]] std::set<std::string> mountPointsBelow(const FolderDescriptor& folder);

} // namespace tidyro::platform

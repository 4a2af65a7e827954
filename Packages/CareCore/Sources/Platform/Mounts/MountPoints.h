#pragma once

#include <set>
#include <string>

#include "Platform/Folders/FolderReading.h"

namespace tidyro::platform {

/// The mount points below an open folder, as paths relative to it. A walk that knows them does not
/// have to open a mount point to find out that it is one, which may wake an automounter or wait for
/// a server that is gone. The walk itself has to notice what is mounted later.
///
/// Empty on a system that tells mount points while it lists folders (`EntryTrait::mountPoint`), and
/// when the list cannot be read.
[[nodiscard]] std::set<std::string> mountPointsBelow(const FolderDescriptor& folder);

} // namespace tidyro::platform

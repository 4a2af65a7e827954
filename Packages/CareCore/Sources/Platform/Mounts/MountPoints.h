#pragma once

#include <cstdint>
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

/// The mounts below an open folder as a walk takes them that is to read everything once.
struct MountsBelow {
    /// The mount points of what lies elsewhere, as paths relative to the folder.
    std::set<std::string> elsewhere = {};
    /// The mounts, as `FolderFacts::volume` numbers them, that show at their mount points what lies
    /// there anyway: a folder that was mounted onto itself, to protect it or to share it with a
    /// container. They belong to the folder's own volume.
    std::set<std::uint64_t> ontoThemselves = {};
};
/// `volume` is that of the folder. Empty where `mountPointsBelow` is.
[[nodiscard]] MountsBelow mountsBelow(const FolderDescriptor& folder, std::uint64_t volume);

} // namespace tidyro::platform

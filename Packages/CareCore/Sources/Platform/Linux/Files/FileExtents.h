#pragma once

#include <cstdint>
#include <optional>

#include "Platform/Files/FileContents.h"

/// Where files lie on their disk, as the file system tells: the one place that reads extents and
/// knows which file systems share them.
namespace tidyro::platform {

/// What a regular file shares with others.
struct SharedExtents {
    /// Clones have the same number: that of their first physical extent. 0 for none.
    std::uint64_t family = 0;
    /// Bytes in the extents that the file system calls shared. The rest is this file's own: what
    /// was appended to a clone, or rewritten in it.
    std::uint64_t sharedBytes = 0;
};
/// A file belongs to no family when the file system does not call its first extent shared, when it
/// cannot be opened, and when its place on the disk is not settled. One call for such a file; all
/// extents are read for a clone.
[[nodiscard]] SharedExtents sharedExtents(int folder, const char* name);

/// Whether an open folder is the top of a subvolume that nobody can write to: a snapshot, whose
/// files are those of another folder as they were once.
[[nodiscard]] bool isReadOnlySnapshot(int folder, const ItemIdentity& identity);

/// As `FileContents::blocks` promises it.
[[nodiscard]] std::optional<FileBlocks> fileBlocks(int fd, const FileMetadata& seen);

} // namespace tidyro::platform

#pragma once

#include <cstdint>
#include <optional>

#include "Platform/Files/FileContents.h"

/// Where files lie on their disk, as the file system tells: the one place that reads extents and
/// knows which file systems share them.
namespace tidyro::platform {

/// The clone family of a regular file: files that share their first physical extent and have the
/// same length have the same number. 0 for none: the file system does not call the extent shared,
/// the file cannot be opened, or its place on the disk is not settled.
///
/// The length takes part because a clone that was appended to since holds blocks of its own.
/// Counted in full it is overstated by what it shares; counted as a clone it would be understated
/// by all that it grew.
[[nodiscard]] std::uint64_t sharedExtentFamily(int folder, const char* name, std::uint64_t size);

/// As `FileContents::extent` promises it.
[[nodiscard]] std::optional<FileExtent> fileExtent(int fd, const FileMetadata& seen);

} // namespace tidyro::platform

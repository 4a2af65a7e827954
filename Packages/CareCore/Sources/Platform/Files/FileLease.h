#pragma once

#include <cstdint>

#include "Platform/Folders/FolderReading.h"

namespace tidyro::platform {

/// What the system itself says of who has a file open, asked by the file and not by its path.
enum class FileUse : std::uint8_t {
    free,    ///< nobody but the asker has it open or mapped, by whatever name or in what namespace
    inUse,   ///< somebody has
    unknown, ///< it does not say, or what it says proves nothing on this file system
};

/// Asks by a write lease, which Linux grants for a file that nobody else has open. It is given back
/// at once; a program that opens the file in between waits for those microseconds.
///
/// It sees what a list of open paths cannot: another hard link, a process that may not be read, a
/// mount in another namespace. It proves something for the person's own regular files on ext4, XFS
/// and btrfs. Everything else is unknown, and so is every file on macOS, which has no such lease:
/// ask `RunningProcesses` as well.
///
/// A link is not followed. Some four system calls.
[[nodiscard]] FileUse fileUse(const FolderDescriptor& folder, const char* name);

/// The same for a regular file that is open for reading by this descriptor alone.
[[nodiscard]] FileUse fileUse(int fd);

} // namespace tidyro::platform

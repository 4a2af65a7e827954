#pragma once

#include <cstdint>
#include <expected>
#include <string>
#include <string_view>
#include <vector>

#include "Base/SystemError.h"
#include "Platform/Folders/FolderReading.h"

namespace tidyro::platform {

/// One line of the kernel's table of mounts.
struct MountTableEntry {
    std::uint64_t number;
    std::uint64_t above; ///< the number of the mount that its mount point lies on
    std::uint32_t major;
    std::uint32_t minor;
    std::string root; ///< the folder of the file system that is mounted
    std::string path; ///< where it is mounted
    std::string fileSystem;
    std::string source; ///< as the mounter wrote it: a device, a server, anything
};

/// The text of a table as entries. A line that is not in the kernel's form is an error: a table
/// with holes would say that something is not mounted.
[[nodiscard]] std::expected<std::vector<MountTableEntry>, SystemError>
parsedMountTable(std::string_view text);

/// The table that this process sees.
[[nodiscard]] std::expected<std::vector<MountTableEntry>, SystemError> mountTable();

/// The table that another process sees, by its open folder of /proc. Its paths begin at the
/// process's own root. It is empty when nothing is mounted below that root.
[[nodiscard]] std::expected<std::vector<MountTableEntry>, SystemError>
mountTableOf(const FolderDescriptor& process);

} // namespace tidyro::platform

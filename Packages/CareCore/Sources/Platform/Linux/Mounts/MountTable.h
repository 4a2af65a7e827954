#pragma once

#include <cstdint>
#include <expected>
#include <string>
#include <string_view>
#include <vector>

#include "Base/SystemError.h"

namespace tidyro::platform {

/// One line of the kernel's table of mounts.
struct MountTableEntry {
    std::uint64_t number;
    std::uint32_t major;
    std::uint32_t minor;
    std::string root; ///< the folder of the file system that is mounted
    std::string path; ///< where it is mounted
    std::string fileSystem;
    std::string source; ///< as the mounter wrote it: a device, a server, anything
};

/// Lines that are not in the kernel's form are an error: a table with holes would tell that
/// something is not mounted.
[[nodiscard]] std::expected<std::vector<MountTableEntry>, SystemError>
parsedMountTable(std::string_view text);

/// The table that this process sees.
[[nodiscard]] std::expected<std::vector<MountTableEntry>, SystemError> mountTable();

/// The table that the process sees whose folder of /proc is open here. Its paths begin at the
/// process's root; it is empty where nothing is mounted below that.
[[nodiscard]] std::expected<std::vector<MountTableEntry>, SystemError> mountTableOf(int process);

} // namespace tidyro::platform

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tidyro::platform {

/// The files that the kernel itself has in use: those it swaps to, and those behind its loop
/// devices, mounted images among them. The paths are as the kernel writes them, so " (deleted)" may
/// stand at the end of one. Files that it does not tell are left out: many systems have neither
/// kind.
[[nodiscard]] std::vector<std::string> kernelFiles();

/// The swap files, disks and partitions that the text of /proc/swaps lists.
[[nodiscard]] std::vector<std::string> swapFiles(std::string_view table);

} // namespace tidyro::platform

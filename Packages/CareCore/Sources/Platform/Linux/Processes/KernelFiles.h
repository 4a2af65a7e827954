#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tidyro::platform {

/// The files that no process holds but the kernel itself: those it swaps to, and those behind its
/// loop devices, mounted images among them. As the kernel writes them, so " (deleted)" may stand
/// at the end of one. What it does not tell is left out: many systems have neither.
[[nodiscard]] std::vector<std::string> kernelFiles();

/// From the text of /proc/swaps; disks and partitions that are swapped to are told as well.
[[nodiscard]] std::vector<std::string> swapFiles(std::string_view table);

} // namespace tidyro::platform

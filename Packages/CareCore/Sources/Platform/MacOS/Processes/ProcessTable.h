#pragma once

#include <expected>
#include <string>
#include <vector>

#include "Base/SystemError.h"

namespace tidyro::platform {

/// The pids of all processes, this one among them: a list without it is an error.
[[nodiscard]] std::expected<std::vector<int>, SystemError> processIDs();

/// The path of the file that a process runs; empty when the system does not tell.
[[nodiscard]] std::string executableOf(int pid);

} // namespace tidyro::platform

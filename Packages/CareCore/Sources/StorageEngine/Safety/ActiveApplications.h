#pragma once

#include <span>
#include <string>
#include <vector>

#include "Platform/Processes/RunningApplications.h"

namespace tidyro {

/// From running applications to the folders that belong to them.
///
/// Better one folder too many: an interpreter that runs (node, python, java) stands for all the
/// tools that are written for it, since a process rarely tells which of them it is; and a program
/// that is not in the table has the folders that programs usually make from their names.
struct ActiveApplications {
    /// Paths below the home, ascending, each once; whether they exist is not asked.
    [[nodiscard]] static std::vector<std::string>
    dataFolders(std::span<const platform::RunningApplication> running);
};

} // namespace tidyro

#pragma once

#include <cerrno>

#include "Platform/Folders/FolderChanges.h"

namespace tidyro::platform {

/// The answer of a system call that changed something, or its error.
[[nodiscard]] inline FolderChanges::Changed madeChange(int answer) {
    if (answer >= 0) return {};
    return std::unexpected(ChangeError::fromSystem({errno}));
}

} // namespace tidyro::platform

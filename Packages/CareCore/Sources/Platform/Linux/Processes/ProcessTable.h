#pragma once

#include <expected>
#include <functional>
#include <vector>

#include "Base/SystemError.h"
#include "Platform/Folders/FolderReading.h"

/// What /proc tells about processes: one folder for each, named after its pid.
namespace tidyro::platform {

/// The pids of all processes that this one can see. A table without this process belongs to another
/// namespace, or is none: that is an error (ESRCH).
[[nodiscard]] std::expected<std::vector<long>, SystemError> processIDs();

/// The folder of a process.
[[nodiscard]] std::expected<FolderDescriptor, SystemError> openProcess(long pid);

/// Calls `use` with each name in a folder that does not begin with ".".
[[nodiscard]] std::expected<void, SystemError>
forEachName(const FolderDescriptor& folder, const std::function<void(const char* name)>& use);

/// Whether an error of reading about a process means that it has ended. The files of a zombie and
/// of a thread of the kernel give the same errors: they have none.
[[nodiscard]] bool hasEnded(SystemError error);
/// Whether it means that this process may not read about the other.
[[nodiscard]] bool isForbidden(SystemError error);

} // namespace tidyro::platform

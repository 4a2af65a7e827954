#pragma once

#include <expected>
#include <optional>
#include <string>
#include <string_view>

#include "Base/SystemError.h"
#include "Platform/Folders/FolderReading.h"
#include "Platform/Processes/RunningProcesses.h"

/// What a cache folder of uv may hold, and who uses it. Only this room asks.
namespace tidyro::UVCacheFolder {

/// Whether uv itself puts an entry of this name and type at the top of its cache: its buckets, the
/// folders "wheels-v5" and the like, and some small files. A link to a bucket is somebody else's.
[[nodiscard]] bool isOfUV(std::string_view name, platform::EntryType type);

/// Whether all entries at the top are. An error when they cannot all be read.
[[nodiscard]] std::expected<bool, SystemError> holdsOnlyUV(const platform::FolderDescriptor& cache);

/// The file that a running uv keeps locked, alone or together with others.
inline constexpr std::string_view lockName = ".lock";

/// A process that runs from the cache, has something in it open, or was started with something in
/// it: its arguments, its search paths, its environment of Python or its working folder lead there.
struct User {
    std::int64_t pid;
    std::string program; ///< the last component of its path; may be empty
};
/// The first such process, this one aside. `written` and `real` are the path of the cache, and the
/// same with every link resolved. An error when it cannot be known.
[[nodiscard]] std::expected<std::optional<User>, SystemError>
userOf(const std::string& written, const std::string& real,
       const platform::RunningProcesses& processes);

} // namespace tidyro::UVCacheFolder

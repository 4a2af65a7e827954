#pragma once

#include <cstddef>
#include <expected>
#include <string>
#include <string_view>

#include "Base/SystemError.h"

/// Files that matter. A crash or a full disk at any moment leaves either the old file or the new
/// one, whole.
namespace tidyro::platform {

/// Replaces the file at `path`: writes a temporary sibling (made exclusively, mode 0600), flushes
/// it to the disk, renames it over the path and flushes the folder. On failure the old file stands
/// and the sibling is gone, unless the very last flush failed: then the new file is in its place,
/// but may not outlast a crash.
[[nodiscard]] std::expected<void, SystemError> writeDurably(const std::string& path,
                                                            std::string_view bytes);

/// Makes a folder and those above it that are missing, each with mode 0700, and flushes them.
/// Folders that exist stay as they are.
[[nodiscard]] std::expected<void, SystemError> makePrivateFolder(const std::string& path);

/// The whole file; EFBIG when it holds more than `most` bytes, EINVAL when it is no regular file.
[[nodiscard]] std::expected<std::string, SystemError> readWholeFile(const std::string& path,
                                                                    std::size_t most);

} // namespace tidyro::platform

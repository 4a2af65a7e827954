#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Base/FileURL.h"
#include "StorageEngine/Tools/ValidatedExecutable.h"

/// Where the programs lie that Tidyro runs, and whether a file is one of them.
namespace tidyro::ToolExecutableLocator {

/// The first of the places for uv that holds an acceptable one: below the home, then where package
/// managers put it. Each is run once for its version.
[[nodiscard]] std::optional<ValidatedExecutable> findUV(const FileURL& home);

/// uv at one path. A script is never taken for it: what runs must be the file that was checked.
[[nodiscard]] std::optional<ValidatedExecutable>
validateUV(const FileURL& at, bool allowTemporaryLocation, const FileURL& home);

/// The version in what "uv --version" prints: "0.5.1" of "uv 0.5.1 (abc 2024-11-08)".
[[nodiscard]] std::optional<std::string> uvVersionIn(std::string_view output);

} // namespace tidyro::ToolExecutableLocator

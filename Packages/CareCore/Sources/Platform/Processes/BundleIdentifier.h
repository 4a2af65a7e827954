#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tidyro::platform {

/// The identifier of an application ("com.example.Editor") from the bytes of its Info.plist. Such
/// lists are written as XML or in a binary form; both are read. None for anything else and for
/// damaged bytes, whatever they are.
[[nodiscard]] std::optional<std::string> bundleIdentifierIn(std::string_view propertyList);

/// The identifier of the application whose package is the folder at a path, read from the disk.
/// None when the package does not say, or cannot be read.
[[nodiscard]] std::optional<std::string> bundleIdentifierOf(const std::string& package);

} // namespace tidyro::platform

#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tidyro::platform {

/// The identifier of an application ("com.example.Editor") from the bytes of its Info.plist. Such
/// lists are written as XML or in a binary form; both are read. None for anything else and for
/// damaged bytes, whatever they are.
[[nodiscard]] std::optional<std::string> bundleIdentifierIn(std::string_view propertyList);

} // namespace tidyro::platform

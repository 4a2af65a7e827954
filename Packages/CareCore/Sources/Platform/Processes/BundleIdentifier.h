#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tidyro::platform {

/// The identifier of an application from the bytes of its Info.plist ("com.example.Editor"), in
/// either of the two forms in which such lists are written, XML and binary. None for anything else
/// and for damaged bytes, whatever they are.
[[nodiscard]] std::optional<std::string> bundleIdentifierIn(std::string_view propertyList);

} // namespace tidyro::platform

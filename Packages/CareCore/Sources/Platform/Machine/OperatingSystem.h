#pragma once

#include <string_view>

#include "Base/SystemTexts.h"

namespace tidyro::platform {

/// The system that this program was built for.
[[nodiscard]] OperatingSystem operatingSystem();

/// A text in the words of the system that the program runs on.
[[nodiscard]] inline std::string_view systemText(SystemText text) {
    return tidyro::systemText(text, operatingSystem());
}

} // namespace tidyro::platform

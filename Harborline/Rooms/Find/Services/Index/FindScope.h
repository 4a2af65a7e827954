#pragma once

#include <cstdint>

namespace tidyro {

/// What takes part in a search beside ordinary files and folders.
struct FindScope {
    bool hidden = true;
    bool system = true;
    bool packageContents = true;
    bool operator==(const FindScope&) const = default;
};

} // namespace tidyro

#pragma once

#include <string_view>

namespace tidyro {

/// The text of an entry that a condition looks at: its name, or its path below the root with a "/"
/// before each component.
struct FindSubject {
    std::string_view own;    ///< its bytes
    std::string_view folded; ///< as the folded names are
    bool isASCII;            ///< both have the same letters in the same places
};

} // namespace tidyro

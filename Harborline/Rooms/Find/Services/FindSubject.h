#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tidyro {

/// The text of an entry that a condition looks at: its name, or its path below the root with a "/"
/// before each component.
struct FindSubject {
    std::string_view own;    ///< its bytes
    std::string_view folded; ///< as the folded names are
    bool isASCII;            ///< both have the same letters in the same places
    // Of a path: the part that other entries of its folder share.
    std::uint32_t folder = 0;
    std::size_t ownFolder = 0;    ///< bytes of `own`
    std::size_t foldedFolder = 0; ///< bytes of `folded`
};

} // namespace tidyro

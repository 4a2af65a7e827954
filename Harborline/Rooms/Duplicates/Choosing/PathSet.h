#pragma once

#include <string_view>

#include "Base/StringTable.h"

namespace tidyro {

/// Files and folders by their absolute, standardised paths. A folder stands for all that is in it.
/// Hashed, since a look goes through every folder above a path.
using PathSet = StringSet;

/// Whether the path is in the set, or a folder that it lies in.
[[nodiscard]] bool covers(const PathSet& paths, std::string_view path);

} // namespace tidyro

#pragma once

#include <cstdint>

namespace tidyro::platform {

/// The clone family of a regular file: a number that files share when their first physical extent
/// and their length are the same and the file system says that the extent is shared; 0 for none,
/// and whenever the file cannot be opened or its place on disk is not settled. The length takes
/// part because a clone that was appended to since holds blocks of its own: counted in full it is
/// overstated by what it shares, counted as a clone it would be understated by all that it grew.
[[nodiscard]] std::uint64_t sharedExtentFamily(int folder, const char* name, std::uint64_t size);

} // namespace tidyro::platform

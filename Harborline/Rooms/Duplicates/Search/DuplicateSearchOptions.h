#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "Base/FileURL.h"

namespace tidyro {

/// What a search for duplicates looks at.
struct DuplicateSearchOptions {
    std::vector<FileURL> roots; ///< folders
    /// Files smaller than this are not looked at. Empty files never are.
    std::uint64_t minimumBytes = 0;
    /// Whether the volumes of the operating system are searched as well.
    bool includeSystemVolumes = false;
    FileURL home;
    std::set<std::string> skipping = {};           ///< not entered
    std::set<std::string> skippingContentsOf = {}; ///< what is in them is not searched
    std::vector<FileURL> systemVolumeRoots = macOSVolumes();

    /// Where macOS keeps what it starts up and updates itself from.
    [[nodiscard]] static std::vector<FileURL> macOSVolumes();

    bool operator==(const DuplicateSearchOptions&) const = default;
};

} // namespace tidyro

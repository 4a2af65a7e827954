#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "Base/FileURL.h"

namespace tidyro {

/// Where a search for duplicates looks, and at which files. Paths are absolute and standardised.
struct DuplicateSearchOptions {
    std::vector<FileURL> roots; ///< folders
    /// Files smaller than this are not looked at. Empty files never are.
    std::uint64_t minimumBytes = 0;
    /// Whether the volumes of the operating system are searched as well.
    bool includeSystemVolumes = false;
    FileURL home; ///< tells which copies lie in a place that is known, and may be removed
    std::set<std::string> skipping = {};           ///< files and folders that are left out
    std::set<std::string> skippingContentsOf = {}; ///< folders whose contents are left out
    std::vector<FileURL> systemVolumeRoots = macOSVolumes();

    /// Where macOS keeps what it starts up and updates itself from.
    [[nodiscard]] static std::vector<FileURL> macOSVolumes() {
        return {FileURL::folder("/System/Volumes/Preboot"),
                FileURL::folder("/System/Volumes/Update"),
                FileURL::folder("/System/Volumes/Recovery")};
    }

    bool operator==(const DuplicateSearchOptions&) const = default;
};

} // namespace tidyro

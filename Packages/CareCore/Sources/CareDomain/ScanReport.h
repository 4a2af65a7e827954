#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Base/FileURL.h"
#include "Base/Record.h"
#include "Base/Saturating.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"
#include "CareDomain/CoverageGap.h"
#include "CareDomain/FileObservation.h"

namespace tidyro {

/// A folder that a scan was asked to read.
struct ScanRoot {
    UUID id;
    FileURL url;
    std::string label; ///< shown to people

    static constexpr auto fields() {
        return fieldList<ScanRoot>(field("id", &ScanRoot::id), field("url", &ScanRoot::url),
                                   field("label", &ScanRoot::label));
    }
    bool operator==(const ScanRoot&) const = default;
};

/// The items that one scan saw, and the places that it left out.
struct ScanReport {
    std::vector<ScanRoot> roots;
    std::vector<FileObservation> items;
    std::vector<CoverageGap> coverageGaps;
    Timestamp startedAt;
    Timestamp completedAt;

    /// The bytes of all items, saturating.
    [[nodiscard]] std::uint64_t observedByteCount() const {
        std::uint64_t total = 0;
        for (const FileObservation& item : items) total = saturatingAdd(total, item.byteCount);
        return total;
    }

    static constexpr auto fields() {
        return fieldList<ScanReport>(field("roots", &ScanReport::roots),
                                     field("items", &ScanReport::items),
                                     field("coverageGaps", &ScanReport::coverageGaps),
                                     field("startedAt", &ScanReport::startedAt),
                                     field("completedAt", &ScanReport::completedAt));
    }
    bool operator==(const ScanReport&) const = default;
};

} // namespace tidyro

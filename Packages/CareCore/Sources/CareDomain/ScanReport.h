#pragma once

#include <cstdint>
#include <vector>

#include "Base/Record.h"
#include "Base/Timestamp.h"
#include "CareDomain/CoverageGap.h"
#include "CareDomain/FileObservation.h"
#include "CareDomain/ScanRoot.h"

namespace tidyro {

/// What one scan saw, and what it had to leave out.
struct ScanReport {
    std::vector<ScanRoot> roots;
    std::vector<FileObservation> items;
    std::vector<CoverageGap> coverageGaps;
    Timestamp startedAt;
    Timestamp completedAt;

    /// The bytes of all items, saturating.
    [[nodiscard]] std::uint64_t observedByteCount() const;

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

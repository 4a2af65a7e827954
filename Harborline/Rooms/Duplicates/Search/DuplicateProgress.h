#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>

#include "Base/RawValues.h"

namespace tidyro {

/// How far a search for duplicates has come.
struct DuplicateProgress {
    enum class Phase : std::uint8_t { listing, sampling, verifying };

    Phase phase = Phase::listing;
    std::int64_t done = 0;  ///< files of this phase
    std::int64_t total = 0; ///< files of this phase; 0 while it is not known
    std::uint64_t bytesDone = 0;
    std::uint64_t bytesTotal = 0;
    /// The file, or while listing the folder, that is being read.
    std::string currentPath = {};

    /// 0...1; none while the total is not known.
    [[nodiscard]] std::optional<double> fraction() const {
        if (phase == Phase::listing) return std::nullopt;
        if (phase == Phase::verifying && bytesTotal > 0) {
            return std::min(static_cast<double>(bytesDone) / static_cast<double>(bytesTotal), 1.0);
        }
        if (total < 1) return std::nullopt;
        return static_cast<double>(done) / static_cast<double>(total);
    }

    bool operator==(const DuplicateProgress&) const = default;
};

constexpr RawValueTable<DuplicateProgress::Phase, 3>
rawValues(RawValueTag<DuplicateProgress::Phase>) {
    using enum DuplicateProgress::Phase;
    return {{{{listing, "listing"}, {sampling, "sampling"}, {verifying, "verifying"}}}};
}

} // namespace tidyro

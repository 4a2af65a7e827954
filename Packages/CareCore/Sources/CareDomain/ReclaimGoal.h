#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Base/Record.h"

namespace tidyro {

/// How much space a cleanup should free.
struct ReclaimGoal {
    std::uint64_t byteCount;
    std::optional<std::string> purpose = std::nullopt;

    static constexpr auto fields() {
        return fieldList<ReclaimGoal>(field("byteCount", &ReclaimGoal::byteCount),
                                      field("purpose", &ReclaimGoal::purpose));
    }
    bool operator==(const ReclaimGoal&) const = default;
};

} // namespace tidyro

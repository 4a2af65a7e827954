#pragma once

#include "Base/RawValues.h"

namespace tidyro {

/// What carrying out a plan does to its items.
enum class CleanupExecutionMode {
    simulation,
    recoverable, ///< moves them to the Trash
    permanent,   ///< removes them for good
};

constexpr RawValueTable<CleanupExecutionMode, 3> rawValues(RawValueTag<CleanupExecutionMode>) {
    using enum CleanupExecutionMode;
    return {{{{simulation, "simulation"}, {recoverable, "recoverable"}, {permanent, "permanent"}}}};
}

[[nodiscard]] constexpr bool changesTheFilesystem(CleanupExecutionMode mode) {
    return mode != CleanupExecutionMode::simulation;
}

} // namespace tidyro

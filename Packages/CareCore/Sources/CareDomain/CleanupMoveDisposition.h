#pragma once

#include "Base/RawValues.h"

namespace tidyro {

/// What became of one entry of a plan.
enum class CleanupMoveDisposition {
    movedToTrash,
    permanentlyRemoved,
    simulated,
    failed,  ///< the file operation itself failed
    refused, ///< a check stopped it before it was touched
};

constexpr RawValueTable<CleanupMoveDisposition, 5> rawValues(RawValueTag<CleanupMoveDisposition>) {
    using enum CleanupMoveDisposition;
    return {{{{movedToTrash, "movedToTrash"},
              {permanentlyRemoved, "permanentlyRemoved"},
              {simulated, "simulated"},
              {failed, "failed"},
              {refused, "refused"}}}};
}

} // namespace tidyro

#include "CareDomain/CleanupPlan.h"

#include "Base/Saturating.h"

namespace tidyro {

std::uint64_t CleanupPlan::potentiallyReclaimableByteCount() const {
    std::uint64_t total = 0;
    for (const CleanupPlanEntry& entry : entries) {
        total = saturatingAdd(total, entry.proofCard.byteCount);
    }
    return total;
}

} // namespace tidyro

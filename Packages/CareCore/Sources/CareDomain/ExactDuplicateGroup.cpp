#include "CareDomain/ExactDuplicateGroup.h"

#include "Base/Saturating.h"

namespace tidyro {

std::uint64_t ExactDuplicateGroup::potentiallyReclaimableByteCount() const {
    return saturatingMultiply(byteCountPerItem,
                              saturatingSubtract<std::uint64_t>(members.size(), 1));
}

} // namespace tidyro

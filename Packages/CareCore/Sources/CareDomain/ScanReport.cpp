#include "CareDomain/ScanReport.h"

#include "Base/Saturating.h"

namespace tidyro {

std::uint64_t ScanReport::observedByteCount() const {
    std::uint64_t total = 0;
    for (const FileObservation& item : items) total = saturatingAdd(total, item.byteCount);
    return total;
}

} // namespace tidyro

#include "StorageEngine/Suggestions/SmartCleanupReport.h"

#include "Base/Saturating.h"

namespace tidyro {

namespace {

SmartCleanupTotals total(const std::vector<SmartCleanupGroup>& groups,
                         SmartCleanupTotals SmartCleanupGroup::* kind) {
    SmartCleanupTotals sum;
    for (const SmartCleanupGroup& group : groups) sum.add(group.*kind);
    return sum;
}

} // namespace

void SmartCleanupTotals::add(const SmartCleanupTotals& other) {
    itemCount = saturatingAdd(itemCount, other.itemCount);
    byteCount = saturatingAdd(byteCount, other.byteCount);
    freedByteCount = saturatingAdd(freedByteCount, other.freedByteCount);
}

SmartCleanupTotals SmartCleanupReport::safe() const {
    return total(groups, &SmartCleanupGroup::safe);
}

SmartCleanupTotals SmartCleanupReport::review() const {
    return total(groups, &SmartCleanupGroup::review);
}

std::vector<CleanupCandidate> SmartCleanupReport::candidates() const {
    std::vector<CleanupCandidate> all;
    for (const SmartCleanupGroup& group : groups) {
        all.insert(all.end(), group.candidates.begin(), group.candidates.end());
    }
    return all;
}

void SmartCleanupReport::addGap(CoverageGap gap) {
    ++gapCount;
    if (coverageGaps.size() < maxGaps) coverageGaps.push_back(std::move(gap));
}

} // namespace tidyro

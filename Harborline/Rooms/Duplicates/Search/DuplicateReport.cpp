#include "Rooms/Duplicates/Search/DuplicateReport.h"

#include <algorithm>
#include <vector>

#include "Base/PathText.h"
#include "Base/Saturating.h"

namespace tidyro {

std::int64_t DuplicateGroup::storageCount() const {
    std::vector<std::int64_t> storages;
    storages.reserve(copies.size());
    for (const DuplicateCopy& copy : copies) storages.push_back(copy.storage);
    std::ranges::sort(storages);
    return std::ranges::unique(storages).begin() - storages.begin();
}

std::uint64_t DuplicateGroup::wastedBytes() const {
    if (extraBytes) return *extraBytes;
    const std::int64_t extra = storageCount() - 1;
    return extra < 1 ? 0 : saturatingMultiply(static_cast<std::uint64_t>(extra), bytesEach);
}

std::string DuplicateGroup::name() const {
    return copies.empty() ? std::string() : std::string(path::lastComponent(copies.front().path));
}

std::uint64_t DuplicateReport::wastedBytes() const {
    std::uint64_t sum = 0;
    for (const DuplicateGroup& group : groups) sum = saturatingAdd(sum, group.wastedBytes());
    return sum;
}

} // namespace tidyro

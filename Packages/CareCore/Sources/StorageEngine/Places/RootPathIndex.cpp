#include "StorageEngine/Places/RootPathIndex.h"

#include <algorithm>

#include "Base/PathText.h"

namespace tidyro {

namespace {

/// Bytes in their order, but "/" before all others.
bool comesBefore(std::string_view a, std::string_view b) {
    const auto rank = [](char byte) {
        return byte == '/' ? -1 : static_cast<int>(static_cast<unsigned char>(byte));
    };
    return std::ranges::lexicographical_compare(a, b, {}, rank, rank);
}

} // namespace

RootPathIndex::RootPathIndex(std::span<const std::string> roots) {
    std::vector<std::string> sorted(roots.begin(), roots.end());
    std::ranges::sort(sorted, comesBefore);
    for (std::string& root : sorted) {
        if (roots_.empty() || !path::isInsideOrEqual(root, roots_.back())) {
            roots_.push_back(std::move(root));
        }
    }
}

bool RootPathIndex::contains(std::string_view path) const {
    const auto after = std::ranges::upper_bound(roots_, path, comesBefore);
    return after != roots_.begin() && path::isInsideOrEqual(path, *std::prev(after));
}

} // namespace tidyro

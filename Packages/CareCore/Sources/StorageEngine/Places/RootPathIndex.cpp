#include "StorageEngine/Places/RootPathIndex.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "Base/PathText.h"

namespace tidyro {

namespace {

/// How many bytes two paths begin with in common. Roots share the home as a long beginning, so it
/// is compared by words.
std::size_t commonLength(std::string_view a, std::string_view b) {
    const std::size_t shorter = std::min(a.size(), b.size());
    std::size_t at = 0;
    for (std::uint64_t ofA = 0, ofB = 0; at + sizeof ofA <= shorter; at += sizeof ofA) {
        std::memcpy(&ofA, a.data() + at, sizeof ofA);
        std::memcpy(&ofB, b.data() + at, sizeof ofB);
        if (ofA != ofB) break;
    }
    while (at < shorter && a[at] == b[at]) ++at;
    return at;
}

/// Bytes in their order, but "/" before all others.
bool comesBefore(std::string_view a, std::string_view b) {
    const auto rank = [](char byte) {
        return byte == '/' ? -1 : static_cast<int>(static_cast<unsigned char>(byte));
    };
    const std::size_t common = commonLength(a, b);
    if (common == b.size()) return false;
    return common == a.size() || rank(a[common]) < rank(b[common]);
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

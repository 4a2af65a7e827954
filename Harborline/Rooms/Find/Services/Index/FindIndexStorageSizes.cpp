// Sizes: of a folder the saturating sum of its children's, those deleted left out.
#include <algorithm>
#include <cstdint>
#include <limits>

#include "Base/Saturating.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"

namespace tidyro {

namespace {

constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();

std::uint64_t total(const FindIndexStorage& storage, FindIndexStorage::Entry folder) {
    std::uint64_t sum = 0;
    storage.visitChildren(folder, [&](FindIndexStorage::Entry child) {
        if (!storage.is(child, findflag::deleted)) sum = saturatingAdd(sum, storage.size(child));
        return true;
    });
    return sum;
}

} // namespace

std::uint64_t FindIndexStorage::size(Entry entry) const {
    if (size32[entry] != bigSize) return size32[entry];
    const auto big = bigSizes.find(entry);
    return big == bigSizes.end() ? bigSize : big->second;
}

void FindIndexStorage::setSize(std::uint64_t size, Entry of) {
    if (size >= bigSize) {
        bigSizes[of] = size;
    } else if (size32[of] == bigSize) {
        bigSizes.erase(of);
    }
    size32[of] = static_cast<std::uint32_t>(std::min<std::uint64_t>(size, bigSize));
}

void FindIndexStorage::aggregateFolderSizes() {
    const Entry all = count();
    for (Entry entry = 0; entry < all; ++entry) {
        if (is(entry, findflag::directory)) setSize(0, entry);
    }
    // From the last to the first, so that a folder's sum is whole before it is added to another.
    // Siblings stand together: a run of them reaches their folder at once.
    Entry folder = none;
    std::uint64_t sum = 0;
    const auto reach = [&] {
        if (folder != none && sum != 0) setSize(saturatingAdd(size(folder), sum), folder);
        sum = 0;
    };
    for (Entry entry = all; entry-- > 0;) {
        if (parent[entry] != folder) {
            reach();
            folder = parent[entry];
        }
        if (!is(entry, findflag::deleted)) sum = saturatingAdd(sum, size(entry));
    }
}

void FindIndexStorage::changeAncestors(Entry of, bool grow, std::uint64_t by) {
    if (by == 0) return;
    for (Entry above = parent[of]; above != none; above = parent[above]) {
        const std::uint64_t held = size(above);
        if (grow) {
            setSize(saturatingAdd(held, by), above);
        } else if (held == largest) { // how far beyond its end the sum went is not known
            setSize(total(*this, above), above);
        } else {
            setSize(saturatingSubtract(held, by), above);
        }
        if (is(above, findflag::deleted)) return;
    }
}

void FindIndexStorage::addToAncestors(Entry of, std::int64_t delta) {
    if (is(of, findflag::deleted)) return;
    const auto raw = static_cast<std::uint64_t>(delta);
    changeAncestors(of, delta > 0, delta > 0 ? raw : 0 - raw);
}

} // namespace tidyro

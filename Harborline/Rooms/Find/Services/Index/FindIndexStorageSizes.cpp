// Sizes: of a folder the saturating sum of its children's, those deleted left out.
#include <algorithm>
#include <cstdint>
#include <limits>

#include "Base/Saturating.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"

namespace tidyro {

namespace {

constexpr std::uint64_t maxSize = std::numeric_limits<std::uint64_t>::max();

std::uint64_t sumOfChildren(const FindIndexStorage& storage, FindIndexStorage::Entry folder) {
    std::uint64_t sum = 0;
    storage.visitChildren(folder, [&](FindIndexStorage::Entry child) {
        if (!storage.is(child, findflag::deleted)) sum = saturatingAdd(sum, storage.size(child));
        return true;
    });
    return sum;
}

} // namespace

std::uint64_t FindIndexStorage::sizeOfBig(Entry entry) const {
    const auto big = bigSizes.find(entry);
    return big == bigSizes.end() ? bigSize : big->second;
}

void FindIndexStorage::setSize(std::uint64_t size, Entry entry) {
    if (size >= bigSize) {
        bigSizes[entry] = size;
    } else if (size32[entry] == bigSize) {
        bigSizes.erase(entry);
    }
    size32[entry] = static_cast<std::uint32_t>(std::min<std::uint64_t>(size, bigSize));
}

void FindIndexStorage::aggregateFolderSizes() {
    const Entry all = count();
    for (Entry entry = 0; entry < all; ++entry) {
        if (is(entry, findflag::folder)) setSize(0, entry);
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

void FindIndexStorage::changeAncestors(Entry entry, Change change, std::uint64_t bytes) {
    if (bytes == 0) return;
    for (Entry above = parent[entry]; above != none; above = parent[above]) {
        const std::uint64_t held = size(above);
        if (change == Change::growth) {
            setSize(saturatingAdd(held, bytes), above);
        } else if (held == maxSize) { // how far beyond its end the sum went is not known
            setSize(sumOfChildren(*this, above), above);
        } else {
            setSize(saturatingSubtract(held, bytes), above);
        }
        if (is(above, findflag::deleted)) return;
    }
}

void FindIndexStorage::addToAncestors(Entry entry, std::int64_t delta) {
    if (is(entry, findflag::deleted)) return;
    const auto raw = static_cast<std::uint64_t>(delta);
    if (delta > 0) changeAncestors(entry, Change::growth, raw);
    if (delta < 0) changeAncestors(entry, Change::loss, 0 - raw);
}

} // namespace tidyro

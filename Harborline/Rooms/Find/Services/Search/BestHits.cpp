#include "Rooms/Find/Services/Search/BestHits.h"

#include <algorithm>
#include <string>

namespace tidyro {

namespace {

/// Folders above an entry; the depth that is stored ends at `maxDepth`.
std::size_t depthOf(const FindIndexStorage& storage, std::uint32_t entry) {
    if (storage.depth[entry] < FindIndexStorage::maxDepth) return storage.depth[entry];
    std::size_t depth = 0;
    for (; entry != 0; entry = storage.parent[entry]) ++depth;
    return depth;
}

} // namespace

bool isBeforeByPath(const FindIndexStorage& storage, std::uint32_t a, std::uint32_t b) {
    if (a == b) return false;
    std::uint32_t left = a;
    std::uint32_t right = b;
    if (storage.parent[a] != storage.parent[b]) {
        // The deeper one is compared by the folder in which it is as deep as the other.
        std::size_t leftDepth = depthOf(storage, a);
        std::size_t rightDepth = depthOf(storage, b);
        for (; leftDepth > rightDepth; --leftDepth) left = storage.parent[left];
        for (; rightDepth > leftDepth; --rightDepth) right = storage.parent[right];
        if (left == right) return left == a; // what holds the other comes first
    }
    // What tells the paths apart stands in the folder that holds both.
    while (storage.parent[left] != storage.parent[right]) {
        left = storage.parent[left];
        right = storage.parent[right];
    }
    const std::string_view one = storage.name(left);
    const std::string_view other = storage.name(right);
    const std::size_t common = std::min(one.size(), other.size());
    const int order = one.substr(0, common).compare(other.substr(0, common));
    if (order != 0) return order < 0;
    if (one.size() == other.size()) return a < b; // two entries of one name
    // One name begins the other: what follows it is a "/", or nothing.
    const bool isLast = one.size() < other.size() ? left == a : right == b;
    const auto next =
        static_cast<unsigned char>(one.size() < other.size() ? other[common] : one[common]);
    const bool shorterIsFirst = isLast || '/' < next;
    return (one.size() < other.size()) == shorterIsFirst;
}

BestHits::BestHits(const FindIndexStorage& storage, std::size_t limit, std::uint32_t workingFolder)
    : storage_(&storage), limit_(limit), workingFolder_(workingFolder), isFull_(limit == 0) {}

bool BestHits::isOutside(std::uint32_t entry) const {
    if (workingFolder_ == FindIndexStorage::none) return false;
    while (entry > workingFolder_) entry = storage_->parent[entry]; // folders have smaller numbers
    return entry != workingFolder_;
}

std::uint64_t BestHits::keyOf(std::uint32_t entry, const FindFit& fit) const {
    const std::uint64_t outside = std::uint64_t{isOutside(entry)} << 24U;
    return (shortestKeyOf(entry, fit) + outside + lengthOf(entry)) << lowerKeyBits |
           std::uint64_t{~storage_->mtime[entry]};
}

bool BestHits::isBetter(const Hit& a, const Hit& b) const {
    return a.key != b.key ? a.key < b.key : isBeforeByPath(*storage_, a.entry, b.entry);
}

void BestHits::offer(std::uint32_t entry, const FindFit& fit) {
    if (limit_ == 0) return;
    const Hit hit{.key = keyOf(entry, fit), .entry = entry};
    const auto better = [this](const Hit& a, const Hit& b) { return isBetter(a, b); };
    if (!isFull_) {
        hits_.push_back(hit);
        if (hits_.size() < limit_) return;
        std::make_heap(hits_.begin(), hits_.end(), better);
        isFull_ = true;
    } else {
        if (hit.key > worst_ || !isBetter(hit, hits_.front())) return;
        std::pop_heap(hits_.begin(), hits_.end(), better);
        hits_.back() = hit;
        std::push_heap(hits_.begin(), hits_.end(), better);
    }
    worst_ = hits_.front().key;
}

std::vector<std::uint32_t> BestHits::take() {
    std::sort(hits_.begin(), hits_.end(),
              [this](const Hit& a, const Hit& b) { return isBetter(a, b); });
    std::vector<std::uint32_t> entries;
    entries.reserve(hits_.size());
    for (const Hit& hit : hits_) entries.push_back(hit.entry);
    hits_.clear();
    isFull_ = limit_ == 0;
    return entries;
}

} // namespace tidyro

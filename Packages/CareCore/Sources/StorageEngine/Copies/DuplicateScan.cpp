#include "StorageEngine/Copies/DuplicateScan.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <functional>
#include <iterator>
#include <limits>
#include <utility>

#include "Base/Saturating.h"

namespace tidyro {

namespace {

/// Sorts, and keeps equal items in their order by taking the position as the last key. The stable
/// sort of the standard library takes its memory in a way that a compiler warns about.
template <class T, class Key, class Before>
void sortKeepingOrder(std::vector<T>& items, Key key, Before before) {
    std::vector<std::pair<decltype(key(items.front())), std::size_t>> order;
    order.reserve(items.size());
    for (const T& item : items) order.emplace_back(key(item), order.size());
    std::ranges::sort(order, [&](const auto& a, const auto& b) {
        if (before(a.first, b.first)) return true;
        return !before(b.first, a.first) && a.second < b.second;
    });
    std::vector<T> sorted;
    sorted.reserve(items.size());
    for (const auto& [_, position] : order) sorted.push_back(std::move(items[position]));
    items = std::move(sorted);
}

double modified(const FileObservation& file) {
    return file.modificationDate ? file.modificationDate->secondsSinceReference()
                                 : std::numeric_limits<double>::infinity();
}

DuplicateSet setOf(ExactDuplicateGroup group) {
    sortKeepingOrder(group.members, modified, std::less<>{});
    DuplicateSet set{.original = std::move(group.members.front()),
                     .copies = {},
                     .byteCountPerItem = group.byteCountPerItem,
                     .contentDigest = std::move(group.contentDigest)};
    set.copies.assign(std::move_iterator(group.members.begin() + 1),
                      std::move_iterator(group.members.end()));
    return set;
}

} // namespace

std::int64_t DuplicateSet::totalCount() const {
    return static_cast<std::int64_t>(copies.size()) + 1;
}

std::uint64_t DuplicateSet::reclaimableByteCount() const {
    return saturatingMultiply(copies.size(), byteCountPerItem);
}

DuplicateScanResult DuplicateScanResult::empty() {
    return {.sets = {}, .filesHashed = 0, .wasTruncated = false, .duration = 0};
}

DuplicateScanner::DuplicateScanner() : DuplicateScanner(Options{}) {}

DuplicateScanner::DuplicateScanner(const Options& options) : options_(options) {
    options_.maximumFilesHashed = std::max(options_.maximumFilesHashed, smallestMaximumFilesHashed);
}

std::expected<DuplicateScanResult, ExactDuplicateFinder::Error>
DuplicateScanner::scan(std::span<const FileObservation> observations,
                       const CancelToken& cancel) const {
    const auto startedAt = std::chrono::steady_clock::now();
    const ExactDuplicateFinder finder;
    DuplicateScanResult result = DuplicateScanResult::empty();
    std::uint64_t bytesRead = 0;
    for (const auto& bucket :
         ExactDuplicateFinder::sharedSizes(observations, options_.minimumFileSize)) {
        if (cancel.stop_requested()) return std::unexpected(CancellationError{});
        const std::uint64_t bytes =
            saturatingAdd(bytesRead, saturatingMultiply(bucket.size(), bucket.front()->byteCount));
        const std::int64_t files = result.filesHashed + static_cast<std::int64_t>(bucket.size());
        if (files > options_.maximumFilesHashed || bytes > options_.maximumBytesRead) {
            result.wasTruncated = true;
            break;
        }
        result.filesHashed = files;
        bytesRead = bytes;
        std::vector<FileObservation> members;
        members.reserve(bucket.size());
        for (const FileObservation* member : bucket) members.push_back(*member);
        auto groups = finder.findGroups(members, cancel);
        if (!groups) return std::unexpected(std::move(groups.error()));
        for (ExactDuplicateGroup& group : *groups) result.sets.push_back(setOf(std::move(group)));
    }
    sortKeepingOrder(
        result.sets, [](const DuplicateSet& set) { return set.reclaimableByteCount(); },
        std::greater<>{});
    result.duration =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - startedAt).count();
    return result;
}

} // namespace tidyro

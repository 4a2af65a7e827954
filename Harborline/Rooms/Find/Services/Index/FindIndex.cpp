#include "Rooms/Find/Services/Index/FindIndex.h"

#include <algorithm>
#include <atomic>
#include <utility>

namespace tidyro {

namespace {

using Entry = FindIndexStorage::Entry;

/// Every entry stands behind the folder that holds it, so one pass tells what each inherits.
FindEntrySet takingPart(const FindIndexStorage& storage, FindScope scope) {
    const Entry count = storage.count();
    FindEntrySet takesPart(count);
    const auto unwanted =
        static_cast<std::uint8_t>((scope.hidden ? 0 : findflag::hidden) |
                                  (scope.system ? 0 : findflag::system) | findflag::deleted);
    // A folder with one of these flags keeps out its contents. Hidden and system are in the flags
    // of every entry anyway.
    const auto closing = static_cast<std::uint8_t>(findflag::deleted |
                                                   (scope.packageContents ? 0 : findflag::package));
    unsigned present = 0;
    for (const std::uint8_t flags : storage.flags.span()) present |= flags;
    if ((present & (unwanted | closing)) == 0 && count > 0) { // mostly nothing has to be left out
        takesPart.addAll();
        takesPart.remove(0);
        return takesPart;
    }
    GrowingArray<bool> isClosed; // to what it holds
    isClosed.append(count, false);
    for (Entry entry = 0; entry < count; ++entry) {
        const Entry folder = storage.parent[entry];
        const bool isInClosed = folder != FindIndexStorage::none && isClosed[folder];
        isClosed[entry] = isInClosed || storage.is(entry, closing);
        if (entry != 0 && !isInClosed && !storage.is(entry, unwanted)) takesPart.add(entry);
    }
    return takesPart;
}

std::uint64_t newGeneration() {
    static std::atomic<std::uint64_t> last = 0;
    return ++last;
}

} // namespace

FindIndex::Storage FindIndex::storage() const {
    const std::scoped_lock held(lock_);
    return storage_;
}

FindIndexMetadata FindIndex::metadata() const {
    const std::scoped_lock held(lock_);
    return metadataValue_;
}

std::uint64_t FindIndex::generation() const {
    const std::scoped_lock held(lock_);
    return generationValue_;
}

std::uint64_t FindIndex::revision() const {
    const std::scoped_lock held(lock_);
    return revisionValue_;
}

FindIndexSummary FindIndex::summary() const {
    const std::scoped_lock held(lock_);
    const std::int64_t entries =
        storage_ == nullptr ? 0 : std::int64_t{storage_->count()} - storage_->deletedCount;
    return {.itemCount = std::max(entries, std::int64_t{0}),
            .unreadableFolderCount = storage_ == nullptr ? 0 : storage_->deniedCount,
            .builtAt = metadataValue_.builtAt,
            .updatedAt = std::max(metadataValue_.builtAt, metadataValue_.savedAt)};
}

void FindIndex::exchange(FindIndexStorage storage, FindIndexMetadata metadata, Numbers numbers) {
    storage.extendPlaces();
    Storage next = std::make_shared<const FindIndexStorage>(std::move(storage));
    std::optional<CachedMask> mask;
    {
        const std::scoped_lock held(lock_);
        std::swap(storage_, next);
        metadataValue_ = metadata;
        if (numbers == Numbers::others) generationValue_ = newGeneration();
        ++revisionValue_;
    }
    const std::scoped_lock held(maskLock_);
    std::swap(maskCache_, mask); // the storage before is given back after the locks are
}

void FindIndex::replace(FindIndexStorage storage, FindIndexMetadata metadata) {
    exchange(std::move(storage), metadata, Numbers::others);
}

void FindIndex::update(FindIndexStorage storage, FindIndexMetadata metadata) {
    exchange(std::move(storage), metadata, Numbers::same);
}

std::shared_ptr<const FindEntrySet> FindIndex::mask(const Storage& searched,
                                                    FindScope scope) const {
    {
        const std::scoped_lock held(maskLock_);
        if (maskCache_ && maskCache_->storage == searched && maskCache_->scope == scope) {
            return maskCache_->mask;
        }
    }
    auto made = std::make_shared<const FindEntrySet>(takingPart(*searched, scope));
    std::optional<CachedMask> replaced(
        CachedMask{.storage = searched, .scope = scope, .mask = made});
    const std::scoped_lock held(maskLock_);
    // A search that goes on with a storage from before must not keep it from being given back.
    if (storage() == searched) std::swap(maskCache_, replaced);
    return made;
}

} // namespace tidyro

#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "Base/Timestamp.h"
#include "Rooms/Find/Services/Index/FindEntrySet.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"

namespace tidyro {

/// What is saved beside an index.
struct FindIndexMetadata {
    std::uint64_t lastEventID = 0; ///< the last event of the file system that it knows of
    Timestamp builtAt;
    Timestamp savedAt;
    bool operator==(const FindIndexMetadata&) const = default;
};

/// What takes part in a search beside ordinary files and folders. Everything does by default.
struct FindScope {
    bool hidden = true;
    bool system = true;
    bool packageContents = true;
    bool operator==(const FindScope&) const = default;
};

/// What people are told of an index.
struct FindIndexSummary {
    std::int64_t itemCount;
    std::int64_t unreadableFolderCount;
    Timestamp builtAt;
    Timestamp updatedAt;
    bool operator==(const FindIndexSummary&) const = default;
};

/// The index that searches use and live updates change. Any thread may call.
///
///     FindIndex index;
///     index.replace(std::move(storage), {.builtAt = now, .savedAt = now});
///     const auto searched = index.storage();
///     const auto mask = index.mask(searched, {.hidden = false});
///
/// A storage is never changed once it is in here. Whoever wants to change it changes a copy and
/// hands that to `update`, so a search may keep the storage that it began with, and nobody waits
/// for anybody longer than it takes to copy a pointer.
class FindIndex {
  public:
    using Storage = std::shared_ptr<const FindIndexStorage>; ///< null before the first

    [[nodiscard]] Storage storage() const;
    [[nodiscard]] FindIndexMetadata metadata() const;
    [[nodiscard]] FindIndexSummary summary() const;
    /// A number for what the entries mean: two storages of one generation have the same entries by
    /// the same numbers. Each `replace` makes a larger one, which no other index has. 0 before the
    /// first storage.
    [[nodiscard]] std::uint64_t generation() const;
    /// How often a storage was put in, by `replace` or `update`.
    [[nodiscard]] std::uint64_t revision() const;

    /// Puts in a new index. From here on the numbers of entries mean something else.
    void replace(FindIndexStorage storage, FindIndexMetadata metadata);
    /// Puts in the same index after live updates. Entries that stay keep their numbers.
    void update(FindIndexStorage storage, FindIndexMetadata metadata);

    /// The entries that take part in a search of this scope. The root, deleted entries and what
    /// lies in them never do. The last answer is kept for the next search.
    [[nodiscard]] std::shared_ptr<const FindEntrySet> mask(const Storage& searched,
                                                           FindScope scope) const;

  private:
    /// Whether the numbers of entries go on to mean the same.
    enum class Numbers : std::uint8_t { same, others };
    void exchange(FindIndexStorage storage, FindIndexMetadata metadata, Numbers numbers);

    struct CachedMask {
        Storage storage;
        FindScope scope;
        std::shared_ptr<const FindEntrySet> mask;
    };

    mutable std::mutex lock_; ///< held for a few copies only
    Storage storage_;
    FindIndexMetadata metadataValue_;
    std::uint64_t generationValue_ = 0;
    std::uint64_t revisionValue_ = 0;
    mutable std::mutex maskLock_;
    mutable std::optional<CachedMask> maskCache_;
};

} // namespace tidyro

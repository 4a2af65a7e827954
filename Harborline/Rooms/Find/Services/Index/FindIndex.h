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

/// What takes part in a search beside ordinary files and folders.
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
/// A search takes the storage as it is and keeps it: a change is made to a copy, which then takes
/// its place. So nobody waits for anybody longer than it takes to copy a pointer.
class FindIndex {
  public:
    using Storage = std::shared_ptr<const FindIndexStorage>; ///< null before the first

    [[nodiscard]] Storage storage() const;
    [[nodiscard]] FindIndexMetadata metadata() const;
    [[nodiscard]] FindIndexSummary summary() const;
    /// Another one, and a larger, whenever the numbers of entries mean something else; that of no
    /// other index. 0 before the first storage.
    [[nodiscard]] std::uint64_t generation() const;
    /// Counts every change.
    [[nodiscard]] std::uint64_t revision() const;

    /// A new index: numbers of entries mean something else from here on.
    void replace(FindIndexStorage storage, FindIndexMetadata metadata);
    /// The same index after live updates, in which entries that stay keep their numbers.
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

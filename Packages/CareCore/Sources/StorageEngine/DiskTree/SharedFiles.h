#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "Base/GrowingArray.h"
#include "Platform/Folders/FolderReading.h"
#include "StorageEngine/DiskTree/DiskTreeColumns.h"

namespace tidyro {

/// Counts the bytes of a file with several names once, and the blocks that clones share once. The
/// smallest path of each carries them, whatever order the threads of a scan came in, so that two
/// scans of an unchanged folder are equal.
///
/// Further names hold no bytes (`extraHardLink`). Further clones hold the blocks that are theirs
/// alone (`extraClone`). The lock of the walk guards it.
class SharedFiles {
  public:
    /// `carryingLast` is the name of a folder directly in the root, or empty. What lies in it
    /// carries only what has no path elsewhere.
    explicit SharedFiles(std::string carryingLast = {}) : carryingLast_(std::move(carryingLast)) {}

    /// A node that shares something, as the columns hold it: with all of its bytes.
    struct Sharing {
        NodeNumber node;
        platform::ItemIdentity file = {};   ///< all zeros for a file with one name
        platform::ItemIdentity family = {}; ///< of clones; all zeros for none
        std::uint64_t sharedBytes = 0;      ///< how many of its allocated bytes clones may share
    };
    /// What a sum over all nodes grew or shrank by.
    struct Change {
        std::int64_t logical = 0;
        std::int64_t allocated = 0;
    };
    /// Takes a node in that was just appended, and moves bytes to the node that carries them.
    [[nodiscard]] Change add(DiskTreeColumns& columns, const Sharing& sharing);

  private:
    /// What carries something, by identity: open addressing over plain slots, because a store of
    /// packages can hold a million hard links and a node-based map would outweigh the tree.
    template <class Carrier>
    class Carriers {
      public:
        /// The carrier of a key, and whether it was just made from `first`. The reference is good
        /// until the next call. The key of all zeros is not to be asked for.
        std::pair<Carrier&, bool> findOrInsert(const platform::ItemIdentity& key, Carrier first);

      private:
        struct Slot {
            platform::ItemIdentity key{};
            Carrier carrier{};
        };
        Slot& slotFor(const platform::ItemIdentity& key);
        void grow();

        GrowingArray<Slot> slots_; ///< a power of two of them
        std::size_t count_ = 0;
    };
    struct CloneCarrier {
        NodeNumber node = 0;
        std::uint64_t sharedBytes = 0;
    };

    [[nodiscard]] bool isFurtherName(DiskTreeColumns& columns, const Sharing& sharing,
                                     Change& change);
    void settleClone(DiskTreeColumns& columns, const Sharing& sharing, Change& change);

    std::string carryingLast_;
    Carriers<NodeNumber> names_;
    Carriers<CloneCarrier> clones_;
};

} // namespace tidyro

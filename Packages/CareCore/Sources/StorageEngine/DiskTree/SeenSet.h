#pragma once

#include <cstddef>
#include <cstdint>

#include "Base/GrowingArray.h"
#include "Platform/Folders/FolderReading.h"

namespace tidyro {

/// Files already met, by identity: open addressing over plain slots of 16 bytes, because a store
/// of packages can hold a million hard links and a node-based set would outweigh the tree.
class SeenSet {
  public:
    /// True when the key is met for the first time. The key of all zeros stands for an empty slot
    /// and counts as met.
    bool insert(platform::ItemIdentity key) {
        if (key == empty) return false;
        if ((count_ + 1) * 4 > slots_.size() * 3) grow();
        platform::ItemIdentity& slot = slotFor(key);
        if (slot == key) return false;
        slot = key;
        ++count_;
        return true;
    }

  private:
    static constexpr platform::ItemIdentity empty{};

    platform::ItemIdentity& slotFor(platform::ItemIdentity key) {
        const std::size_t mask = slots_.size() - 1;
        std::uint64_t hash = (key.inode ^ key.device << 40) * 0x9E3779B97F4A7C15U;
        hash ^= hash >> 32;
        std::size_t at = static_cast<std::size_t>(hash) & mask;
        while (!(slots_[at] == empty) && !(slots_[at] == key)) at = (at + 1) & mask;
        return slots_[at];
    }
    void grow() {
        GrowingArray<platform::ItemIdentity> old = std::move(slots_);
        slots_ = {};
        slots_.resize(old.empty() ? 1'024 : old.size() * 2);
        for (const platform::ItemIdentity& key : old) {
            if (!(key == empty)) slotFor(key) = key;
        }
    }

    GrowingArray<platform::ItemIdentity> slots_; ///< a power of two of them
    std::size_t count_ = 0;
};

} // namespace tidyro

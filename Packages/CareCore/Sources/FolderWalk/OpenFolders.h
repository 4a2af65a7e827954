#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <utility>
#include <vector>

#include "Platform/Folders/FolderReading.h"

namespace tidyro {

/// The folders that a walk holds open because folders inside them still wait to be read.
///
/// A waiting folder names the slot from which it is reached. That is the slot of its parent or,
/// once as many folders are open as the process may afford, of the nearest ancestor that is open. A
/// slot counts the folders that wait for it, and closes with the last. The walk's lock guards all
/// of it. An open folder itself may be used without the lock by whoever is counted in its slot.
class OpenFolders {
  public:
    using Slot = std::uint32_t;
    using Number = std::uint32_t; ///< a folder's, in whatever the walk fills; the root's is 0

    /// The root's slot is 0 and stays open.
    OpenFolders(platform::FolderDescriptor root, std::size_t budget) : budget_(budget) {
        slots_.push_back({.folder = std::move(root), .number = 0, .users = 1});
    }

    [[nodiscard]] bool hasRoom() const { return slots_.size() - free_.size() <= budget_; }

    /// Takes a folder over for `users` waiting folders.
    Slot hold(platform::FolderDescriptor folder, Number number, std::uint32_t users) {
        Open open{.folder = std::move(folder), .number = number, .users = users};
        if (free_.empty()) {
            slots_.push_back(std::move(open));
            return static_cast<Slot>(slots_.size() - 1);
        }
        const Slot slot = free_.back();
        free_.pop_back();
        slots_[slot] = std::move(open);
        return slot;
    }
    void retain(Slot slot, std::uint32_t users) { slots_[slot].users += users; }

    /// One waiting folder less. A folder that nobody waits for is returned, so that it is closed
    /// without the lock.
    [[nodiscard]] platform::FolderDescriptor release(Slot slot) {
        if (--slots_[slot].users > 0) return {};
        free_.push_back(slot);
        return std::move(slots_[slot].folder);
    }

    /// The reference stays good while somebody counts on the slot.
    [[nodiscard]] const platform::FolderDescriptor& folder(Slot slot) const {
        return slots_[slot].folder;
    }
    [[nodiscard]] Number number(Slot slot) const { return slots_[slot].number; }

  private:
    struct Open {
        platform::FolderDescriptor folder;
        Number number;
        std::uint32_t users;
    };

    std::size_t budget_;
    std::deque<Open> slots_; // references stay good while it grows
    std::vector<Slot> free_;
};

} // namespace tidyro

#pragma once

#include <cstdint>

#include "Rooms/Find/Services/Index/FindDirectoryListing.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"

namespace tidyro {

/// The entries of one folder, made ready by a thread of its own so that a storage which many
/// threads fill takes them over by copying columns.
///
///     block.begin({.flags = storage.flags[folder], .marksSystemFolders = false});
///     block.add(listing);                             // without the storage's lock
///     const auto first = block.moveInto(storage, folder); // under it
///
/// What the entries become, their categories and their folded names, a storage of the block's own
/// works out: there is one place only that knows.
class FindIndexBlock {
  public:
    /// What the folder hands down.
    struct Folder {
        std::uint8_t flags;
        bool marksSystemFolders; ///< it is the root, and the folders of the system are marked
    };

    void begin(Folder folder);
    /// A part of the folder's listing.
    void add(const FindDirectoryListing& listing);

    [[nodiscard]] std::uint32_t count() const { return prepared_.count() - 1; }
    /// Whether the storage can count what would be in it.
    [[nodiscard]] bool fits(const FindIndexStorage& storage) const;
    /// Appends the entries as the folder's block, and says which is the first, `none` when there
    /// are none. The block is spent, and gives back what a huge folder made it take.
    FindIndexStorage::Entry moveInto(FindIndexStorage& storage, FindIndexStorage::Entry folder);

  private:
    [[nodiscard]] static FindIndexStorage emptied();

    /// The folder stands for the root in it, as entry 0.
    FindIndexStorage prepared_ = emptied();
    bool isOverflowing_ = false; ///< the folder alone has more than a storage can count
};

} // namespace tidyro

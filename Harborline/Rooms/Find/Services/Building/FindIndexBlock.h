#pragma once

#include <cstdint>

#include "Rooms/Find/Services/Index/FindDirectoryListing.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"

namespace tidyro {

/// The entries of one folder, made ready outside the storage that they go to. Many threads fill one
/// storage: each works out its entries in a block of its own, and holds the storage's lock only
/// while whole columns are copied.
///
///     block.begin({.flags = storage.flags[folder], .marksSystemFolders = false});
///     block.add(listing);                             // without the storage's lock
///     const auto first = block.moveInto(storage, folder); // under it
///
/// A block has a small storage of its own, so that flags, categories and folded names are worked
/// out in one position only. One thread uses a block.
class FindIndexBlock {
  public:
    /// What the folder hands down.
    struct Folder {
        std::uint8_t flags;
        bool marksSystemFolders; ///< it is the root, and the folders of the system are marked
    };

    void begin(Folder folder);
    /// Adds a part of the folder's listing.
    void add(const FindDirectoryListing& listing);

    [[nodiscard]] std::uint32_t count() const { return prepared_.count() - 1; }
    /// Whether the storage has room for the entries: numbers and offsets have 32 bits.
    [[nodiscard]] bool hasRoomIn(const FindIndexStorage& storage) const;
    /// Appends the entries as the folder's block and returns the first of them, or `none` when
    /// there are none. The block is spent until the next `begin`; memory that a huge folder took is
    /// given back.
    FindIndexStorage::Entry moveInto(FindIndexStorage& storage, FindIndexStorage::Entry folder);

  private:
    [[nodiscard]] static FindIndexStorage emptied();

    /// Its root, entry 0, stands for the folder.
    FindIndexStorage prepared_ = emptied();
    bool isOverflowing_ = false; ///< the folder alone has more than a storage can count
};

} // namespace tidyro

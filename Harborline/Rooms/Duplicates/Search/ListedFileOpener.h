#pragma once

#include <array>
#include <cstddef>
#include <optional>

#include "Platform/Files/FileContents.h"
#include "Platform/Folders/FolderReading.h"
#include "Rooms/Duplicates/Search/DuplicateListing.h"

namespace tidyro {

/// Opens listed files, those of one folder after another cheaply: the folder stays open. No link is
/// followed, whatever has become of the folders since they were listed. Used by one thread.
class ListedFileOpener {
  public:
    struct Opened {
        platform::FileContents contents;
        platform::FileMetadata seen; ///< of what was opened
        bool mayShareBlocks;         ///< on a file system whose files might
    };

    explicit ListedFileOpener(const DuplicateListing& listing) : listing_(listing) {}

    /// None for what is not there any more or cannot be opened. What it is now is not looked at.
    [[nodiscard]] std::optional<platform::FileContents> open(const ListedFile& file);
    /// None also for what is no regular file or keeps its contents elsewhere, and when its size is
    /// not the one that was listed.
    [[nodiscard]] std::optional<Opened> openLooking(const ListedFile& file);
    /// What the name stands for at this moment, without opening it.
    [[nodiscard]] std::optional<platform::FileMetadata> look(const ListedFile& file);

  private:
    [[nodiscard]] bool reach(const ListedFile& file);
    [[nodiscard]] bool enterFolder(const DiskTree& tree, NodeNumber node);
    [[nodiscard]] std::expected<platform::FolderDescriptor, SystemError>
    opened(NodeNumber folder) const;

    const DuplicateListing& listing_;
    const DiskTree* tree_ = nullptr; ///< whose root is open
    platform::FolderDescriptor root_;
    NodeNumber node_ = -1; ///< of the folder that is open
    platform::FolderDescriptor folder_;
    bool mayShareBlocks_ = false;              ///< the root's file system, and a tree is of one
    platform::FileContents::OwnerHint owners_; ///< of the folder that is open
    std::string name_;
};

} // namespace tidyro

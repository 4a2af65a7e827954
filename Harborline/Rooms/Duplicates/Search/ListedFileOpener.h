#pragma once

#include <array>
#include <cstddef>
#include <optional>

#include "Platform/Files/FileContents.h"
#include "Platform/Files/FileLease.h"
#include "Platform/Folders/FolderReading.h"
#include "Rooms/Duplicates/Search/DuplicateListing.h"

namespace tidyro {

/// Opens listed files. It keeps the folder of the last file open, so files of one folder are best
/// opened one after another. It follows no link, even where one has taken the place of a folder
/// since the listing. Used by one thread.
class ListedFileOpener {
  public:
    struct Opened {
        platform::FileContents contents;
        platform::FileMetadata seen; ///< of what was opened
        bool mayShareBlocks;         ///< with other files; its file system allows it
    };

    explicit ListedFileOpener(const DuplicateListing& listing) : listing_(listing) {}

    /// None when nothing is there any more or it cannot be opened. What was opened may be another
    /// file than the listed one.
    [[nodiscard]] std::optional<platform::FileContents> open(const ListedFile& file);
    /// None also when it is no regular file, keeps its contents elsewhere, or has another size than
    /// the listed one.
    [[nodiscard]] std::optional<Opened> openAndLook(const ListedFile& file);
    /// What the file's name stands for now. Opens nothing but its folder.
    [[nodiscard]] std::optional<platform::FileMetadata> look(const ListedFile& file);
    /// Who has the file open, asked by the file itself and not by its path.
    [[nodiscard]] platform::FileUse use(const ListedFile& file);

  private:
    [[nodiscard]] bool reach(const ListedFile& file);
    [[nodiscard]] bool enterFolder(const DiskTree& tree, NodeNumber node);
    [[nodiscard]] std::expected<platform::FolderDescriptor, SystemError>
    openFolder(NodeNumber folder) const;

    const DuplicateListing& listing_;
    const DiskTree* tree_ = nullptr; ///< whose root is open
    platform::FolderDescriptor root_;
    NodeNumber node_ = -1; ///< of the folder that is open
    platform::FolderDescriptor folder_;
    bool mayShareBlocks_ = false; ///< one answer for a tree, which lies on one file system
    platform::FileContents::OwnerHint owners_; ///< of the folder that is open
    std::string name_;
};

} // namespace tidyro

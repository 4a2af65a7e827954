#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Base/GrowingArray.h"
#include "FolderWalk/FolderWalk.h"
#include "Platform/Folders/FolderReading.h"
#include "StorageEngine/DiskTree/DiskTreeColumns.h"
#include "StorageEngine/DiskTree/SharedFiles.h"

namespace tidyro {

/// The entries of one folder, gathered by a thread without the walk's lock, in the columns of the
/// tree so that taking them over is a handful of block copies.
class DiskTreeBatch {
  public:
    /// What entries inherit from their folder.
    struct Inherited {
        std::optional<ContentKind> context;        ///< the content kind of all of them
        bool isStartupDiskRoot = false;            ///< the folder is "/"
        bool mayDescend = true;                    ///< false at the walk's greatest depth
        const PlaceTree::Branch* places = nullptr; ///< places to skip, here or below
    };

    void clear();
    void add(const platform::FolderEntry& entry, const Inherited& inherited);

    /// Looks up the dates of those folders that will not be opened.
    void dateUnreadFolders(const platform::FolderDescriptor& folder);

    /// Appends the entries as children of `parent`. The batch is spent, and gives back what a very
    /// large folder made it take.
    void moveInto(DiskTreeColumns& columns, NodeNumber parent);

    [[nodiscard]] std::size_t count() const { return flags_.size(); }
    [[nodiscard]] std::size_t nameByteCount() const { return names_.size(); }
    [[nodiscard]] std::uint64_t folders() const { return folders_; }
    [[nodiscard]] std::uint64_t logicalTotal() const { return logicalTotal_; }
    [[nodiscard]] std::uint64_t allocatedTotal() const { return allocatedTotal_; }
    /// The folders among the entries that are to be read.
    [[nodiscard]] const std::vector<FolderWalk::Descent>& descents() const { return descents_; }
    /// The entries that share something; each node is still a slot among this batch's entries.
    [[nodiscard]] const std::vector<SharedFiles::Sharing>& sharing() const { return sharing_; }

  private:
    void addFolder(const platform::FolderEntry& entry, const Inherited& inherited,
                   const PlaceTree::Branch* places);
    void addFile(const platform::FolderEntry& entry, const Inherited& inherited);
    void push(const platform::FolderEntry& entry, ContentKind kind, DiskTreeFlags flags);

    GrowingArray<char> names_;
    GrowingArray<std::uint16_t> nameLengths_;
    GrowingArray<std::uint64_t> logical_;
    GrowingArray<std::uint64_t> allocated_;
    GrowingArray<std::uint32_t> modified_;
    GrowingArray<std::uint32_t> accessed_;
    GrowingArray<ContentKind> kinds_;
    GrowingArray<DiskTreeFlags> flags_;
    std::vector<FolderWalk::Descent> descents_;
    std::vector<SharedFiles::Sharing> sharing_;
    std::vector<std::pair<std::size_t, std::string>> undated_; ///< slot and name
    std::uint64_t folders_ = 0;
    std::uint64_t logicalTotal_ = 0;
    std::uint64_t allocatedTotal_ = 0;
};

} // namespace tidyro

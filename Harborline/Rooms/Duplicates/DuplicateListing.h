#pragma once

#include <cstdint>
#include <deque>
#include <expected>
#include <functional>
#include <string>
#include <vector>

#include "Base/Cancellation.h"
#include "Rooms/Duplicates/DuplicateSearchOptions.h"
#include "StorageEngine/DiskTree/DiskTree.h"
#include "StorageEngine/DiskTree/DiskTreeScanner.h"

namespace tidyro {

/// A file that a search may look at: a node of one of its trees.
struct ListedFile {
    std::uint64_t bytes;
    NodeNumber node;
    std::uint16_t tree;
    bool insidePackage; ///< in an application or another package folder
};

/// All files that a search for duplicates may look at, in the order of their folders.
///
/// Paths are made from the trees when they are needed: most files never need theirs.
class DuplicateListing {
  public:
    /// From the tree of a finished scan.
    void add(const DiskTree& tree, const DuplicateSearchOptions& options);

    /// By reading a folder. A folder that cannot be read is an error, unless it `mayBeMissing`.
    [[nodiscard]] std::expected<void, DiskTreeScanner::ScanError>
    read(const FileURL& root, bool mayBeMissing, const DuplicateSearchOptions& options,
         const std::function<void(const std::string&)>& progress, const CancelToken& cancel);

    [[nodiscard]] const std::vector<ListedFile>& files() const { return files_; }
    [[nodiscard]] std::int64_t deniedFolders() const { return denied_; }

    [[nodiscard]] const DiskTree& tree(const ListedFile& file) const { return *trees_[file.tree]; }
    [[nodiscard]] std::string path(const ListedFile& file) const {
        return tree(file).path(file.node);
    }

  private:
    std::deque<DiskTree> own_; ///< trees that were read for this search
    std::vector<const DiskTree*> trees_;
    std::vector<ListedFile> files_;
    std::int64_t denied_ = 0;
};

} // namespace tidyro

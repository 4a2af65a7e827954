#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <expected>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Base/Cancellation.h"
#include "Rooms/Duplicates/Search/DuplicateSearchOptions.h"
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

    /// Of the first tree.
    [[nodiscard]] const FileURL& rootURL() const { return trees_.front()->rootURL(); }
    [[nodiscard]] const DiskTree& tree(const ListedFile& file) const { return *trees_[file.tree]; }
    /// Whether a folder was reached: what lies in it is listed, as far as it is to be.
    [[nodiscard]] bool holds(const FileURL& folder) const;

    /// A file that could not be opened for want of descriptors or memory is missing from the
    /// result, and the result is none. Any thread may tell of it; other errors are no such thing.
    void noteShortage(SystemError error) const;
    [[nodiscard]] std::optional<SystemError> shortage() const;

    [[nodiscard]] std::string path(const ListedFile& file) const {
        return tree(file).path(file.node);
    }

  private:
    std::deque<DiskTree> own_; ///< trees that were read for this search
    std::vector<const DiskTree*> trees_;
    std::vector<ListedFile> files_;
    std::int64_t denied_ = 0;
    mutable std::atomic<int> shortage_ = 0;
};

} // namespace tidyro

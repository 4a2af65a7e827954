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

/// A file that a search may look at.
struct ListedFile {
    std::uint64_t bytes;
    NodeNumber node;    ///< in its tree
    std::uint16_t tree; ///< the number of its tree in the listing
    bool insidePackage; ///< in an application or another package folder
};

/// All files that a search for duplicates may look at, in the order of their folders. What lies in
/// the Trash is left out: it is gone as soon as somebody empties that. The listing refers to
/// the trees that are added to it and owns those that it reads. Paths are made from the trees when
/// they are asked for, since most files never need theirs.
class DuplicateListing {
  public:
    /// Adds the files of a finished scan.
    void add(const DiskTree& tree, const DuplicateSearchOptions& options);

    enum class IfUnreadable : std::uint8_t { fail, skip };
    /// Reads a folder and adds its files. `progress` receives the paths of folders.
    [[nodiscard]] std::expected<void, DiskTreeScanner::ScanError>
    read(const FileURL& root, IfUnreadable ifUnreadable, const DuplicateSearchOptions& options,
         const std::function<void(const std::string&)>& progress, const CancelToken& cancel);

    [[nodiscard]] const std::vector<ListedFile>& files() const { return files_; }
    [[nodiscard]] std::int64_t deniedFolders() const { return denied_; }

    [[nodiscard]] const DiskTree& tree(const ListedFile& file) const { return *trees_[file.tree]; }
    [[nodiscard]] std::string path(const ListedFile& file) const {
        return tree(file).path(file.node);
    }
    /// The root of the first tree.
    [[nodiscard]] const FileURL& rootURL() const { return trees_.front()->rootURL(); }
    /// Whether one of the trees reached the folder, so that nothing of it is left to be listed.
    [[nodiscard]] bool hasReached(const FileURL& folder) const;

    /// Remembers an error of opening a file if it means that the process or the system ran out of
    /// descriptors or memory. A search that misses files for that reason has no result. Any thread
    /// may call it.
    void noteShortage(SystemError error) const;
    /// Counts a file that is there and could not be opened. Any thread may call it.
    void noteUnread() const { ++unread_; }
    [[nodiscard]] std::int64_t unreadFiles() const { return unread_; }
    /// The last shortage that was noted.
    [[nodiscard]] std::optional<SystemError> shortage() const;

  private:
    std::deque<DiskTree> own_; ///< its elements stay where they are
    std::vector<const DiskTree*> trees_;
    std::vector<ListedFile> files_;
    std::int64_t denied_ = 0;
    mutable std::atomic<int> shortage_ = 0;
    mutable std::atomic<std::int64_t> unread_ = 0;
};

} // namespace tidyro

#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <variant>

#include "Base/Cancellation.h"
#include "Base/FileURL.h"
#include "Base/SystemError.h"
#include "StorageEngine/DiskTree/DiskTree.h"

namespace tidyro {

/// Reads a folder or a whole volume into a DiskTree: the only producer of trees from the disk.
///
///     const DiskTreeScanner scanner;
///     const auto tree = scanner.scan(folder);
///     if (!tree) return DiskTreeScanner::description(tree.error());
///     return RoomText::counted(tree->fileCount(DiskTree::root), "file", "files");
///
/// Several threads of its own read folders while the caller waits. Links are never followed and
/// other volumes never entered. Entries that vanish meanwhile are left out. A folder that cannot be
/// read is counted and is no error: only a root that cannot be read is one.
class DiskTreeScanner {
  public:
    /// A root that is no folder.
    struct NotADirectory {
        FileURL url;
        bool operator==(const NotADirectory&) const = default;
    };
    /// A root that the system would not let us read.
    struct Unreadable {
        FileURL url;
        SystemError error;
        bool operator==(const Unreadable&) const = default;
    };
    using ScanError = std::variant<NotADirectory, Unreadable, CancellationError>;
    /// One sentence for people.
    [[nodiscard]] static std::string description(const ScanError& error);

    struct Progress {
        std::uint64_t items = 0; ///< entries read so far
        std::uint64_t folders = 0;
        std::uint64_t logicalBytes = 0;
        std::uint64_t allocatedBytes = 0;
        std::uint64_t denied = 0; ///< folders that could not be read
        std::string currentPath;  ///< the folder read last
        double elapsed = 0;       ///< seconds since the scan began
        bool operator==(const Progress&) const = default;
    };
    /// Called from the scan's threads, never from two at once.
    using ProgressHandler = std::function<void(const Progress&)>;

    /// Without a count there are as many workers as processors: at least 4, because reading waits
    /// for the disk, and at most 12, because more only contend. A count below 1 means 1. With a
    /// given count there are no stand-ins.
    explicit DiskTreeScanner(std::optional<std::int64_t> workers = std::nullopt,
                             double interval = 0.1);

    std::int64_t workerCount;
    /// How many further threads join when workers wait for the disk. A disk that is asked for many
    /// things at once answers more of them in the same time. Folders that are in memory already
    /// are read fastest without stand-ins.
    std::int64_t standInCount;
    double progressInterval;                  ///< seconds between reports
    std::set<std::string> skipping;           ///< neither these nor what is in them enters the tree
    std::set<std::string> skippingContentsOf; ///< these enter without their contents
    /// The name of a folder directly in the root, or empty. A file that has a further name, or a
    /// clone, outside of it is counted there. Otherwise the smallest path is the one that counts.
    std::string carryingLast;
    std::function<void()> afterBulkRead; ///< after each bulk read, for tests and diagnostics

    [[nodiscard]] std::expected<DiskTree, ScanError> scan(const FileURL& url,
                                                          const ProgressHandler& progress = nullptr,
                                                          const CancelToken& cancel = {}) const;

    struct GuardedFolders {
        std::set<std::string> skipping;
        std::set<std::string> skippingContentsOf;
    };
    /// The folders of a home that the system guards: it asks the person about each application
    /// that reads them. Folders of synchronised files are to be skipped, and those of other
    /// applications' containers to be named without their contents.
    [[nodiscard]] static GuardedFolders privacyGuardedFolders(const FileURL& home);
};

} // namespace tidyro

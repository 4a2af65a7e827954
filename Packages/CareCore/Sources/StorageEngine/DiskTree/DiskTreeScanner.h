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
///     const auto tree = scanner.scan(FileURL::folder("/home/ada"));
///     if (!tree) show(DiskTreeScanner::description(tree.error()));
///
/// Several threads of its own read folders while the caller waits. Links are never followed, other
/// volumes never entered, entries that vanish meanwhile are left out, and a folder that cannot be
/// read is counted, not an error. Only a root that cannot be read fails.
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

    /// Absent `workers` are the machine's processors, at least 4 (reading waits for the
    /// disk) and at most 12 (more only contend). Below 1 counts as 1.
    /// A given count is kept to: nobody stands in.
    explicit DiskTreeScanner(std::optional<std::int64_t> workers = std::nullopt,
                             double interval = 0.1);

    std::int64_t workerCount;
    /// Further threads that join once workers are seen waiting for the disk. A disk that is asked
    /// for many things at once answers more of them in the same time, and folders that are in
    /// memory already are read fastest without them.
    std::int64_t standInCount;
    double progressInterval;                  ///< seconds between reports
    std::set<std::string> skipping;           ///< neither these nor what is in them enters the tree
    std::set<std::string> skippingContentsOf; ///< these enter without their contents
    std::function<void()> afterBulkRead;      ///< after each bulk read, for tests and diagnostics

    [[nodiscard]] std::expected<DiskTree, ScanError> scan(const FileURL& url,
                                                          const ProgressHandler& progress = nullptr,
                                                          const CancelToken& cancel = {}) const;

    struct GuardedFolders {
        std::set<std::string> skipping;
        std::set<std::string> skippingContentsOf;
    };
    /// The folders under a home that the system guards by asking the person for each application
    /// that reads them: synchronised files are left out, other applications' containers are named
    /// but not read.
    [[nodiscard]] static GuardedFolders privacyGuardedFolders(const FileURL& home);
};

} // namespace tidyro

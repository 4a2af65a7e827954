#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Base/FileURL.h"
#include "Base/Record.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"
#include "StorageEngine/DiskTree/DiskTree.h"

namespace tidyro {

/// One folder as a snapshot remembers it.
struct FolderSnapshotEntry {
    FileURL url;
    std::uint64_t byteCount; ///< of the whole subtree
    std::uint32_t fileCount; ///< of the whole subtree

    static constexpr auto fields() {
        return fieldList<FolderSnapshotEntry>(field("url", &FolderSnapshotEntry::url),
                                              field("byteCount", &FolderSnapshotEntry::byteCount),
                                              field("fileCount", &FolderSnapshotEntry::fileCount));
    }
    bool operator==(const FolderSnapshotEntry&) const = default;
};

/// How large the folders of a scan were. Activity compares a later scan with it.
struct FolderSnapshot {
    UUID id;
    std::string title; ///< shown to people: the folder's name
    Timestamp takenAt; ///< when the scan ended
    bool onDisk;       ///< bytes are allocated ones; otherwise logical
    /// The scanned folder, then the largest folders below it, the largest first. All folders that a
    /// listed folder lies in are listed, too.
    std::vector<FolderSnapshotEntry> folders;

    struct Options {
        NodeNumber under = DiskTree::root;
        bool onDisk = true;
        std::string title = {}; ///< the folder's name when empty
        /// Folders below this size say nothing about growth.
        std::uint64_t minimumBytes = 1'000'000;
        std::size_t maximumEntries = 20'000;
        /// The list ends early when its paths are longer than this altogether, since those of deep
        /// folders may be very long.
        std::size_t maximumPathBytes = 32'000'000;
    };
    [[nodiscard]] static FolderSnapshot take(const DiskTree& tree, const Options& options);

    /// The bytes of the scanned folder, all others included.
    [[nodiscard]] std::uint64_t byteCount() const {
        return folders.empty() ? 0 : folders.front().byteCount;
    }

    static constexpr auto fields() {
        return fieldList<FolderSnapshot>(
            field("id", &FolderSnapshot::id), field("title", &FolderSnapshot::title),
            field("takenAt", &FolderSnapshot::takenAt), field("onDisk", &FolderSnapshot::onDisk),
            field("folders", &FolderSnapshot::folders));
    }
    bool operator==(const FolderSnapshot&) const = default;
};

} // namespace tidyro

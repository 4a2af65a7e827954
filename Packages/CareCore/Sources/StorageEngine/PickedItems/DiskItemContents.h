#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <string>

#include "Base/Cancellation.h"
#include "Base/Timestamp.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderReading.h"
#include "StorageEngine/PickedItems/DiskItemRefusal.h"
#include "StorageEngine/Places/KeptFolders.h"

namespace tidyro {

/// Looks through everything in a folder that is to go as a whole, for anything that must not go
/// with it:
///
/// - items that cannot be read, belong to another user, are locked or are no ordinary files;
/// - folders that are mounted in it, and files whose contents are in a cloud;
/// - backups, and what people have among caches;
/// - files that somebody has open, by whatever name, where the file system tells;
/// - databases, told by their names, by the files that they consist of and by how files begin.
///
/// It goes down by open folders and single names, follows no link and enters no mount point.
struct DiskItemContents {
    struct Options {
        const platform::FolderDescriptor& parent;
        const std::string& name;            ///< of the folder
        const platform::FileMetadata& seen; ///< of the folder that is expected under that name
        std::uint32_t owner;                ///< user ID that every item has to have
        const KeptFolders& kept;
        std::string path = {}; ///< of the folder, for `isKept`
        /// Whether what lies at a path below it is people's own, or a tool keeps it for them.
        /// Nothing is, when nobody tells.
        std::function<bool(const std::string& path, platform::ItemKind kind)> isKept = nullptr;
        CancelToken cancel = {};
    };
    /// The latest moment at which the folder or anything in it was modified. It lies in the
    /// infinite future when an item has no such moment, since it may be changing right now. The
    /// error is the first reason met why the folder must stay.
    [[nodiscard]] static std::expected<Timestamp, DiskItemRefusal>
    lastModification(const Options& options);
};

} // namespace tidyro

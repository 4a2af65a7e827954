#pragma once

#include <cstdint>
#include <expected>
#include <string>

#include "Base/Cancellation.h"
#include "Base/Timestamp.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderReading.h"
#include "StorageEngine/PickedItems/DiskItemRefusal.h"
#include "StorageEngine/Places/KeptFolders.h"

namespace tidyro {

/// Looks through everything in a folder that is to go as a whole, for what must not go with it:
/// what cannot be read, another user's items, what is locked, mounted in it, has its contents in a
/// cloud or is no ordinary file, backups, and databases by their names, by the files that one is
/// made of and by how files begin. By open folders and single names, no link followed, no mount
/// point entered.
struct DiskItemContents {
    struct Options {
        const platform::FolderDescriptor& parent;
        const std::string& name;            ///< of the folder
        const platform::FileMetadata& seen; ///< under that name; it has to be that very folder
        std::uint32_t owner;                ///< whose everything has to be
        const KeptFolders& kept;
        CancelToken cancel = {};
    };
    /// When the folder, or anything in it, was modified last; of an item without that moment it is
    /// not known that it was ever quiet, and the answer lies in the future. Or the first thing that
    /// was met that must not go.
    [[nodiscard]] static std::expected<Timestamp, DiskItemRefusal>
    lastModification(const Options& options);
};

} // namespace tidyro

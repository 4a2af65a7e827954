#pragma once

#include <expected>
#include <optional>
#include <string>
#include <string_view>

#include "Base/StringTable.h"
#include "Base/SystemError.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderReading.h"
#include "StorageEngine/PickedItems/DiskItemRefusal.h"
#include "StorageEngine/Places/KeptFolders.h"

namespace tidyro {

/// Why an item stays that cannot be looked at: it is gone, or it may not be read.
[[nodiscard]] inline DiskItemRefusal refusalFor(SystemError error) {
    return platform::hasVanished(error) ? DiskItemRefusal::vanished : DiskItemRefusal::unreadable;
}

/// Why an item stays that is, or lies in, a folder that must stay.
[[nodiscard]] DiskItemRefusal refusalFor(KeptFolders::Reason reason);
/// Why a folder stays that holds a folder that must stay.
[[nodiscard]] DiskItemRefusal refusalForHolderOf(KeptFolders::Reason reason);

/// Knows the folders that picked items lie in. It remembers what it found out about a folder, but
/// opens the folder anew for each item, and refuses when another one is there by then. Used by one
/// thread.
class DiskItemFolders {
  public:
    explicit DiskItemFolders(KeptFolders kept);

    struct Folder {
        std::optional<DiskItemRefusal> refusal; ///< why it could not be looked at
        std::optional<DiskItemRefusal> kept;    ///< why everything in it has to stay
        std::string real;                       ///< its real path
        platform::FileMetadata seen;
        bool isWritable;
    };
    /// The folder at a path; the reference is good until the next call.
    [[nodiscard]] const Folder& at(std::string_view path);

    /// Opens it without following a link, so that the open folder is the one that was judged by its
    /// path.
    [[nodiscard]] std::expected<platform::FolderDescriptor, DiskItemRefusal>
    open(const Folder& folder) const;

    [[nodiscard]] const KeptFolders& kept() const { return kept_; }

    /// Whether nobody may change the folder, though the system would let the superuser. It was
    /// closed to everybody for a reason, so the superuser is refused as well.
    [[nodiscard]] bool isClosed(const platform::FileMetadata& folder) const {
        return isSuperuser_ && !folder.isWritableBySomebody;
    }

  private:
    [[nodiscard]] Folder look(std::string_view path);
    [[nodiscard]] std::expected<platform::FolderDescriptor, SystemError>
    openReal(std::string_view path) const;

    platform::FolderDescriptor top_; ///< "/"
    KeptFolders kept_;
    bool isSuperuser_;
    StringMap<Folder> folders_;
};

} // namespace tidyro

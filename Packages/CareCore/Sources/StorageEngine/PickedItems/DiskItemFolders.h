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

/// Why an item stays that cannot be looked at: it is gone, or everything else.
[[nodiscard]] inline DiskItemRefusal refusalFor(SystemError error) {
    return platform::hasVanished(error) ? DiskItemRefusal::vanished : DiskItemRefusal::unreadable;
}

/// Why an item stays that is, or lies in, a folder that must stay.
[[nodiscard]] DiskItemRefusal refusalFor(KeptFolders::Reason reason);
/// Why a folder stays that holds one.
[[nodiscard]] DiskItemRefusal refusalForHolderOf(KeptFolders::Reason reason);

/// The folders that picked items lie in. What is found out about one is remembered; the folder
/// itself is opened for each item anew, and has to be the one that was looked at.
class DiskItemFolders {
  public:
    explicit DiskItemFolders(KeptFolders kept);

    struct Folder {
        std::optional<DiskItemRefusal> refusal; ///< it is not there, or not to be looked at
        /// What lies in it has to stay, whatever its path is.
        std::optional<DiskItemRefusal> kept;
        std::string real; ///< without links
        platform::FileMetadata seen;
        bool isWritable;
    };
    /// The folder at a path; the reference is good until the next call.
    [[nodiscard]] const Folder& at(std::string_view path);

    /// Without following a link, so that what was judged by the path is what is open.
    [[nodiscard]] std::expected<platform::FolderDescriptor, DiskItemRefusal>
    open(const Folder& folder) const;

    [[nodiscard]] const KeptFolders& kept() const { return kept_; }

    /// The superuser is refused nothing by the system; a folder that is closed to everybody is so
    /// for a reason all the same.
    [[nodiscard]] bool isClosed(const platform::FileMetadata& folder) const {
        return isSuperuser_ && !folder.isWritableBySomebody;
    }

  private:
    [[nodiscard]] Folder look(std::string_view path);
    [[nodiscard]] std::expected<platform::FolderDescriptor, SystemError>
    openReal(std::string_view path) const;

    platform::FolderDescriptor top_; ///< of the disk
    KeptFolders kept_;
    bool isSuperuser_;
    StringMap<Folder> folders_;
};

} // namespace tidyro

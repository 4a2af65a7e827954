#pragma once

#include <expected>
#include <string>
#include <vector>

#include "Base/FileURL.h"
#include "Base/SystemError.h"
#include "CareDomain/FileObservation.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderReading.h"
#include "Platform/Mounts/Volumes.h"
#include "StorageEngine/Observation/FolderSurroundings.h"

namespace tidyro {

/// One fresh look at one item, for whoever is about to decide over it.
struct FileIdentity {
    /// A link is not followed. The volumes are read and the folders above are asked anew each
    /// time; a scan uses a `FileObserver`.
    [[nodiscard]] static std::expected<FileObservation, SystemError> observation(const FileURL& at);
    /// The same for another home and other volumes than the running system's.
    [[nodiscard]] static std::expected<FileObservation, SystemError>
    observation(const FileURL& at, const FileURL& home, const platform::Volumes& volumes);
};

/// The looks of one scan: what does not change from file to file (the mounted volumes, whether a
/// folder belongs to a project repository or a backup) is found out once and remembered.
///
///     FileObserver observer(home, platform::LiveVolumes());
///     const auto seen = observer.observation(folder, folderURL, "entry");
///
/// An item on a volume that was not mounted when the observer was made has no volume identifier,
/// and so has every item when the volumes cannot be read: no identifier is protection. Used by one
/// thread.
class FileObserver {
  public:
    FileObserver(const FileURL& home, const platform::Volumes& volumes);

    [[nodiscard]] std::expected<FileObservation, SystemError> observation(const FileURL& at);

    /// The same from what the system said a moment ago of the item, which lies in an open folder.
    [[nodiscard]] FileObservation observation(const platform::FolderDescriptor& folder,
                                              const FileURL& at,
                                              const platform::FileMetadata& seen);

    /// A name in a folder that is open; `url` is the folder's place. However deep that is, the
    /// look itself does not need its path.
    [[nodiscard]] std::expected<FileObservation, SystemError>
    observation(const platform::FolderDescriptor& folder, const FileURL& url, const char* name);

    /// What a folder's items belong to.
    [[nodiscard]] FolderSurroundings surroundings(const std::string& folder) {
        return judge_.surroundings(folder);
    }

  private:
    [[nodiscard]] FileObservation made(const platform::FileMetadata& seen, const FileURL& url,
                                       bool isReadable);

    std::vector<platform::Volume> volumes_;
    FolderSurroundingsFinder judge_;
};

} // namespace tidyro

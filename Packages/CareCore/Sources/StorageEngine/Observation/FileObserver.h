#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Base/FileURL.h"
#include "Base/SharedText.h"
#include "Base/SystemError.h"
#include "CareDomain/FileObservation.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderReading.h"
#include "Platform/Mounts/Volumes.h"
#include "StorageEngine/Observation/FolderSurroundings.h"

namespace tidyro {

/// One fresh look at one item, for whoever is about to decide whether it may go.
struct FileIdentity {
    /// A link is not followed. The volumes are read and the folders above are asked anew each
    /// time; a scan uses a `FileObserver`.
    [[nodiscard]] static std::expected<FileObservation, SystemError> observation(const FileURL& at);
    /// The same for another home and other volumes than the running system's.
    [[nodiscard]] static std::expected<FileObservation, SystemError>
    observation(const FileURL& at, const FileURL& home, const platform::Volumes& volumes);
};

/// A whole of which a file is a part. It is of no use without its parts, so they do not go one by
/// one; only what a tool fetched for itself may, once a person has looked.
enum class PartOf : std::uint8_t {
    nothing,
    database,     ///< of one file or of many
    repository,   ///< the history of a project
    environment,  ///< of Python or conda
    toolCheckout, ///< a repository that a package manager fetched for itself
};

/// Observes the items of one scan. What many of them share is found out once and remembered: the
/// mounted volumes, and whether a folder belongs to a project repository or a backup.
///
///     FileObserver observer(home, platform::LiveVolumes());
///     const auto seen = observer.observation(home.appending("notes.txt"));
///     if (!seen) return seen.error().description();
///     return std::to_string(seen->byteCount) + " bytes";
///
/// The volumes are read when the observer is made. An item on a volume that was mounted later has
/// no volume identifier, nor has any item when the volumes could not be read; the policy protects
/// items without one. Used by one thread.
class FileObserver {
  public:
    enum class Readable : bool { no, yes };

    FileObserver(const FileURL& home, const platform::Volumes& volumes);

    [[nodiscard]] std::expected<FileObservation, SystemError> observation(const FileURL& at);

    /// The same without asking the system again: `seen` is what it said a moment ago of the item
    /// at `at`, which lies in the open folder.
    [[nodiscard]] FileObservation observation(const platform::FolderDescriptor& folder,
                                              const FileURL& at,
                                              const platform::FileMetadata& seen);

    /// The same for an item that somebody has just asked the system whether it may be read.
    [[nodiscard]] FileObservation observation(const FileURL& at, const platform::FileMetadata& seen,
                                              Readable readable);

    /// The same for a name in an open folder, which lies at `url`. The item is reached through the
    /// open folder, so its path may be longer than the system takes.
    [[nodiscard]] std::expected<FileObservation, SystemError>
    observation(const platform::FolderDescriptor& folder, const FileURL& url, const char* name);

    /// What the folder, and those above it, say of its items.
    [[nodiscard]] FolderSurroundings surroundings(const std::string& folder) {
        return surroundings_.surroundings(folder);
    }

    /// Spares the observer opening and listing a folder that its user just listed.
    void setListed(FolderSurroundingsFinder::Listed listed) {
        surroundings_.setListed(std::move(listed));
    }

    /// What the regular file that was seen belongs to, by the folders above it and by how it
    /// begins. It lies in the open folder. A file that cannot be read counts as a database.
    [[nodiscard]] PartOf partOf(const platform::FolderDescriptor& folder,
                                const FileObservation& file);

  private:
    /// Remembers the last folder that was asked for: files come folder by folder.
    [[nodiscard]] const FolderSurroundings& around(std::string_view folder);
    [[nodiscard]] const platform::Volume* volumeOf(const platform::FileMetadata& seen);

    std::vector<platform::Volume> volumes_;
    std::vector<SharedText> volumeIdentifiers_; ///< theirs, in their order
    FolderSurroundingsFinder surroundings_;
    std::string lastFolder_;
    FolderSurroundings lastAround_{};
    std::optional<std::uint64_t> lastMount_;
    const platform::Volume* lastVolume_ = nullptr; ///< of `lastMount_`
};

} // namespace tidyro

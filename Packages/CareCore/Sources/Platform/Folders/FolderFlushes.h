#pragma once

#include <expected>
#include <functional>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "Base/SystemError.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderChanges.h"
#include "Platform/Folders/FolderReading.h"

namespace tidyro::platform {

/// Gathers the folders in which a cleanup changed something, and brings all of it to the disk at
/// once.
///
///     FolderFlushes flushes(changes);
///     flushes.note(sourceFolder, FolderFlushes::Side::left);
///     flushes.note(trashFolder, FolderFlushes::Side::entered);
///     if (const auto flushed = flushes.flush(); !flushed) return stop(flushed.error());
///
/// A whole volume is flushed with one call, which costs far less than one for each folder. Where
/// that took longer than `maxSecondsForVolume`, since others write gigabytes to the volume, its
/// folders are flushed one by one from then on. A flush that failed fails for ever: the system may
/// have dropped what it could not write, and would call the next flush a success.
///
/// Any thread may call.
class FolderFlushes {
  public:
    static constexpr double maxSecondsForVolume = 1.0;
    /// The steady clock in seconds; none for the running system's.
    using Clock = std::function<double()>;

    explicit FolderFlushes(FolderChanges& changes, Clock steadySeconds = nullptr);

    enum class Side : std::uint8_t {
        left,    ///< items were renamed out of it, or removed from it
        entered, ///< items were renamed into it
    };
    /// A descriptor of its own is kept, so the caller may close the folder.
    [[nodiscard]] std::expected<void, SystemError> note(const FolderDescriptor& folder, Side side);
    /// The same for a folder on the volume of an item that was just looked at, which mostly spares
    /// a look at the folder.
    [[nodiscard]] std::expected<void, SystemError> note(const FolderDescriptor& folder, Side side,
                                                        const FileMetadata& onSameVolume);

    /// Whether the folder's volume turned out to be slow. Whoever makes a file in the folder then
    /// flushes that file as well: no flush of the whole volume will do it.
    [[nodiscard]] bool isFlushedOneByOne(const FolderDescriptor& folder);
    /// The same for the volume of an item that was looked at before.
    [[nodiscard]] bool isFlushedOneByOne(const FileMetadata& onSameVolume);

    /// The folders that items left come first, one by one as well as volume by volume. On btrfs the
    /// other order leaves a file under both of its names after a crash.
    [[nodiscard]] std::expected<void, SystemError> flush();

  private:
    struct Volume {
        bool isSlow = false;
        /// The folders that changed since the last flush; one alone where the volume is not slow.
        std::map<ItemIdentity, FolderDescriptor> left = {};
        std::map<ItemIdentity, FolderDescriptor> entered = {};

        [[nodiscard]] auto& folders(Side side) { return side == Side::left ? left : entered; }
    };
    [[nodiscard]] std::expected<void, SystemError> flushSide(Volume& volume, Side side);

    FolderChanges& changes_;
    Clock steadySeconds_;
    std::mutex mutex_;
    std::map<std::uint64_t, Volume>
        volumes_; ///< by mount, or by device where mounts have no number
    std::expected<void, SystemError> failed_;
};

} // namespace tidyro::platform

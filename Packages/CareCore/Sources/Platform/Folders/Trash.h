#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Base/FileURL.h"
#include "Base/SystemError.h"
#include "Base/Timestamp.h"
#include "Platform/Files/ChangeGate.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderChanges.h"
#include "Platform/Folders/FolderFlushes.h"
#include "Platform/Folders/FolderReading.h"
#include "Platform/Mounts/Volumes.h"

/// The person's Trash, as the desktop shows it: on Linux the Trash of freedesktop.org, version 1.0,
/// on macOS the system's own.
///
///     platform::Trash trash(platform::Trash::Options{});
///     auto slot = trash.reserve({.folder = parent, .name = name, .path = path, .seen = *seen});
///     if (!slot) return explain(slot.error());
///     ... look at the item once more ...
///     if (const auto moved = slot->move(); !moved) return explain(moved.error());
///     ... look at what was moved, through slot->folder() and slot->name() ...
///     trash.flush();
///
/// An item is only ever renamed, never copied. Where a rename does not reach a Trash that desktops
/// show, the item is refused.
namespace tidyro::platform {

enum class TrashFailure : std::uint8_t {
    itemGone,
    itemLocked,      ///< it, or the folder that it lies in, is marked against changes
    folderReadOnly,  ///< the folder that it lies in may not be changed
    itemReadOnly,    ///< a folder that may not be changed itself, which moving it would do
    othersSticky,    ///< in a sticky folder only its owner may move it
    othersItem,      ///< a superuser acts on what is somebody else's
    onSubvolume,     ///< no Trash on its part of the volume
    inMemory,        ///< its file system is no disk
    shownElsewhere,  ///< it is reached through a folder that is mounted a second time
    noTrashOnServer, ///< a network volume, or one behind a driver, without a Trash of this person
    onSystemVolume,  ///< desktops show no Trash there
    trashUnusable,   ///< the folder of the Trash is a link, somebody else's, or cannot be made
    volumeReadOnly,
    full,
    inUse,
    notPermitted,
    guarded,       ///< macOS: the person has not allowed it in the system's settings
    nameTaken,     ///< when it was to go back: something else has its name by now
    noDestination, ///< macOS: the item was moved, but the system did not say where
    failed,
};

struct TrashError {
    TrashFailure kind;
    SystemError system{0}; ///< 0 when the system was not asked
    bool operator==(const TrashError&) const = default;
};

struct TrashItem {
    const FolderDescriptor& folder; ///< that it lies in; outlives the slot
    std::string name;
    std::string path;  ///< its real path, which the Trash notes down
    FileMetadata seen; ///< of the item, by one who does not follow links
    /// Of all files in it, for a folder. The Trash keeps it, so that nobody has to add it up again.
    std::optional<std::uint64_t> byteCount = std::nullopt;
};

struct TrashFolders;

/// A place in the Trash for one item. As long as it is not moved there, the place is given up with
/// the slot. Used by one thread.
class TrashSlot {
  public:
    TrashSlot(TrashSlot&& other) noexcept;
    TrashSlot& operator=(TrashSlot&&) = delete;
    ~TrashSlot();

    /// Moves the item, by one rename that never replaces. What is moved is whatever has the name at
    /// that moment, so the caller compares before and after. The folders on both sides are noted
    /// for the next flush.
    [[nodiscard]] std::expected<void, TrashError> move();
    /// Moves it back, never replacing, and gives up the place. `nameTaken`: it stays in the Trash.
    [[nodiscard]] std::expected<void, TrashError> moveBack();

    /// Where it lies once it was moved. On macOS the system decides only then.
    [[nodiscard]] FileURL url() const;
    [[nodiscard]] const FolderDescriptor& folder() const;
    [[nodiscard]] const std::string& name() const;

  private:
    friend class Trash;
    struct Body;
    explicit TrashSlot(std::unique_ptr<Body> body);
    std::unique_ptr<Body> body_;
};

/// Used by one thread.
class Trash {
  public:
    struct Options {
        /// None: those of the running system.
        const Volumes* volumes = nullptr;
        FolderChanges* changes = nullptr;
        ChangeGate* gate = &ChangeGate::open();
        /// What gathers the changed folders until they are flushed; shared with whoever else
        /// changes folders in the same run. None: one of its own.
        FolderFlushes* flushes = nullptr;
        /// The folder of the person's own Trash; not used on macOS.
        std::optional<FileURL> home = std::nullopt;
        std::function<Timestamp()> now = [] { return Timestamp::now(); };
    };
    explicit Trash(Options options);
    ~Trash();
    Trash(const Trash&) = delete;
    Trash& operator=(const Trash&) = delete;

    /// Chooses the Trash for an item and takes a place there. Nothing has happened to the item.
    [[nodiscard]] std::expected<TrashSlot, TrashError> reserve(const TrashItem& item);

    /// Brings everything that was moved since the last time to the disk, with what the Trash knows
    /// of it. Where the flushes are shared, whatever else they gathered goes along.
    [[nodiscard]] std::expected<void, SystemError> flush();

  private:
    struct Body;
    std::unique_ptr<Body> body_;
};

/// What may be known of an item before it is moved to the Trash: whether its folder, its owner and
/// its locks allow that. None: nothing speaks against it.
[[nodiscard]] std::optional<TrashError> trashRefusal(const TrashItem& item);

/// An item in the Trash that is to leave it.
///
///     const auto trashed = platform::TrashedItem::open(trashURL);
///     ... look at it, and move it away by `trashed->folder` and `trashed->name` ...
///     trashed->forget(changes);
struct TrashedItem {
    FolderDescriptor folder; ///< that it lies in
    std::string name;
    FolderDescriptor notes; ///< what the Trash noted of it; closed on macOS
    /// Where a cleanup may have a private folder that no desktop shows as an item of the Trash. On
    /// macOS it is the folder that the item lies in.
    FolderDescriptor base;
    std::string basePath;

    /// Opens the folders around a place in the Trash. Whether the item is there is not looked at.
    [[nodiscard]] static std::expected<TrashedItem, SystemError> open(const FileURL& url);
    /// Removes what the Trash noted of an item that has left. On macOS the system does so itself.
    [[nodiscard]] FolderChanges::Changed forget(FolderChanges& changes) const {
        return forget(changes, name);
    }
    /// The same for another item in the same folder.
    [[nodiscard]] FolderChanges::Changed forget(FolderChanges& changes,
                                                const std::string& itemName) const;
};

} // namespace tidyro::platform

#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>

#include "Base/SystemError.h"
#include "Base/Timestamp.h"
#include "Platform/Folders/FolderReading.h"

/// What the system says of one item. A link at the end of the path is not followed.
///
///     const auto seen = platform::fileMetadata("/home/ada/.npm/_cacache/index-v5/00/11/22");
///     if (!seen) return std::unexpected(seen.error());
///     seen->identity.inode ...
///
/// An answer tells of the moment at which it was asked for. Any thread may ask.
namespace tidyro::platform {

enum class ItemKind : std::uint8_t { regularFile, folder, link, other };

struct FileMetadata {
    ItemKind kind;
    std::uint64_t byteCount;      ///< as the file says, holes included
    std::uint64_t allocatedBytes; ///< on disk
    /// None on a file system that does not keep it.
    std::optional<Timestamp> created = std::nullopt;
    std::optional<Timestamp> modified = std::nullopt;
    /// The last change of the contents or of anything that the system keeps about the item. Nobody
    /// can set it back, unlike the date of the last modification.
    std::optional<Timestamp> changed = std::nullopt;
    std::uint32_t ownerUserID;
    std::uint64_t linkCount; ///< hard links
    ItemIdentity identity;
    /// The mount through which the item was seen, as `Volume::mount` numbers them. None where the
    /// system does not number its mounts; the device then tells the volume.
    std::optional<std::uint64_t> mount = std::nullopt;
    bool isDataless; ///< its contents are not on this disk; macOS only
    /// The permissions let its owner read it. A server or a security module may refuse all the
    /// same, which only shows when the item is opened.
    bool isReadableByOwner = false;
    /// The permissions let at least one person write to it. They do not bind a superuser, but they
    /// say what its owner wants.
    bool isWritableBySomebody = true;
    /// Marked as immutable, append-only or part of the system. Whatever the permissions say, it
    /// cannot be renamed, and nothing can be removed from a folder that is marked so.
    bool isLocked = false;
    /// As `chmod` counts them, with the sticky bit (01000).
    std::uint32_t permissions = 0;
};

inline constexpr std::uint32_t stickyPermission = 01000;

/// Whether two items were seen through one mount. Where the system does not number its mounts:
/// whether they are on one device.
[[nodiscard]] inline bool areOnOneMount(const FileMetadata& a, const FileMetadata& b) {
    if (a.mount && b.mount) return a.mount == b.mount;
    return a.identity.device == b.identity.device;
}

/// ENAMETOOLONG for a path that the system does not take at once; a walk uses the form below.
[[nodiscard]] std::expected<FileMetadata, SystemError> fileMetadata(const std::string& path);
/// Of a name inside an open folder.
[[nodiscard]] std::expected<FileMetadata, SystemError> fileMetadata(const FolderDescriptor& folder,
                                                                    const char* name);
/// Of an open file or folder, whatever its name leads to by now.
[[nodiscard]] std::expected<FileMetadata, SystemError> fileMetadata(int fd);

/// Whether this process may read the item. The system itself answers for the effective user, so
/// access lists and privileges count. A link is not followed. False also when the system does not
/// answer.
[[nodiscard]] bool isReadable(const std::string& path);
[[nodiscard]] bool isReadable(const FolderDescriptor& folder, const char* name);

/// Whether this process may add, rename and remove entries of a folder, answered likewise. Locks do
/// not count, nor does it count that a sticky folder lets go of the user's own entries only.
[[nodiscard]] bool isWritableFolder(const std::string& path);
/// Of a folder inside an open folder; a link is not followed.
[[nodiscard]] bool isWritableFolder(const FolderDescriptor& folder, const char* name);

/// Whether an item is at the path and no component of the path is a link, the last one included.
/// The system itself answers in one walk along the path. False also where it cannot be asked.
[[nodiscard]] bool isWithoutLinks(const std::string& path);

/// The path with every link in it resolved. ENOENT when nothing is there. `FolderResolver` also
/// resolves paths whose end does not exist yet.
[[nodiscard]] std::expected<std::string, SystemError> realPath(const std::string& path);

/// The user in whose name this process acts.
[[nodiscard]] std::uint32_t currentUserID();

} // namespace tidyro::platform

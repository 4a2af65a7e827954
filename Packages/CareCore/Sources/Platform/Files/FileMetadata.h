#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>

#include "Base/SystemError.h"
#include "Base/Timestamp.h"
#include "Platform/Folders/FolderReading.h"

/// What the system says of one item, from one call that follows no link at the end of the path.
///
///     const auto seen = platform::fileMetadata("/home/ada/.npm/_cacache/index-v5/00/11/22");
///     if (!seen) return std::unexpected(seen.error());
///     seen->identity.inode ...
///
/// The answers are of the moment. Any thread may ask.
namespace tidyro::platform {

enum class ItemKind : std::uint8_t { regularFile, folder, link, other };

struct FileMetadata {
    ItemKind kind;
    std::uint64_t byteCount;      ///< as the file says, holes included
    std::uint64_t allocatedBytes; ///< on disk
    /// None on a file system that does not keep it.
    std::optional<Timestamp> created = std::nullopt;
    std::optional<Timestamp> modified = std::nullopt;
    /// The last change of the contents or of anything the system keeps of it. Unlike the date of
    /// the last modification nobody can set it back.
    std::optional<Timestamp> changed = std::nullopt;
    std::uint32_t ownerUserID;
    std::uint64_t linkCount; ///< hard links
    ItemIdentity identity;
    /// The mount through which the item was seen, as `Volume::mount` numbers them. None where the
    /// system does not say; the device is then what tells the volume.
    std::optional<std::uint64_t> mount = std::nullopt;
    bool isDataless; ///< its contents are not on this disk; macOS only
    /// Somebody may write to it, as far as its permissions go. They bind no superuser, but say what
    /// its owner wants.
    bool isWritableBySomebody = true;
    /// Marked as immutable, append-only or part of the system: it can be neither renamed nor, for a
    /// folder, lose what is in it, whatever the permissions say.
    bool isLocked = false;
};

/// Whether two items were seen through one mount; where the system does not number its mounts,
/// whether they are on one device.
[[nodiscard]] inline bool areOnOneMount(const FileMetadata& a, const FileMetadata& b) {
    if (a.mount && b.mount) return a.mount == b.mount;
    return a.identity.device == b.identity.device;
}

/// A path too long for the system is ENAMETOOLONG; a walk uses the form below.
[[nodiscard]] std::expected<FileMetadata, SystemError> fileMetadata(const std::string& path);
/// The same for a name inside an open folder.
[[nodiscard]] std::expected<FileMetadata, SystemError> fileMetadata(const FolderDescriptor& folder,
                                                                    const char* name);

/// Whether this process may read the item, by the system's own answer for the effective user:
/// access lists and privileges count. A link is not followed. Any failure to find out is a no.
[[nodiscard]] bool isReadable(const std::string& path);
[[nodiscard]] bool isReadable(const FolderDescriptor& folder, const char* name);

/// Whether this process may add, rename and remove entries of a folder, by the same answer. That a
/// sticky folder lets go only of what is the user's own is not part of it, nor is a lock.
[[nodiscard]] bool isWritableFolder(const std::string& path);

/// The path with every link in it resolved. ENOENT when nothing is there. `FolderResolver` also
/// resolves paths whose end does not exist yet.
[[nodiscard]] std::expected<std::string, SystemError> realPath(const std::string& path);

/// The user in whose name this process acts.
[[nodiscard]] std::uint32_t currentUserID();

} // namespace tidyro::platform

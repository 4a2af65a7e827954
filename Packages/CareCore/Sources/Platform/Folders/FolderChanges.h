#pragma once

#include <cstdint>
#include <expected>
#include <string>
#include <string_view>

#include "Base/SystemError.h"
#include "Base/UUID.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderReading.h"

/// Changing what open folders hold: moving items, making and removing folders, making sure that it
/// outlasts a crash. Nothing here is ever reached by a whole path at the moment of the change.
///
///     const auto root = FoldersBeneath::openRoot("/home/ada/.cache");
///     const auto parent = root->open("app/old");
///     LiveFolderChanges changes;
///     const auto mine = PrivateFolder::make(changes, *parent, ".tidyro-4711");
///     const auto moved = moveNeverReplacing(changes, {*parent, "file"}, {mine->folder(), "file"});
///     if (!moved) return explain(moved.error().kind);
///
/// Whoever moves an item looks at it through the open folder before and after: between a look and a
/// change somebody may put another item under the same name. A rename that never replaces loses
/// neither of the two.
namespace tidyro::platform {

/// Why a change was not made. Whatever is not listed is `failed`.
enum class ChangeFailure : std::uint8_t {
    sourceGone,
    targetTaken, ///< something has that name already, or is in the folder that was to be removed
    otherVolume,
    notPermitted, ///< by the permissions of a folder, its stickiness, or a lock
    readOnly,     ///< the whole volume
    full,         ///< no space, or the person's share of it is used up
    nameTooLong,
    inUse,
    noExclusiveRename, ///< the file system cannot rename without replacing
    failed,
};

struct ChangeError {
    ChangeFailure kind;
    SystemError system;

    [[nodiscard]] static ChangeError fromSystem(SystemError error);
    bool operator==(const ChangeError&) const = default;
};

/// A name in an open folder, which outlives it.
struct EntryName {
    const FolderDescriptor& folder;
    const std::string& name; ///< one component
};

/// One change each. It is handed in, so that tests see each change, let it fail and end a run
/// before or after it. Whoever writes or flushes anything of a cleanup goes through it.
///
/// A change that was told as made is in the system's memory only; a flush brings it to the disk.
/// Any thread may call.
class FolderChanges {
  public:
    using Changed = std::expected<void, ChangeError>;

    virtual ~FolderChanges() = default;
    /// `targetTaken` when something has the new name, even a link that leads nowhere.
    virtual Changed renameNeverReplacing(const EntryName& from, const EntryName& to) = 0;
    /// For names that nobody else can take: a placeholder in a folder of our own.
    virtual Changed renameReplacing(const EntryName& from, const EntryName& to) = 0;
    /// A second name for a file. Never replaces.
    virtual Changed link(const EntryName& existing, const EntryName& added) = 0;
    /// An empty file that nobody may open. Never replaces.
    virtual Changed makeEmptyFile(const EntryName& at) = 0;
    /// `permissions` as `chmod` counts them; the process's own mask takes some away.
    virtual Changed makeFolder(const EntryName& at, unsigned permissions) = 0;
    /// Takes the name of anything but a folder away, and the item too when it was the last one.
    virtual Changed removeFile(const EntryName& at) = 0;
    /// `targetTaken` when it is not empty.
    virtual Changed removeFolder(const EntryName& at) = 0;
    /// Brings the entries of a folder to the disk, past the drive's own cache.
    virtual Changed flush(const FolderDescriptor& folder) = 0;
    /// The same for everything on the volume that the folder lies on. One such flush costs far less
    /// than one for each of many folders, unless others are writing gigabytes.
    virtual Changed flushVolume(const FolderDescriptor& folder) = 0;
};

class LiveFolderChanges final : public FolderChanges {
  public:
    Changed renameNeverReplacing(const EntryName& from, const EntryName& to) override;
    Changed renameReplacing(const EntryName& from, const EntryName& to) override;
    Changed link(const EntryName& existing, const EntryName& added) override;
    Changed makeEmptyFile(const EntryName& at) override;
    Changed makeFolder(const EntryName& at, unsigned permissions) override;
    Changed removeFile(const EntryName& at) override;
    Changed removeFolder(const EntryName& at) override;
    Changed flush(const FolderDescriptor& folder) override;
    Changed flushVolume(const FolderDescriptor& folder) override;
};

/// The folders below one root that may be touched. No link is followed, neither on the way to the
/// root nor below it, and only the root's own volume is entered: the same mount and the same
/// device, since neither alone tells the subvolumes of btrfs apart.
class FoldersBeneath {
  public:
    /// The path of the root is a real one: none of its folders is a link.
    [[nodiscard]] static std::expected<FoldersBeneath, SystemError>
    openRoot(const std::string& realRoot);

    /// Opens a folder by its path below the root; the root itself by an empty path. EXDEV for one
    /// on another volume, ELOOP behind a link, EINVAL for a path with "..". A path may be longer
    /// than the system takes at once.
    [[nodiscard]] std::expected<FolderDescriptor, SystemError>
    open(const std::string& relativePath) const;

    /// The same for whoever keeps the root for a long time: goes the whole way from the top of the
    /// disk again, so that the folder is in what lies at the path of the root by now. That is no
    /// other volume than when the root was opened. As a rule one call of the system goes all of it.
    [[nodiscard]] std::expected<FolderDescriptor, SystemError>
    openFromTop(const std::string& relativePath) const;

    [[nodiscard]] const FolderDescriptor& root() const { return root_; }

  private:
    [[nodiscard]] std::expected<FolderDescriptor, SystemError>
    onItsVolume(std::expected<FolderDescriptor, SystemError> folder) const;

    std::string path_;
    FolderDescriptor top_;
    FolderDescriptor root_; ///< held open, so that no other mount gets the number of its own
    FileMetadata rootSeen_{};
};

/// A folder that nobody but this person can look into or change: made by us, held open. A cleanup
/// makes one beside the items that it removes for good; they go in there before they are gone.
class PrivateFolder {
  public:
    /// ".tidyro-" and the UUID. Recovery looks for what a cleanup left in folders of its name.
    [[nodiscard]] static std::string nameFor(const UUID& cleanup);
    /// Whether a name is one that `nameFor` gives to some cleanup.
    [[nodiscard]] static bool isName(std::string_view name);
    /// Whether a path leads to such a folder or through one, by the names in it. What lies there is
    /// for recovery alone: everybody else leaves it out.
    [[nodiscard]] static bool isInOne(std::string_view path);

    /// Makes it, mode 0700. `targetTaken` when the name is in use, and `failed` when the folder
    /// that is there by then is not ours alone.
    [[nodiscard]] static std::expected<PrivateFolder, ChangeError>
    make(FolderChanges& changes, const FolderDescriptor& parent, const std::string& name);
    /// Opens one that an earlier run made. The same conditions hold.
    [[nodiscard]] static std::expected<PrivateFolder, ChangeError>
    open(const FolderDescriptor& parent, const std::string& name);

    [[nodiscard]] const FolderDescriptor& folder() const { return folder_; }

  private:
    FolderDescriptor folder_;
};

/// Whether an open folder belongs to this person, and nobody else may even look into it.
[[nodiscard]] bool isPrivateFolder(const FolderDescriptor& folder);

/// Renames an item and never replaces another, also where the file system itself cannot promise
/// that. There it takes a private folder on one side:
///
/// - Into one, the new name is taken by an empty placeholder first and the item renamed onto it.
///   Nobody else can exchange the placeholder.
/// - Out of one, a file gets its new name as a second one, and then loses the first. A folder is
///   renamed onto an empty folder that was made for it; whoever puts something in there meanwhile
///   stops the rename.
///
/// Between two other folders it is refused there (`noExclusiveRename`).
///
/// A crash in between can leave a placeholder, which is empty and which nobody may open, or a file
/// under both names.
[[nodiscard]] FolderChanges::Changed moveNeverReplacing(FolderChanges& changes,
                                                        const EntryName& from, const EntryName& to);

} // namespace tidyro::platform

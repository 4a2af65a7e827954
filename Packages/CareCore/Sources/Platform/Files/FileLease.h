#pragma once

#include <cstdint>
#include <expected>
#include <map>
#include <optional>

#include "Base/SystemError.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderReading.h"

namespace tidyro::platform {

/// What the system itself says of who has a file open, asked by the file and not by its path.
enum class FileUse : std::uint8_t {
    free,    ///< nobody but the asker has it open or mapped, by whatever name or in what namespace
    inUse,   ///< somebody has
    unknown, ///< it does not say, or what it says proves nothing on this file system
};

/// Asks by a write lease, which Linux grants for a file that nobody else has open. It is given back
/// at once; a program that opens the file in between waits for those microseconds.
///
/// It sees what a list of open paths cannot: another hard link, a process that may not be read, a
/// mount in another namespace. It proves something for the person's own regular files on ext4, XFS
/// and btrfs. Everything else is unknown, and so is every file on macOS, which has no such lease:
/// ask `RunningProcesses` as well.
///
/// A link is not followed. Some four system calls.
[[nodiscard]] FileUse fileUse(const FolderDescriptor& folder, const char* name);

/// The same for a regular file that is open for reading by this descriptor alone.
[[nodiscard]] FileUse fileUse(int fd);

/// Finds out once a mount whether a granted lease proves anything there. Used by one thread.
class ProvenMounts {
  public:
    /// Of the mount through which an item in the folder was seen. None where that is not certain:
    /// the file has to be asked itself.
    [[nodiscard]] std::optional<bool> isProven(const FolderDescriptor& folder,
                                               const FileMetadata& seen);

  private:
    struct Mount {
        FolderDescriptor folder; ///< held open, so that no other mount gets its number
        bool isProven;
    };
    std::map<std::uint64_t, Mount> mounts_;
};

/// An item that is held while it is compared and moved. It stays the same item whatever becomes of
/// its name, and while it is held no other item gets its number. Holding it needs no right to read
/// it and does not open it: nobody else notices. Used by one thread.
///
///     auto item = HeldItem::open(folder, "file");
///     if (item->takeLease() == FileUse::inUse) return refuse();
///     ... rename it ...
///     if (item->isLeaseBroken()) return putBack(); // somebody began to open it
///     item->releaseLease();
class HeldItem {
  public:
    /// A link is not followed, but held itself.
    [[nodiscard]] static std::expected<HeldItem, SystemError> open(const FolderDescriptor& folder,
                                                                   const char* name);
    HeldItem(HeldItem&& other) noexcept;
    HeldItem& operator=(HeldItem&&) = delete;
    ~HeldItem();

    [[nodiscard]] std::expected<FileMetadata, SystemError> metadata() const;

    /// Asks as `fileUse` does, and keeps the lease when the answer is `free`. Whoever opens the
    /// file from then on waits until it is released, so release it soon.
    [[nodiscard]] FileUse takeLease();
    /// The same with what its metadata said a moment ago and, where it is known, whether a lease
    /// proves anything on its mount.
    [[nodiscard]] FileUse takeLease(const FileMetadata& seen, std::optional<bool> isProven);
    /// Whether a lease was taken and somebody has tried to open the file since. Without a lease
    /// nobody can tell.
    [[nodiscard]] bool isLeaseBroken() const;
    void releaseLease();

  private:
    explicit HeldItem(int fd) noexcept : fd_(fd) {}

    int fd_;
    int leased_ = -1; ///< open for reading, since only such a descriptor can have a lease
};

/// What opening a file tells of it.
struct FileAccess {
    bool isReadable; ///< by this process
    FileUse use;
};

/// Asks the regular files of one folder after another. What their file system's leases prove is
/// found out once a mount.
///
///     FileAccessAsker asker;
///     asker.begin(folder);
///     const FileAccess access = asker.ask("name", *platform::fileMetadata(folder, "name"));
///
/// The caller keeps the folder open until it begins the next one. Threads that look at once have
/// an asker each.
class FileAccessAsker {
  public:
    void begin(const FolderDescriptor& folder);
    /// `seen` is what the system said of the file a moment ago.
    [[nodiscard]] FileAccess ask(const char* name, const FileMetadata& seen);

  private:
    const FolderDescriptor* folder_ = nullptr;
    ProvenMounts mounts_;
};

} // namespace tidyro::platform

#pragma once

#include <atomic>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "Base/SystemError.h"

/// Reading folders by descriptor. A walk holds folders open and goes down by name, one component at
/// a time. It follows no link and opens no full path. So no path is too long, and nothing that is
/// moved meanwhile can lead a walk elsewhere.
///
///     const auto root = FolderDescriptor::openRoot("/home/ada");
///     if (!root) return std::unexpected(root.error());
///     FolderLister lister({.isAskedForClones = isKnownToShareBlocks(*root)});
///     lister.begin(*root);
///     while (const FolderEntry* entry = lister.next()) names.emplace_back(entry->name);
///     if (lister.error().code != 0) return std::unexpected(lister.error());
///
/// Several threads may use one open folder; a lister belongs to one thread.
namespace tidyro::platform {

enum class EntryType : std::uint8_t { file, folder, link };

/// What the system says of one entry beside its sizes and dates. The values are bits of
/// `EntryTraits`.
enum class EntryTrait : std::uint8_t {
    hidden = 1,      ///< macOS: the hidden flag; Linux: the name begins with "."
    dataless = 2,    ///< macOS: a placeholder of the cloud; Linux: never
    compressed = 4,  ///< stored compressed by the file system
    systemOwned = 8, ///< macOS: protected as part of the system; Linux: never
    mountPoint = 16, ///< something else is mounted here
    snapshot = 32,   ///< Linux: the top of a snapshot that nobody can write to
    program = 64,    ///< Linux: a file that somebody may run; macOS: never
};

struct EntryTraits {
    std::uint8_t bits = 0;
    [[nodiscard]] bool has(EntryTrait trait) const noexcept {
        return (bits & static_cast<std::uint8_t>(trait)) != 0;
    }
    void add(EntryTrait trait) noexcept { bits |= static_cast<std::uint8_t>(trait); }
};

/// Two names with the same identity lead to one item.
struct ItemIdentity {
    std::uint64_t device;
    std::uint64_t inode;
    auto operator<=>(const ItemIdentity&) const = default;
};

/// One entry of a folder. On Linux an entry that is a folder has no facts here: they are cheaper to
/// get from its descriptor, once it is open (`FolderFacts`).
struct FolderEntry {
    std::string_view name; ///< bytes, no "/"; valid until the next call of `next`
    EntryType type = EntryType::file;
    EntryTraits traits;
    bool hasFacts = false; ///< false: none of the members below is known
    std::uint32_t linkCount = 1;
    std::uint32_t modified = 0;      ///< whole seconds since 1970, at the range's nearer end
    std::uint32_t accessed = 0;      ///< likewise
    std::uint64_t logicalSize = 0;   ///< bytes; 0 for folders
    std::uint64_t allocatedSize = 0; ///< bytes on disk; 0 for folders
    ItemIdentity identity{};
    /// Files of one device with the same family share their blocks; 0 for none.
    std::uint64_t cloneFamily = 0;
    /// How many of a clone's allocated bytes others may share; the rest is its own.
    std::uint64_t cloneSharedBytes = 0;
};

/// A folder's own facts.
struct FolderFacts {
    ItemIdentity identity;
    /// Folders of one volume have the same number. The subvolumes of one file system that are not
    /// mounted on their own do as well, though each has a device of its own.
    std::uint64_t volume;
    EntryTraits traits; ///< a snapshot that is open counts as a mount point as well
    std::uint32_t modified;
    std::uint32_t accessed;
    /// The last change of its entries or of itself, in nanoseconds since 1970. Nobody can set it
    /// back. A file system may keep whole seconds only.
    std::int64_t changed = 0;
};

/// A folder held open. It is closed when its owner goes.
class FolderDescriptor {
  public:
    FolderDescriptor() = default;
    explicit FolderDescriptor(int fd) noexcept : fd_(fd) {}
    FolderDescriptor(FolderDescriptor&& other) noexcept;
    FolderDescriptor& operator=(FolderDescriptor&& other) noexcept;
    ~FolderDescriptor();

    /// Opens the folder at a path; a link there is followed. ENOTDIR where it is no folder.
    [[nodiscard]] static std::expected<FolderDescriptor, SystemError>
    openRoot(const std::string& path);
    /// Opens a folder inside this one; a link is not followed (ELOOP or ENOTDIR).
    [[nodiscard]] std::expected<FolderDescriptor, SystemError> open(const char* name) const;

    /// Opens a folder some levels below this one. No link on the way is followed. The path has no
    /// "..", which not every system would refuse. ENAMETOOLONG for a path that the system does not
    /// take at once; going down by single names has no such limit.
    [[nodiscard]] std::expected<FolderDescriptor, SystemError>
    openBelow(const std::string& relativePath) const;

    [[nodiscard]] std::expected<FolderFacts, SystemError> facts() const;
    /// The facts of a folder inside this one, without opening it or following a link.
    [[nodiscard]] std::expected<FolderFacts, SystemError> facts(const char* name) const;

    [[nodiscard]] bool isOpen() const noexcept { return fd_ >= 0; }
    [[nodiscard]] int fd() const noexcept { return fd_; }

  private:
    int fd_ = -1;
};

/// Whether this folder's volume is of a kind that is known to share blocks between files. A volume
/// of an unknown kind is not: asking it for each file's clones would cost more than it finds. For
/// such a volume `mayShareBlocks` is true.
[[nodiscard]] bool isKnownToShareBlocks(const FolderDescriptor& folder);

/// How many folders a walk may hold open at once. Raises this process's limit on open files when it
/// is low and may be raised.
[[nodiscard]] std::size_t openFolderBudget();

/// Whether an error of opening or reading a folder means that since its name was read it has gone
/// or something else took its place.
[[nodiscard]] bool hasVanished(SystemError error);

/// Lists one folder after another, with one buffer for all of them.
class FolderLister {
  public:
    struct Options {
        /// Whether entries tell their clone family. It costs nothing on macOS. On Linux it costs
        /// opening each file of at least `minCloneSize` bytes.
        bool isAskedForClones = false;
        /// False for callers that only need names, or that look at each entry themselves. An entry
        /// then has facts only where they cost nothing.
        bool isAskedForFacts = true;
        /// Reading ends with ECANCELED once this is true. It must outlive the lister.
        const std::atomic<bool>* cancelled = nullptr;
        /// Runs after each bulk read, for tests and diagnostics.
        std::function<void()> afterBulkRead = nullptr;
    };

    /// Smaller files have no clone family on Linux.
    static constexpr std::uint64_t minCloneSize = 131'072;
    /// Bytes of one bulk read.
    static constexpr std::size_t bufferSize = 262'144;

    explicit FolderLister(Options options);
    ~FolderLister();
    FolderLister(const FolderLister&) = delete;
    FolderLister& operator=(const FolderLister&) = delete;

    /// Starts on a folder. The caller keeps it open until the last entry was read.
    void begin(const FolderDescriptor& folder);
    /// The next entry; none at the end and after an error. Leaves out ".", ".." and entries that
    /// have vanished meanwhile. The entry is good until the next call.
    [[nodiscard]] const FolderEntry* next();
    /// Why listing ended early; its code is 0 when it did not.
    [[nodiscard]] SystemError error() const noexcept { return error_; }

  private:
    struct Body;

    [[nodiscard]] bool refill();

    Options options_;
    std::unique_ptr<Body> body_;
    SystemError error_{0};
    FolderEntry entry_;
};

} // namespace tidyro::platform

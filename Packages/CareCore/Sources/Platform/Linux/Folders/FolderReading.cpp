// statx and getdents64 are Linux's own.
#include "Platform/Folders/FolderReading.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <linux/stat.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "Base/Timestamp.h"
#include "Platform/Linux/Files/FileExtents.h"

namespace tidyro::platform {

namespace {

/// What the kernel writes into the buffer of getdents64.
struct KernelEntry {
    std::uint64_t inode;
    std::int64_t offset;
    std::uint16_t length;
    unsigned char type;
    char name[1]; ///< zero-terminated
};

constexpr int lookAtTheNameOnly = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;
constexpr unsigned wantedOfEntry = STATX_TYPE | STATX_MODE | STATX_NLINK | STATX_MTIME |
                                   STATX_ATIME | STATX_INO | STATX_SIZE | STATX_BLOCKS;
constexpr std::uint64_t bytesPerListedBlock =
    512; // of stx_blocks, whatever the file system's blocks

ItemIdentity identityOf(const struct statx& status) {
    return {.device = makedev(status.stx_dev_major, status.stx_dev_minor), .inode = status.stx_ino};
}

bool isMountRoot(const struct statx& status) {
    return (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

std::expected<FolderFacts, SystemError> factsOf(int folder, const char* name, int flags) {
    struct statx status{};
    constexpr unsigned wanted = wantedOfEntry | STATX_CTIME | STATX_MNT_ID;
    if (::statx(folder, name, flags, wanted, &status) != 0) {
        return std::unexpected(SystemError{errno});
    }
    const bool hasMount = (status.stx_mask & STATX_MNT_ID) != 0;
    const ItemIdentity identity = identityOf(status);
    FolderFacts facts{.identity = identity,
                      .volume = hasMount ? status.stx_mnt_id : identity.device,
                      .traits = {},
                      .modified = compactSeconds(status.stx_mtime.tv_sec),
                      .accessed = compactSeconds(status.stx_atime.tv_sec),
                      .changed =
                          nanosecondsSince1970(status.stx_ctime.tv_sec, status.stx_ctime.tv_nsec)};
    if (isMountRoot(status)) facts.traits.add(EntryTrait::mountPoint);
    return facts;
}

bool maySearch(int folder) { return ::faccessat(folder, ".", X_OK, AT_EACCESS) == 0; }

bool isDotOrDotDot(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

} // namespace

std::expected<FolderDescriptor, SystemError>
FolderDescriptor::openBelow(const std::string& relativePath) const {
    open_how how{};
    how.flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    long opened = -1;
    do {
        opened = ::syscall(SYS_openat2, fd_, relativePath.c_str(), &how, sizeof how);
    } while (opened < 0 && (errno == EINTR || errno == EAGAIN)); // again: something was renamed
    if (opened < 0) return std::unexpected(SystemError{errno});
    return FolderDescriptor(static_cast<int>(opened));
}

std::expected<FolderFacts, SystemError> FolderDescriptor::facts() const {
    auto facts = factsOf(fd_, "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC);
    if (facts && isReadOnlySnapshot(fd_, facts->identity)) {
        facts->traits.add(EntryTrait::mountPoint);
        facts->traits.add(EntryTrait::snapshot);
    }
    return facts;
}

std::expected<FolderFacts, SystemError> FolderDescriptor::facts(const char* name) const {
    return factsOf(fd_, name, lookAtTheNameOnly);
}

struct FolderLister::Body {
    alignas(KernelEntry) std::array<std::byte, bufferSize> buffer;
    std::size_t filled = 0;
    std::size_t at = 0;
    int folder = -1;

    [[nodiscard]] const KernelEntry& entryHere() const {
        return *reinterpret_cast<const KernelEntry*>(buffer.data() + at);
    }
};

FolderLister::FolderLister(Options options)
    : options_(std::move(options)), body_(std::make_unique_for_overwrite<Body>()) {}

FolderLister::~FolderLister() = default;

void FolderLister::begin(const FolderDescriptor& folder) {
    body_->folder = folder.fd();
    body_->filled = 0;
    body_->at = 0;
    error_ = {0};
}

bool FolderLister::refill() {
    long got = 0;
    do {
        if (options_.cancelled != nullptr && options_.cancelled->load(std::memory_order_relaxed)) {
            error_ = {ECANCELED};
            return false;
        }
        got = ::syscall(SYS_getdents64, body_->folder, body_->buffer.data(), bufferSize);
    } while (got < 0 && errno == EINTR);
    if (got < 0) error_ = {errno};
    body_->filled = got > 0 ? static_cast<std::size_t>(got) : 0;
    body_->at = 0;
    if (options_.afterBulkRead) options_.afterBulkRead();
    return got > 0;
}

const FolderEntry* FolderLister::next() {
    for (;;) {
        if (body_->at >= body_->filled && !refill()) return nullptr;
        const KernelEntry& found = body_->entryHere();
        body_->at += found.length;
        if (isDotOrDotDot(found.name)) continue;

        entry_ = FolderEntry{};
        entry_.name = found.name;
        if (found.name[0] == '.') entry_.traits.add(EntryTrait::hidden);
        if (found.type == DT_DIR) {
            entry_.type = EntryType::folder;
            return &entry_;
        }
        if (options_.cancelled != nullptr && options_.cancelled->load(std::memory_order_relaxed)) {
            error_ = {ECANCELED};
            return nullptr;
        }
        if (!options_.isAskedForFacts && found.type != DT_UNKNOWN) {
            entry_.type = found.type == DT_LNK ? EntryType::link : EntryType::file;
            return &entry_;
        }
        struct statx status; // NOLINT(cppcoreguidelines-pro-type-member-init): the call fills it
        if (::statx(body_->folder, found.name, lookAtTheNameOnly, wantedOfEntry, &status) != 0) {
            if (hasVanished({errno})) continue;
            // A folder that may be listed but not searched closes as a whole; a single entry that
            // cannot be looked at stays, by its name.
            const SystemError refused{errno};
            if ((refused.code == EACCES || refused.code == EPERM) && !maySearch(body_->folder)) {
                error_ = refused;
                return nullptr;
            }
            entry_.type = found.type == DT_LNK ? EntryType::link : EntryType::file;
            return &entry_;
        }
        if (S_ISDIR(status.stx_mode)) { // a file system that leaves the type out of the listing
            entry_.type = EntryType::folder;
            return &entry_;
        }
        entry_.type = S_ISLNK(status.stx_mode) ? EntryType::link : EntryType::file;
        entry_.hasFacts = true;
        entry_.linkCount = status.stx_nlink;
        entry_.modified = compactSeconds(status.stx_mtime.tv_sec);
        entry_.accessed = compactSeconds(status.stx_atime.tv_sec);
        entry_.logicalSize = status.stx_size;
        entry_.allocatedSize = status.stx_blocks * bytesPerListedBlock;
        entry_.identity = identityOf(status);
        if (S_ISREG(status.stx_mode) && (status.stx_mode & 0111U) != 0) {
            entry_.traits.add(EntryTrait::program);
        }
        if ((status.stx_attributes & STATX_ATTR_COMPRESSED) != 0) {
            entry_.traits.add(EntryTrait::compressed);
        }
        if (isMountRoot(status)) entry_.traits.add(EntryTrait::mountPoint);
        if (options_.isAskedForClones && S_ISREG(status.stx_mode) &&
            status.stx_size >= minCloneSize) {
            const SharedExtents shared = sharedExtents(body_->folder, found.name);
            entry_.cloneFamily = shared.family;
            entry_.cloneSharedBytes = std::min(shared.sharedBytes, entry_.allocatedSize);
        }
        return &entry_;
    }
}

} // namespace tidyro::platform

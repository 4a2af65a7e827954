// getattrlistbulk is macOS's own: names and facts of many entries in one call.
#include "Platform/Folders/FolderReading.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/attr.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Base/Timestamp.h"

namespace tidyro::platform {

namespace {

// Object types as the kernel numbers them. The header that names them is not in every SDK.
constexpr fsobj_type_t regularFileType = 1;
constexpr fsobj_type_t folderType = 2;
constexpr fsobj_type_t linkType = 5;

// Without these an entry is a name and no more; what else a file system leaves out stays zero.
constexpr attrgroup_t identifying = ATTR_CMN_DEVID | ATTR_CMN_OBJTYPE | ATTR_CMN_FILEID;
constexpr attrgroup_t sizes = ATTR_FILE_TOTALSIZE | ATTR_FILE_ALLOCSIZE;

constexpr attrgroup_t wantedOfAll =
    ATTR_CMN_RETURNED_ATTRS | identifying | ATTR_CMN_MODTIME | ATTR_CMN_ACCTIME | ATTR_CMN_FLAGS;
constexpr attrgroup_t clones =
    ATTR_CMNEXT_CLONEID | ATTR_CMNEXT_EXT_FLAGS | ATTR_CMNEXT_CLONE_REFCNT;

constexpr attrlist wantedOfOneFolder{.bitmapcount = ATTR_BIT_MAP_COUNT,
                                     .reserved = 0,
                                     .commonattr = wantedOfAll | ATTR_CMN_CHGTIME,
                                     .volattr = 0,
                                     .dirattr = ATTR_DIR_MOUNTSTATUS,
                                     .fileattr = 0,
                                     .forkattr = 0};

attrlist wantedOfEntries(attrgroup_t extended) {
    return {.bitmapcount = ATTR_BIT_MAP_COUNT,
            .reserved = 0,
            .commonattr = wantedOfAll | ATTR_CMN_NAME | ATTR_CMN_ERROR,
            .volattr = 0,
            .dirattr = ATTR_DIR_MOUNTSTATUS,
            .fileattr = ATTR_FILE_LINKCOUNT | sizes,
            .forkattr = extended};
}

/// One record of the attribute calls. What the kernel left out keeps its zeros.
struct Record {
    std::uint32_t length = 0;
    attribute_set_t returned{};
    std::uint32_t error = 0;
    std::string_view name; ///< followed by a zero
    std::int32_t device = 0;
    fsobj_type_t type = 0;
    timespec modified{};
    timespec changed{};
    timespec accessed{};
    std::uint32_t flags = 0;
    std::uint64_t fileID = 0;
    std::uint32_t mountStatus = 0;
    std::uint32_t linkCount = 1;
    std::int64_t totalSize = 0;
    std::int64_t allocatedSize = 0;
    std::uint64_t cloneID = 0;
    std::uint64_t extendedFlags = 0;
    std::uint32_t cloneCount = 0;

    [[nodiscard]] bool has(attrgroup_t common) const {
        return (returned.commonattr & common) == common;
    }
    [[nodiscard]] bool hasOfFiles(attrgroup_t file) const {
        return (returned.fileattr & file) == file;
    }
    /// The extended ones travel in the group that once was for forks.
    [[nodiscard]] bool hasExtended(attrgroup_t extended) const {
        return (returned.forkattr & extended) == extended;
    }
};

/// Takes the attributes of a record one after another. They are packed to four bytes, so wider
/// ones are copied out; one that would lie beyond the record makes the whole record invalid.
class RecordReader {
  public:
    explicit RecordReader(std::span<const std::byte> bytes) : bytes_(bytes) {}

    template <class T>
    void take(T& value) {
        if (!isValid_ || sizeof(T) > bytes_.size() - at_) {
            isValid_ = false;
            return;
        }
        std::memcpy(&value, bytes_.data() + at_, sizeof(T));
        at_ += sizeof(T);
    }
    template <class T>
    void takeIf(bool isThere, T& value) {
        if (isThere) take(value);
    }
    /// A text stands elsewhere in the record, at a distance from the reference to it; its length
    /// counts the zero at its end.
    void takeText(std::string_view& text) {
        const auto from = static_cast<std::int64_t>(at_);
        attrreference_t reference{};
        take(reference);
        const std::int64_t begin = from + reference.attr_dataoffset;
        const std::int64_t end = begin + reference.attr_length;
        if (!isValid_ || begin < 0 || end <= begin || std::cmp_greater(end, bytes_.size()) ||
            bytes_[static_cast<std::size_t>(end - 1)] != std::byte{0}) {
            isValid_ = false;
            return;
        }
        text = {reinterpret_cast<const char*>(bytes_.data()) + begin,
                static_cast<std::size_t>(end - begin - 1)};
    }
    void endAt(std::size_t length) {
        isValid_ = isValid_ && length >= at_ && length <= bytes_.size();
        if (isValid_) bytes_ = bytes_.first(length);
    }
    [[nodiscard]] bool isValid() const { return isValid_; }

  private:
    std::span<const std::byte> bytes_;
    std::size_t at_ = 0;
    bool isValid_ = true;
};

/// The record at the beginning of the bytes; none when it contradicts itself.
std::optional<Record> readRecord(std::span<const std::byte> bytes) {
    Record record;
    RecordReader reader(bytes);
    reader.take(record.length);
    reader.endAt(record.length);
    reader.take(record.returned);
    if (!reader.isValid()) return std::nullopt;
    // The kernel's order: an entry's error, then the attributes by their bits, group by group.
    reader.takeIf(record.has(ATTR_CMN_ERROR), record.error);
    if (record.has(ATTR_CMN_NAME)) reader.takeText(record.name);
    reader.takeIf(record.has(ATTR_CMN_DEVID), record.device);
    reader.takeIf(record.has(ATTR_CMN_OBJTYPE), record.type);
    reader.takeIf(record.has(ATTR_CMN_MODTIME), record.modified);
    reader.takeIf(record.has(ATTR_CMN_CHGTIME), record.changed);
    reader.takeIf(record.has(ATTR_CMN_ACCTIME), record.accessed);
    reader.takeIf(record.has(ATTR_CMN_FLAGS), record.flags);
    reader.takeIf(record.has(ATTR_CMN_FILEID), record.fileID);
    reader.takeIf((record.returned.dirattr & ATTR_DIR_MOUNTSTATUS) != 0, record.mountStatus);
    reader.takeIf(record.hasOfFiles(ATTR_FILE_LINKCOUNT), record.linkCount);
    reader.takeIf(record.hasOfFiles(ATTR_FILE_TOTALSIZE), record.totalSize);
    reader.takeIf(record.hasOfFiles(ATTR_FILE_ALLOCSIZE), record.allocatedSize);
    reader.takeIf(record.hasExtended(ATTR_CMNEXT_CLONEID), record.cloneID);
    reader.takeIf(record.hasExtended(ATTR_CMNEXT_EXT_FLAGS), record.extendedFlags);
    reader.takeIf(record.hasExtended(ATTR_CMNEXT_CLONE_REFCNT), record.cloneCount);
    if (!reader.isValid()) return std::nullopt;
    return record;
}

ItemIdentity identityOf(const Record& record) {
    // Device numbers are signed here; the 32 bits are the number.
    return {.device = static_cast<std::uint32_t>(record.device), .inode = record.fileID};
}

EntryTraits traitsOf(const Record& record) {
    EntryTraits traits;
    if ((record.flags & UF_HIDDEN) != 0) traits.add(EntryTrait::hidden);
    if ((record.flags & SF_DATALESS) != 0) traits.add(EntryTrait::dataless);
    if ((record.flags & UF_COMPRESSED) != 0) traits.add(EntryTrait::compressed);
    if ((record.flags & SF_RESTRICTED) != 0) traits.add(EntryTrait::systemOwned);
    // A trigger mounts a volume as soon as it is opened: it is one already, as far as a walk goes.
    if ((record.mountStatus & (DIR_MNTSTATUS_MNTPOINT | DIR_MNTSTATUS_TRIGGER)) != 0) {
        traits.add(EntryTrait::mountPoint);
    }
    return traits;
}

EntryType typeOf(const Record& record) {
    if (record.type == folderType) return EntryType::folder;
    return record.type == linkType ? EntryType::link : EntryType::file;
}

/// Every file of a volume that clones has a clone identifier, shared with others or not.
std::uint64_t cloneFamilyOf(const Record& record) {
    if (record.type != regularFileType) return 0;
    const bool isShared = record.hasExtended(ATTR_CMNEXT_CLONE_REFCNT)
                              ? record.cloneCount > 1
                              : (record.extendedFlags & EF_MAY_SHARE_BLOCKS) != 0;
    return isShared ? record.cloneID : 0;
}

/// `call` is given the attributes wanted and the bytes to fill, as the system call takes them.
template <class Call>
std::expected<FolderFacts, SystemError> factsBy(Call call) {
    attrlist wanted = wantedOfOneFolder;
    std::array<std::byte, 128> bytes{};
    int result = 0;
    do {
        result = call(&wanted, bytes.data(), bytes.size());
    } while (result != 0 && errno == EINTR);
    if (result != 0) return std::unexpected(SystemError{errno});
    const std::optional<Record> record = readRecord(bytes);
    if (!record || !record->has(identifying)) {
        return std::unexpected(SystemError{EIO});
    }
    return FolderFacts{.identity = identityOf(*record),
                       .volume = identityOf(*record).device,
                       .traits = traitsOf(*record),
                       .modified = compactSeconds(record->modified.tv_sec),
                       .accessed = compactSeconds(record->accessed.tv_sec),
                       .changed =
                           nanosecondsSince1970(record->changed.tv_sec, record->changed.tv_nsec)};
}

} // namespace

std::expected<FolderDescriptor, SystemError>
FolderDescriptor::openBelow(const std::string& relativePath) const {
    int opened = -1;
    do {
        opened = ::openat(fd_, relativePath.c_str(),
                          O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW_ANY);
    } while (opened < 0 && errno == EINTR);
    if (opened < 0) return std::unexpected(SystemError{errno});
    return FolderDescriptor(opened);
}

std::expected<FolderFacts, SystemError> FolderDescriptor::facts() const {
    return factsBy([this](attrlist* wanted, void* bytes, std::size_t size) {
        return ::fgetattrlist(fd_, wanted, bytes, size, 0);
    });
}

std::expected<FolderFacts, SystemError> FolderDescriptor::facts(const char* name) const {
    return factsBy([this, name](attrlist* wanted, void* bytes, std::size_t size) {
        return ::getattrlistat(fd_, name, wanted, bytes, size, FSOPT_NOFOLLOW);
    });
}

bool isKnownToShareBlocks(const FolderDescriptor& folder) {
    struct statfs volume{};
    return ::fstatfs(folder.fd(), &volume) == 0 && std::string_view(volume.f_fstypename) == "apfs";
}

struct FolderLister::Body {
    alignas(std::uint64_t) std::array<std::byte, bufferSize> buffer;
    attrlist wanted{};
    std::size_t at = 0;
    int left = 0; ///< records not yet handed out, beginning at `at`
    int folder = -1;

    [[nodiscard]] int readBulk() {
        const std::uint64_t options = wanted.forkattr != 0 ? FSOPT_ATTR_CMN_EXTENDED : 0;
        return ::getattrlistbulk(folder, &wanted, buffer.data(), bufferSize, options);
    }
    /// Gives up the next attribute that only some systems know; false when there is none left. An
    /// older system refuses the whole call for one that it does not know. The next folder asks for
    /// all of them again: one strange file system must not cost the others their clones.
    [[nodiscard]] bool giveUpAnAttribute() {
        if ((wanted.forkattr & ATTR_CMNEXT_CLONE_REFCNT) != 0) {
            wanted.forkattr &= ~static_cast<attrgroup_t>(ATTR_CMNEXT_CLONE_REFCNT);
            return true;
        }
        return std::exchange(wanted.forkattr, 0) != 0;
    }
};

FolderLister::FolderLister(Options options)
    : options_(std::move(options)), body_(std::make_unique_for_overwrite<Body>()) {}

FolderLister::~FolderLister() = default;

void FolderLister::begin(const FolderDescriptor& folder) {
    body_->folder = folder.fd();
    body_->wanted = wantedOfEntries(options_.isAskedForClones ? clones : 0);
    body_->at = 0;
    body_->left = 0;
    error_ = {0};
}

bool FolderLister::refill() {
    int got = 0;
    do {
        if (options_.cancelled != nullptr && options_.cancelled->load(std::memory_order_relaxed)) {
            error_ = {ECANCELED};
            return false;
        }
        got = body_->readBulk();
    } while (got < 0 && (errno == EINTR || (errno == EINVAL && body_->giveUpAnAttribute())));
    if (got < 0) error_ = {errno};
    body_->left = std::max(got, 0);
    body_->at = 0;
    if (options_.afterBulkRead) options_.afterBulkRead();
    return got > 0;
}

const FolderEntry* FolderLister::next() {
    while (error_.code == 0) {
        if (body_->left == 0 && !refill()) return nullptr;
        const std::optional<Record> record =
            readRecord(std::span<const std::byte>(body_->buffer).subspan(body_->at));
        if (!record || record->name.empty()) {
            error_ = {EIO};
            break;
        }
        body_->at += record->length;
        --body_->left;
        if (record->error != 0) {
            const SystemError error{static_cast<int>(record->error)};
            if (hasVanished(error)) continue;
            // Any other entry that cannot be looked at stays, by its name. A folder that may not
            // be searched is refused as a whole.
        }

        entry_ = FolderEntry{};
        entry_.name = record->name;
        entry_.type = typeOf(*record);
        entry_.traits = traitsOf(*record);
        if (record->name.front() == '.') entry_.traits.add(EntryTrait::hidden);
        const bool isFolder = entry_.type == EntryType::folder;
        // A mount point has the facts of the folder below the mount: a bulk read does not ask the
        // mounted volume, whose server may never answer.
        entry_.hasFacts = record->error == 0 && record->has(identifying) &&
                          (isFolder || record->hasOfFiles(sizes));
        if (!entry_.hasFacts) return &entry_;
        entry_.modified = compactSeconds(record->modified.tv_sec);
        entry_.accessed = compactSeconds(record->accessed.tv_sec);
        entry_.identity = identityOf(*record);
        if (isFolder) return &entry_;
        entry_.linkCount = record->linkCount;
        entry_.logicalSize =
            static_cast<std::uint64_t>(std::max<std::int64_t>(record->totalSize, 0));
        entry_.allocatedSize =
            static_cast<std::uint64_t>(std::max<std::int64_t>(record->allocatedSize, 0));
        entry_.cloneFamily = cloneFamilyOf(*record);
        if (entry_.cloneFamily != 0) entry_.cloneSharedBytes = entry_.allocatedSize;
        return &entry_;
    }
    return nullptr;
}

} // namespace tidyro::platform

#include "Platform/Folders/Trash.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <map>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "Base/PathText.h"
#include "Platform/Folders/FolderFiles.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "Platform/Linux/Folders/TrashFolders.h"

namespace tidyro::platform {

namespace {

using Folders = std::shared_ptr<TrashFolders>;

std::unexpected<TrashError> trashFailure(TrashFailure kind, SystemError error = {0}) {
    return std::unexpected(TrashError{kind, error});
}

std::unexpected<TrashError> trashFailure(const ChangeError& error) {
    using enum ChangeFailure;
    const auto kind = [&] {
        switch (error.kind) {
        case sourceGone: return TrashFailure::itemGone;
        case targetTaken: return TrashFailure::nameTaken;
        case otherVolume: return TrashFailure::shownElsewhere;
        case notPermitted: return TrashFailure::notPermitted;
        case readOnly: return TrashFailure::volumeReadOnly;
        case full: return TrashFailure::full;
        case inUse: return TrashFailure::inUse;
        case nameTooLong:
        case noExclusiveRename:
        case failed: break;
        }
        return TrashFailure::failed;
    };
    return trashFailure(kind(), error.system);
}

// Which volumes have a Trash ------------------------------------------------------------------

/// File systems on disks, which may get a Trash.
constexpr auto diskFileSystems = std::to_array<std::string_view>(
    {"ext2",     "ext3",     "ext4",    "xfs",  "btrfs", "f2fs",  "jfs",  "nilfs2",
     "reiserfs", "bcachefs", "zfs",     "vfat", "msdos", "exfat", "ntfs", "ntfs3",
     "fuseblk",  "hfs",      "hfsplus", "udf",  "gfs2",  "ocfs2"});
/// File systems that a server or a driver keeps. A Trash that is there is used; a new one might be
/// something that nobody ever shows or empties.
constexpr auto servedFileSystems = std::to_array<std::string_view>(
    {"nfs", "nfs4", "cifs", "smb3", "smbfs", "9p", "virtiofs", "afs", "ceph", "coda", "fuse"});

bool isOneOf(std::span<const std::string_view> names, std::string_view name) {
    return std::ranges::find(names, name) != names.end();
}

bool isServed(std::string_view fileSystem) {
    return fileSystem.starts_with("fuse.") || isOneOf(servedFileSystems, fileSystem);
}

/// Parts of the system, where desktops show no Trash: "/", "/usr", "/boot/efi".
bool isSystemMount(std::string_view mountPath) {
    constexpr auto alone = std::to_array<std::string_view>(
        {"efi", "etc", "home", "media", "mnt", "nix", "nix/store", "opt", "root", "srv", "tmp",
         "usr", "usr/local", "var", "var/cache", "var/lib", "var/log", "var/tmp"});
    constexpr auto withAllBelow =
        std::to_array<std::string_view>({"boot", "dev", "proc", "run/lock", "snap", "sys"});
    const std::string_view path = mountPath.substr(std::min<std::size_t>(1, mountPath.size()));
    if (path.empty() || isOneOf(alone, path)) return true;
    return std::ranges::any_of(withAllBelow, [&](std::string_view folder) {
        return path == folder ||
               (path.starts_with(folder) && path.substr(folder.size()).starts_with('/'));
    });
}

/// Whether a folder of the file system is mounted, and not the whole or a subvolume.
bool isShownElsewhere(const Volume& volume, const FileMetadata& top) {
    constexpr std::uint64_t subvolumeTop = 256; // the number of every subvolume's own folder
    if (volume.fileSystem == "btrfs") return top.identity.inode != subvolumeTop;
    return volume.mountedFolder != "/";
}

} // namespace

bool isTypeThatMayHaveTrash(std::string_view fileSystem) {
    return isServed(fileSystem) || isOneOf(diskFileSystems, fileSystem);
}

std::expected<TrashedItem, SystemError> TrashedItem::open(const FileURL& url) {
    const std::string files(path::parent(url.path()));
    if (path::lastComponent(files) != "files") return std::unexpected(SystemError{ENOENT});
    std::string basePath(path::parent(files));
    auto base = FolderDescriptor::openRoot(basePath);
    if (!base) return std::unexpected(base.error());
    auto folder = base->open("files");
    if (!folder) return std::unexpected(folder.error());
    auto notes = base->open("info");
    if (!notes) return std::unexpected(notes.error());
    return TrashedItem{.folder = *std::move(folder),
                       .name = std::string(url.lastComponent()),
                       .notes = *std::move(notes),
                       .base = *std::move(base),
                       .basePath = std::move(basePath)};
}

FolderChanges::Changed TrashedItem::forget(FolderChanges& changes,
                                           const std::string& itemName) const {
    const std::string note = itemName + std::string(trashNoteEnding);
    const auto removed = changes.removeFile({.folder = notes, .name = note});
    if (!removed && removed.error().kind == ChangeFailure::sourceGone) return {};
    return removed;
}

// A slot --------------------------------------------------------------------------------------

struct TrashSlot::Body {
    Folders trash;
    FolderChanges* changes;
    FolderFlushes* flushes;
    TrashItem item;
    std::string name;
    bool isMoved = false;
    bool isGivenUp = false;

    [[nodiscard]] FolderChanges::Changed giveUp() {
        isGivenUp = true;
        return changes->removeFile({.folder = trash->info, .name = noteName()});
    }
    [[nodiscard]] std::string noteName() const { return name + std::string(trashNoteEnding); }

    /// Before the rename: what could not be noted would never be flushed.
    [[nodiscard]] std::expected<void, SystemError> noteMove() const {
        using enum FolderFlushes::Side;
        auto noted = flushes->note(item.folder, left, item.seen);
        if (noted) noted = flushes->note(trash->info, entered, item.seen);
        if (noted) noted = flushes->note(trash->files, entered, item.seen);
        return noted;
    }
    [[nodiscard]] std::expected<void, SystemError> noteMoveBack() const {
        auto noted = flushes->note(trash->files, FolderFlushes::Side::left, item.seen);
        if (noted) noted = flushes->note(item.folder, FolderFlushes::Side::entered, item.seen);
        return noted;
    }
};

TrashSlot::TrashSlot(std::unique_ptr<Body> body) : body_(std::move(body)) {}
TrashSlot::TrashSlot(TrashSlot&& other) noexcept = default;

TrashSlot::~TrashSlot() {
    // A note that stays speaks of an item that is not in the Trash; the next emptying takes it.
    if (body_ && !body_->isMoved && !body_->isGivenUp) static_cast<void>(body_->giveUp());
}

std::expected<void, TrashError> TrashSlot::move() {
    if (const auto noted = body_->noteMove(); !noted) {
        return trashFailure(TrashFailure::failed, noted.error());
    }
    const auto moved = moveNeverReplacing(*body_->changes,
                                          {.folder = body_->item.folder, .name = body_->item.name},
                                          {.folder = body_->trash->files, .name = body_->name});
    if (!moved) return trashFailure(moved.error());
    body_->isMoved = true;
    const std::optional<std::uint64_t>& byteCount = body_->item.byteCount;
    if (byteCount && body_->item.seen.kind == ItemKind::folder) {
        body_->trash->sizes.push_back({body_->name, *byteCount});
    }
    return {};
}

std::expected<void, TrashError> TrashSlot::moveBack() {
    const auto moved =
        moveNeverReplacing(*body_->changes, {.folder = body_->trash->files, .name = body_->name},
                           {.folder = body_->item.folder, .name = body_->item.name});
    if (!moved) return trashFailure(moved.error());
    // An item that is back is where it belongs, flushed or not.
    static_cast<void>(body_->noteMoveBack());
    body_->isMoved = false;
    std::erase_if(body_->trash->sizes,
                  [&](const TrashFolders::Size& size) { return size.name == body_->name; });
    static_cast<void>(body_->giveUp());
    return {};
}

FileURL TrashSlot::url() const {
    const std::string path = path::joined(path::joined(body_->trash->path, "files"), body_->name);
    return body_->item.seen.kind == ItemKind::folder ? FileURL::folder(path) : FileURL::file(path);
}
const FolderDescriptor& TrashSlot::folder() const { return body_->trash->files; }
const std::string& TrashSlot::name() const { return body_->name; }

// The Trash -----------------------------------------------------------------------------------

struct Trash::Body {
    Options options;
    FileURL homeFolder; ///< of the person's own Trash
    LiveVolumes liveVolumes = {};
    LiveFolderChanges liveChanges = {};
    std::optional<FolderFlushes> ownFlushes = std::nullopt;
    std::optional<std::expected<Folders, TrashError>> home = std::nullopt;
    /// By mount and device, since a volume is both.
    std::map<std::pair<std::uint64_t, std::uint64_t>, Folders> known = {};

    explicit Body(Options given)
        : options(std::move(given)),
          homeFolder(options.home.value_or(applicationSupportFolder().appendingFolder("Trash"))) {
        if (options.volumes == nullptr) options.volumes = &liveVolumes;
        if (options.changes == nullptr) options.changes = &liveChanges;
        if (options.flushes == nullptr) {
            options.flushes = &ownFlushes.emplace(*options.changes);
        }
    }

    [[nodiscard]] std::expected<Folders, TrashError> choose(const TrashItem& item) {
        const std::pair volume(item.seen.mount.value_or(0), item.seen.identity.device);
        if (const auto found = known.find(volume); found != known.end()) return found->second;
        const auto isFull = [&] {
            return home && !*home && home->error().kind == TrashFailure::full;
        };
        if (!home || isFull()) { // there may be room by now
            home = TrashFolders::openHome(*options.changes, *options.gate, homeFolder.path());
        }
        if (*home && (**home)->isReachableFrom(item.seen)) {
            known[volume] = **home;
            return **home;
        }
        auto found = chooseAtTop(item);
        // A Trash of one's own that cannot be opened is the reason when there is no other.
        const bool isHomeTheReason =
            !found && (found.error().kind == TrashFailure::onSystemVolume || isFull());
        if (isHomeTheReason && !*home) return *home;
        if (found) known[volume] = *found;
        return found;
    }

    [[nodiscard]] std::expected<Folders, TrashError> chooseAtTop(const TrashItem& item) const {
        const auto volumes = options.volumes->mounted();
        if (!volumes) return trashFailure(TrashFailure::failed, volumes.error());
        const Volume* volume = volumeOf(item.seen, *volumes);
        if (volume == nullptr) return trashFailure(TrashFailure::onSubvolume);
        const auto top = fileMetadata(volume->mountPath);
        if (!top) return trashFailure(TrashFailure::failed, top.error());
        if (!areOnOneMount(*top, item.seen)) {
            return trashFailure(TrashFailure::shownElsewhere); // something lies over its top
        }
        const bool isOnServer = isServed(volume->fileSystem);
        if (!isOnServer && !isOneOf(diskFileSystems, volume->fileSystem)) {
            return trashFailure(TrashFailure::inMemory);
        }
        if (isShownElsewhere(*volume, *top)) return trashFailure(TrashFailure::shownElsewhere);
        if (top->identity.device != item.seen.identity.device) {
            return trashFailure(TrashFailure::onSubvolume);
        }
        if (isSystemMount(volume->mountPath)) return trashFailure(TrashFailure::onSystemVolume);
        auto opened = TrashFolders::openAtTop(*options.changes, volume->mountPath,
                                              isOnServer ? TrashFolders::Missing::refuse
                                                         : TrashFolders::Missing::make);
        if (!opened && isOnServer) return trashFailure(TrashFailure::noTrashOnServer);
        if (opened && !(*opened)->isReachableFrom(item.seen)) {
            return trashFailure(TrashFailure::trashUnusable);
        }
        return opened;
    }
};

Trash::Trash(Options options) : body_(std::make_unique<Body>(std::move(options))) {}
Trash::~Trash() = default;

std::expected<TrashSlot, TrashError> Trash::reserve(const TrashItem& item) {
    if (const auto refused = trashRefusal(item)) return std::unexpected(*refused);
    const auto trash = body_->choose(item);
    if (!trash) return std::unexpected(trash.error());
    if (path::isInsideOrEqual((*trash)->path, item.path)) {
        return trashFailure(TrashFailure::trashUnusable); // the Trash itself, or what holds it
    }
    const std::string note = trashNote(item.path, (*trash)->top, body_->options.now());
    constexpr unsigned maxAttempts = 100;
    constexpr std::size_t minBytes = 40;
    std::size_t maxBytes = 255;
    for (unsigned attempt = 1; attempt <= maxAttempts; ++attempt) {
        auto body = std::make_unique<TrashSlot::Body>(
            TrashSlot::Body{.trash = *trash,
                            .changes = body_->options.changes,
                            .flushes = body_->options.flushes,
                            .item = item,
                            .name = trashName(item.name, attempt, maxBytes)});
        // What lies there without a note is an orphan, and stays what it is.
        if (fileMetadata((*trash)->files, body->name.c_str())) continue;
        const FileFlush flush = body_->options.flushes->isFlushedOneByOne((*trash)->seen)
                                    ? FileFlush::now
                                    : FileFlush::withVolume;
        const auto reserved = makeFileIn({.folder = (*trash)->info, .name = body->noteName()}, note,
                                         *body_->options.gate, flush);
        if (reserved) return TrashSlot(std::move(body));
        if (reserved.error().kind == ChangeFailure::nameTooLong && maxBytes > minBytes) {
            maxBytes = std::max(minBytes, maxBytes * 2 / 3); // a file system with shorter names
        } else if (reserved.error().kind != ChangeFailure::targetTaken) {
            return trashFailure(reserved.error());
        }
    }
    return trashFailure(TrashFailure::nameTaken);
}

std::expected<void, SystemError> Trash::flush() {
    for (const auto& [volume, trash] : body_->known) trash->writeSizes(*body_->options.gate);
    return body_->options.flushes->flush();
}

} // namespace tidyro::platform

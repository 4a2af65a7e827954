#include "StorageEngine/Trash/TrashRestorer.h"

#include <cerrno>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "Base/PathText.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/Trash.h"

namespace tidyro {

namespace {

using RestoreFailure = TrashRestorer::Error::Kind;
using platform::ChangeFailure;
using platform::FolderDescriptor;

std::unexpected<TrashRestorer::Error> restoreFailure(RestoreFailure kind) {
    return std::unexpected(TrashRestorer::Error{.kind = kind});
}

constexpr auto byUUIDIfKnown = FingerprintComparison::Volume::byUUIDIfKnown;

/// Opens the folder at a path from the top down, following no link. Missing ones are made.
std::expected<FolderDescriptor, TrashRestorer::Error>
openOrMake(platform::FolderChanges& changes, const std::string& path,
           const std::vector<std::uint32_t>& permissions) {
    constexpr std::uint32_t forOwnerAlone = 0700;
    auto folder = FolderDescriptor::openRoot("/");
    std::size_t depth = 0;
    for (const std::string_view component : path::components(path)) {
        if (!folder) break;
        const std::string name(component);
        auto next = folder->open(name.c_str());
        if (!next && next.error().code == ENOENT) {
            const std::uint32_t mode =
                depth < permissions.size() ? permissions[depth] : forOwnerAlone;
            const auto made = changes.makeFolder({.folder = *folder, .name = name}, mode);
            if (!made && made.error().kind != ChangeFailure::targetTaken) {
                return restoreFailure(RestoreFailure::folderUnreachable);
            }
            // Its name has to last as long as what is put into it.
            if (made && !changes.flush(*folder)) return restoreFailure(RestoreFailure::failed);
            next = folder->open(name.c_str());
        }
        folder = std::move(next);
        ++depth;
    }
    if (!folder) return restoreFailure(RestoreFailure::folderUnreachable);
    return *std::move(folder);
}

/// A name that nothing has: "notes (restored).txt", "notes (restored 2).txt".
FileURL freeNameBeside(const FolderDescriptor& folder, const FileURL& url) {
    const std::string name(url.lastComponent());
    const std::string_view extension = path::extensionOf(name);
    const std::string stem =
        extension.empty() ? name : name.substr(0, name.size() - extension.size() - 1);
    for (int number = 1;; ++number) {
        std::string made =
            stem + (number == 1 ? " (restored)" : fmt::format(" (restored {})", number));
        if (!extension.empty()) made.append(".").append(extension);
        const auto seen = platform::fileMetadata(folder, made.c_str());
        if (!seen) {
            const std::string path = path::joined(url.parent().path(), made);
            return url.isFolder() ? FileURL::folder(path) : FileURL::file(path);
        }
    }
}

} // namespace

std::string TrashRestorer::Error::description() const {
    switch (kind) {
    case RestoreFailure::notInTrash:
        return "This item is no longer in the Trash, so it could not be put back.";
    case RestoreFailure::anotherItem:
        return "What lies in the Trash under this name is not the item that Tidyro moved there, so "
               "it was left alone.";
    case RestoreFailure::placeTaken:
        return beside ? fmt::format("Something else lies where this item was, so nothing was put "
                                    "back. It can go beside it, as {}.",
                                    beside->lastComponent())
                      : "Something else lies where this item was, so nothing was put back.";
    case RestoreFailure::folderUnreachable:
        return "The folder that this item was in cannot be reached, so it stays in the Trash.";
    case RestoreFailure::otherVolume:
        return "The folder that this item was in is on another disk by now, so it stays in the "
               "Trash.";
    case RestoreFailure::notConfirmed:
        return "This item is back in its place, but the disk did not confirm it.";
    case RestoreFailure::failed: break;
    }
    return "This item could not be put back. It stays in the Trash.";
}

TrashRestorer::TrashRestorer(platform::FolderChanges* changes, platform::FolderFlushes* flushes,
                             const platform::Volumes* volumes)
    : changes_(changes),
      comparison_(volumes != nullptr
                      ? FingerprintComparison(*volumes, byUUIDIfKnown)
                      : FingerprintComparison(platform::LiveVolumes(), byUUIDIfKnown)),
      flushes_(flushes) {}

std::expected<void, TrashRestorer::Error> TrashRestorer::putBack(const Item& item) const {
    platform::LiveFolderChanges live;
    platform::FolderChanges& changes = changes_ != nullptr ? *changes_ : live;
    platform::FolderFlushes ownFlushes(changes);
    platform::FolderFlushes& flushes = flushes_ != nullptr ? *flushes_ : ownFlushes;
    const auto trashed = platform::TrashedItem::open(item.trashURL);
    if (!trashed) return restoreFailure(RestoreFailure::notInTrash);
    const auto seen = platform::fileMetadata(trashed->folder, trashed->name.c_str());
    if (!seen) return restoreFailure(RestoreFailure::notInTrash);
    if (!comparison_.isItem(*seen, item.fingerprint))
        return restoreFailure(RestoreFailure::anotherItem);

    const auto folder =
        openOrMake(changes, item.originalURL.parent().path(), item.folderPermissions);
    if (!folder) return std::unexpected(folder.error());
    using Side = platform::FolderFlushes::Side;
    if (!flushes.note(trashed->folder, Side::left) || !flushes.note(*folder, Side::entered)) {
        return restoreFailure(RestoreFailure::failed);
    }
    const std::string name(item.originalURL.lastComponent());
    const platform::EntryName from{.folder = trashed->folder, .name = trashed->name};
    const platform::EntryName to{.folder = *folder, .name = name};
    if (const auto moved = platform::moveNeverReplacing(changes, from, to); !moved) {
        switch (moved.error().kind) {
        case ChangeFailure::targetTaken:
            return std::unexpected(Error{.kind = RestoreFailure::placeTaken,
                                         .beside = freeNameBeside(*folder, item.originalURL)});
        case ChangeFailure::sourceGone: return restoreFailure(RestoreFailure::notInTrash);
        case ChangeFailure::otherVolume: return restoreFailure(RestoreFailure::otherVolume);
        default: return restoreFailure(RestoreFailure::failed);
        }
    }
    const auto back = platform::fileMetadata(*folder, name.c_str());
    if (back && !comparison_.isItem(*back, item.fingerprint)) {
        // Another item had the name in the Trash by then.
        static_cast<void>(platform::moveNeverReplacing(changes, to, from));
        return restoreFailure(RestoreFailure::anotherItem);
    }
    // Both sides at once: with its place flushed alone btrfs has the item under both names after a
    // crash.
    if (!flushes.flush()) return restoreFailure(RestoreFailure::notConfirmed);
    static_cast<void>(trashed->forget(changes)); // not flushed: a note that stays is only a note
    return {};
}

} // namespace tidyro

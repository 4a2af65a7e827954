#include "Platform/Folders/TrashListing.h"

#include <cerrno>
#include <memory>
#include <set>
#include <utility>

#include "Base/PathText.h"
#include "Platform/Folders/FolderFiles.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "Platform/Linux/Folders/TrashFolders.h"

namespace tidyro::platform {

namespace {

/// Far above what a path takes.
constexpr std::size_t maxNoteBytes = 64UL << 10U;

void listPlace(TrashListing& listing, std::size_t number, TrashListing::Notes notes) {
    const TrashListing::Place& place = listing.places[number];
    FolderLister lister({.isAskedForFacts = false});
    lister.begin(place.items);
    while (const FolderEntry* entry = lister.next()) {
        std::string name(entry->name);
        const auto seen = fileMetadata(place.items, name.c_str());
        if (!seen && seen.error().code == ENOENT) continue; // gone meanwhile
        if (!seen) {
            listing.unread.push_back({path::joined(place.path, "files/" + name), seen.error()});
            continue;
        }
        TrashListing::Item item{.place = number, .name = std::move(name), .seen = *seen};
        if (notes == TrashListing::Notes::read) listing.readNote(item);
        listing.items.push_back(std::move(item));
    }
    if (lister.error().code != 0) {
        listing.unread.push_back({path::joined(place.path, "files"), lister.error()});
    }
}

} // namespace

TrashListing TrashListing::read(const Options& options) {
    TrashListing listing;
    std::set<ItemIdentity> known; // one file system may be mounted in two places
    const auto add = [&](TrashFolders::Found found, const std::string& path) {
        if (!found) {
            listing.unread.push_back({path, found.error()});
            return;
        }
        TrashFolders& folders = **found;
        if (!known.insert(folders.seen.identity).second) return;
        listing.places.push_back({.path = std::move(folders.path),
                                  .top = std::move(folders.top),
                                  .base = std::move(folders.base),
                                  .items = std::move(folders.files),
                                  .notes = std::move(folders.info)});
        listPlace(listing, listing.places.size() - 1, options.notes);
    };

    const FileURL home = options.home.value_or(applicationSupportFolder().appendingFolder("Trash"));
    if (auto found = TrashFolders::findHome(home.path())) add(*std::move(found), home.path());

    const LiveVolumes live;
    const Volumes& asked = options.volumes != nullptr ? *options.volumes : live;
    const auto volumes = asked.mounted();
    if (!volumes) {
        listing.unread.push_back({"/", volumes.error()});
        return listing;
    }
    for (const Volume& volume : *volumes) {
        if (!isTypeThatMayHaveTrash(volume.fileSystem)) continue;
        if (options.isAsked && !options.isAsked(volume)) continue;
        for (auto& found : TrashFolders::findAtTop(volume.mountPath)) {
            add(std::move(found), volume.mountPath);
        }
    }
    return listing;
}

FileURL TrashListing::url(const Item& item) const {
    const std::string path =
        path::joined(path::joined(places[item.place].path, "files"), item.name);
    return item.seen.kind == ItemKind::folder ? FileURL::folder(path) : FileURL::file(path);
}

void TrashListing::readNote(Item& item) const {
    const Place& place = places[item.place];
    const std::string name = item.name + std::string(trashNoteEnding);
    const auto text = readFileIn({.folder = place.notes, .name = name}, maxNoteBytes);
    item.hasNote = text || text.error().code != ENOENT;
    item.note = text ? readTrashNote(*text, place.top) : std::nullopt;
}

} // namespace tidyro::platform

#include "StorageEngine/Cleanup/Settling/CleanupSettlementRepair.h"

#include <utility>

#include "Base/PathText.h"
#include "Platform/Folders/FolderFiles.h"
#include "Platform/Machine/OperatingSystem.h"

namespace tidyro {

namespace {

using platform::ChangeFailure;
using platform::EntryName;
using platform::FoldersBeneath;
using Side = platform::FolderFlushes::Side;
using ItemStep = CleanupSettlementLook::PrivateItem::Step;
using TrashChange = CleanupSettlementLook::TrashStep::Kind;

/// Whether a name still leads to the item that was looked at, unchanged since.
bool isAsSeen(const platform::FolderDescriptor& folder, const std::string& name,
              const platform::FileMetadata& before) {
    const auto seen = platform::fileMetadata(folder, name.c_str());
    return seen && seen->identity == before.identity && seen->kind == before.kind &&
           seen->byteCount == before.byteCount && seen->modified == before.modified;
}

bool areOneItem(const platform::FolderDescriptor& folder, const std::string& name,
                const platform::FileMetadata& other) {
    const auto seen = platform::fileMetadata(folder, name.c_str());
    return seen && seen->identity == other.identity && seen->linkCount > 1;
}

} // namespace

CleanupSettlementRepair::CleanupSettlementRepair(const CleanupSettlement::Options& options,
                                                 const platform::Volumes& volumes,
                                                 const platform::TrashListing& listing)
    : options_(options),
      listing_(listing),
      trash_({.volumes = &volumes,
              .changes = options.changes,
              .gate = options.gate,
              .flushes = options.flushes,
              .home = options.trashHome,
              .now = options.now}) {}

void CleanupSettlementRepair::note(const platform::FolderDescriptor& folder, Side side) {
    const auto noted = options_.flushes->note(folder, side);
    if (!noted && noted_) noted_ = noted;
}

std::expected<void, SystemError> CleanupSettlementRepair::flush() {
    return noted_ ? trash_.flush() : noted_; // the flushes are shared
}

void CleanupSettlementRepair::repair(CleanupSettlementLook& look) {
    for (const PrivatePlace& place : look.privatePlaces) emptyPrivatePlace(place, look.told);
    for (const auto& step : look.trashSteps) {
        if (carryOut(step, look.told.startedAt)) continue;
        const auto& item = listing_.items[step.trashed];
        look.told.isAccountedFor = false;
        if (step.kind == TrashChange::removePlaceholder) {
            look.told.troubles.push_back(listing_.url(item).path() +
                                         " is an empty file that could not be removed.");
            continue;
        }
        SettledCleanup::Item& told = look.told.items[step.told];
        told.found = Found::unaccounted;
        told.url = listing_.url(item);
        told.reason = step.kind == TrashChange::writeNote
                          ? "It is in the Trash, which could not note where it lay."
                          : "It is at its place, and under another name in the Trash as well.";
    }
}

// Private folders -----------------------------------------------------------------------------

void CleanupSettlementRepair::emptyPrivatePlace(const PrivatePlace& place, SettledCleanup& told) {
    const std::string name = platform::PrivateFolder::nameFor(told.intentID);
    const auto parent = FoldersBeneath::openRoot(place.parent);
    const auto target = FoldersBeneath::openRoot(place.target);
    auto mine = parent ? platform::PrivateFolder::open(parent->root(), name)
                       : std::unexpected(platform::ChangeError::fromSystem(parent.error()));
    for (const PrivateItem& item : place.items) {
        Done done{.found = Found::stays, .reason = "Its folder cannot be reached."};
        if (mine && target) done = takeOut(mine->folder(), target->root(), place, item);
        const std::string inside = path::joined(place.path, item.name);
        if (done.found == Found::stays) {
            done.url = FileURL::file(inside);
            told.isAccountedFor = false;
        }
        if (item.step == ItemStep::removePlaceholder) {
            if (done.found == Found::stays) {
                told.troubles.push_back(inside + " is an empty file that could not be removed.");
            }
            continue;
        }
        const auto tell = [&](auto& each) {
            each.found = done.found;
            each.url = std::move(done.url);
            each.reason = std::move(done.reason);
        };
        if (item.entry != nullptr) {
            tell(told.items[item.told]);
        } else {
            tell(told.strangers[item.told]);
        }
    }
}

CleanupSettlementRepair::Done
CleanupSettlementRepair::takeOut(const platform::FolderDescriptor& mine,
                                 const platform::FolderDescriptor& target,
                                 const PrivatePlace& place, const PrivateItem& item) {
    if (!isAsSeen(mine, item.name, item.seen)) {
        return {.found = Found::stays, .reason = "It was changed while it was looked at."};
    }
    const EntryName inside{.folder = mine, .name = item.name};
    const auto removeName = [&]() -> Done {
        const auto removed = options_.changes->removeFile(inside);
        note(mine, Side::left);
        if (removed) return {.found = Found::putBack};
        return {.found = Found::stays, .reason = removed.error().system.description()};
    };
    if (item.step == ItemStep::removePlaceholder) return removeName();
    if (item.step == ItemStep::takeNameAway && areOneItem(target, item.name, item.seen)) {
        return removeName();
    }
    // Also when something lay at its place before: it may be gone by now.
    const auto moved = platform::moveNeverReplacing(*options_.changes, inside,
                                                    {.folder = target, .name = item.name});
    note(mine, Side::left);
    note(target, Side::entered);
    if (moved) return {.found = Found::putBack};
    if (moved.error().kind != ChangeFailure::targetTaken) {
        return {.found = Found::stays, .reason = moved.error().system.description()};
    }
    if (place.parent != place.target) { // it was in the Trash before
        return {.found = Found::stays, .reason = "Something else lies at its place."};
    }
    return moveToTrash(mine, place, item);
}

CleanupSettlementRepair::Done
CleanupSettlementRepair::moveToTrash(const platform::FolderDescriptor& mine,
                                     const PrivatePlace& place, const PrivateItem& item) {
    Done taken{.found = Found::stays,
               .reason = "Something else lies at its place, and it could not go to the "
                         "Trash."};
    // The Trash is told where it belongs. Where the system moves it by its path, that is the path.
    std::string path = path::joined(place.target, item.name);
    if (platform::operatingSystem() == OperatingSystem::macOS) {
        path = path::joined(place.path, item.name);
    }
    auto slot = trash_.reserve(
        {.folder = mine, .name = item.name, .path = std::move(path), .seen = item.seen});
    if (!slot || !slot->move()) return taken;
    note(mine, Side::left);
    note(slot->folder(), Side::entered);
    if (!isAsSeen(slot->folder(), slot->name(), item.seen)) {
        static_cast<void>(slot->moveBack());
        return taken;
    }
    return {.found = Found::inTrash, .url = slot->url()};
}

bool CleanupSettlementRepair::removePrivateFolders(const CleanupIntent& intent) {
    bool areAllGone = true;
    const std::string name = platform::PrivateFolder::nameFor(intent.id);
    for (const auto& [path, target] : CleanupSettlementLooker::privateParents(intent)) {
        const auto parent = FoldersBeneath::openRoot(path);
        if (!parent || !platform::PrivateFolder::open(parent->root(), name)) continue;
        // One that is not empty stays, and what is in it was told.
        const auto removed =
            options_.changes->removeFolder({.folder = parent->root(), .name = name});
        if (removed) note(parent->root(), Side::left);
        areAllGone = areAllGone && removed;
    }
    return areAllGone;
}

// The Trash -----------------------------------------------------------------------------------

bool CleanupSettlementRepair::removeFromTrash(const platform::TrashListing::Item& item) {
    const auto& place = listing_.places[item.place];
    const auto removed = options_.changes->removeFile({.folder = place.items, .name = item.name});
    note(place.items, Side::left);
    if (!removed) return false;
    // A note that stays is only a note.
    const std::string noteName = item.name + std::string(platform::trashNoteEnding);
    if (item.hasNote) {
        static_cast<void>(options_.changes->removeFile({.folder = place.notes, .name = noteName}));
        note(place.notes, Side::left);
    }
    return true;
}

bool CleanupSettlementRepair::carryOut(const CleanupSettlementLook::TrashStep& step,
                                       Timestamp noted) {
    const auto& item = listing_.items[step.trashed];
    const auto& place = listing_.places[item.place];
    if (!isAsSeen(place.items, item.name, item.seen)) return false;
    const std::string& source = step.source;
    if (step.kind == TrashChange::removePlaceholder) return removeFromTrash(item);
    if (step.kind == TrashChange::takeNameAway) {
        const auto around = FoldersBeneath::openRoot(std::string(path::parent(source)));
        return around &&
               areOneItem(around->root(), std::string(path::lastComponent(source)), item.seen) &&
               removeFromTrash(item);
    }
    const std::string noteName = item.name + std::string(platform::trashNoteEnding);
    const std::string text = platform::trashNote(source, place.top, noted);
    const EntryName at{.folder = place.notes, .name = noteName};
    // A useless one goes: a crash may have left it empty.
    const auto written = item.hasNote ? platform::replaceFileIn(at, text, *options_.gate)
                                      : platform::makeFileIn(at, text, *options_.gate);
    note(place.notes, Side::entered);
    if (!written) return false;
    return !options_.flushes->isFlushedOneByOne(place.notes) ||
           options_.changes->flushVolume(place.notes).has_value();
}

} // namespace tidyro

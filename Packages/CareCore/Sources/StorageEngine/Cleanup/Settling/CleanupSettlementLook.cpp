#include "StorageEngine/Cleanup/Settling/CleanupSettlementLook.h"

#include <algorithm>
#include <cerrno>

#include <fmt/format.h>

#include "Base/PathText.h"
#include "StorageEngine/Places/FolderResolver.h"

namespace tidyro {

namespace {

using platform::FileMetadata;
using platform::PrivateFolder;
using PrivateStep = CleanupSettlementLook::PrivateItem::Step;
using TrashStepKind = CleanupSettlementLook::TrashStep::Kind;

/// Made when a file is moved where renaming could replace, and nobody's item.
bool isPlaceholder(const FileMetadata& seen) {
    constexpr std::uint32_t everybody = 0777;
    return seen.kind == platform::ItemKind::regularFile && seen.byteCount == 0 &&
           seen.allocatedBytes == 0 && (seen.permissions & everybody) == 0 && seen.linkCount == 1 &&
           seen.ownerUserID == platform::currentUserID();
}

/// What was put back from the Trash, or is gone from there, is the person's own doing.
bool isLookedFor(const CleanupIntentEntry& entry) {
    return !entry.outcome ||
           (!std::holds_alternative<intent_outcome::RestoredFromTrash>(entry.outcome->value) &&
            !std::holds_alternative<intent_outcome::NoLongerInTrash>(entry.outcome->value) &&
            !std::holds_alternative<intent_outcome::Simulated>(entry.outcome->value));
}

bool isGone(SystemError error) { return error.code == ENOENT || error.code == ENOTDIR; }

} // namespace

/// One look at one intent.
struct CleanupSettlementLooker::Course {
    const RecordedIntent& recorded;
    CleanupSettlementLook look;
    StringMap<const CleanupIntentEntry*> bySource = {}; ///< by their real paths
    /// The entries that have an outcome, and those that the cleanup may have been at all the same.
    std::unordered_set<const CleanupIntentEntry*> mayBeReached = {};
    std::unordered_map<const CleanupIntentEntry*, std::pair<std::size_t, std::size_t>> inPrivate =
        {};
    /// Folders of whose items a private folder may hold some, and could not be read.
    std::set<std::string> notLookedInto = {};

    [[nodiscard]] const CleanupIntent& intent() const { return recorded.intent; }
};

CleanupSettlementLooker::CleanupSettlementLooker(const platform::Volumes& volumes,
                                                 platform::TrashListing& listing)
    : comparison_(volumes, FingerprintComparison::Volume::byUUIDIfKnown), listing_(listing) {
    for (std::size_t i = 0; i < listing.items.size(); ++i) {
        trashedByInode_.emplace(listing.items[i].seen.identity.inode, i);
    }
}

std::map<std::string, std::string>
CleanupSettlementLooker::privateParents(const CleanupIntent& intent) {
    std::map<std::string, std::string> parents;
    if (!changesTheFilesystem(intent.mode)) return parents;
    std::string_view last;
    for (const CleanupIntentEntry& entry : intent.entries) {
        const std::string_view written = path::parent(entry.sourceURL.path());
        if (written == last) continue;
        last = written;
        const std::string parent = realFolder(written);
        parents.try_emplace(parent, parent);
        // What leaves the Trash for good goes through a folder beside the one that it lies in.
        if (path::lastComponent(parent) == "files") {
            parents.try_emplace(std::string(path::parent(parent)), parent);
        }
    }
    return parents;
}

/// Plans hold paths as they are written, and a home may lie behind a link. A cleanup changes
/// folders by their real paths, and a Trash notes those.
std::string CleanupSettlementLooker::realFolder(std::string_view written) {
    std::string folder(written);
    return FolderResolver::resolved(folder).value_or(folder);
}

std::string CleanupSettlementLooker::realSource(const CleanupIntentEntry& entry) {
    const std::string& path = entry.sourceURL.path();
    const std::string_view parent = path::parent(path);
    if (realFolder_.first != parent) realFolder_ = {std::string(parent), realFolder(parent)};
    return path::joined(realFolder_.second, path::lastComponent(path));
}

const CleanupSettlementLooker::Folder& CleanupSettlementLooker::opened(const std::string& path) {
    if (last_ && last_->path == path) return *last_;
    last_.emplace(Folder{.path = path, .folder = {}, .seen = std::nullopt});
    auto beneath = platform::FoldersBeneath::openRoot(path);
    auto folder = beneath ? beneath->open("") : std::unexpected(beneath.error());
    if (!folder) {
        last_->error = folder.error();
        return *last_;
    }
    last_->folder = *std::move(folder);
    const auto seen = platform::fileMetadata(last_->folder.fd());
    if (seen) {
        last_->seen = *seen;
    } else {
        last_->error = seen.error();
    }
    return *last_;
}

/// Whether it is the item, even when it has been changed since. One that was born before the
/// cleanup began and has its number is; a number that was given away again has a younger item.
bool CleanupSettlementLooker::isTheSame(const FileMetadata& seen, const FileFingerprint& planned,
                                        const CleanupIntent& intent) const {
    if (comparison_.isItem(seen, planned)) return true;
    const auto identity = identityIn(planned);
    return identity && identity->inode == seen.identity.inode && seen.created &&
           *seen.created <= intent.createdAt && comparison_.isOnItsVolume(seen, planned);
}

// Private folders -----------------------------------------------------------------------------

void CleanupSettlementLooker::lookIntoPrivateFolder(Course& course, const std::string& parent,
                                                    const std::string& target) {
    const std::string name = PrivateFolder::nameFor(course.intent().id);
    auto trouble = [&](std::string_view why) {
        course.notLookedInto.insert(target);
        course.look.told.troubles.push_back(fmt::format("{} {}.", path::joined(parent, name), why));
    };
    const Folder& above = opened(parent);
    if (!above.seen) {
        // Without the folder there is nothing in it. One that cannot be entered may hold something.
        if (!isGone(above.error)) course.notLookedInto.insert(target);
        return;
    }
    const auto seen = platform::fileMetadata(above.folder, name.c_str());
    if (!seen && isGone(seen.error())) return;
    const auto mine = PrivateFolder::open(above.folder, name);
    if (!seen || !mine) return trouble("has the name of a folder of this cleanup, but is none");

    CleanupSettlementLook::PrivatePlace place{
        .path = path::joined(parent, name), .parent = parent, .target = target};
    platform::FolderLister lister({.isAskedForFacts = false});
    lister.begin(mine->folder());
    while (const platform::FolderEntry* listed = lister.next()) {
        const std::string leaf(listed->name);
        const auto inside = platform::fileMetadata(mine->folder(), leaf.c_str());
        if (!inside && isGone(inside.error())) continue;
        if (!inside) {
            trouble("cannot be looked into");
            continue;
        }
        place.items.push_back({.name = leaf, .seen = *inside, .step = PrivateStep::putBack});
    }
    if (lister.error().code != 0) trouble("cannot be looked into");

    const bool isInTrash = target != parent;
    const Folder& around = opened(target);
    for (auto& item : place.items) {
        const std::string source = path::joined(target, item.name);
        const auto known = course.bySource.find(source);
        if (known != course.bySource.end() &&
            isTheSame(item.seen, known->second->fingerprint, course.intent())) {
            item.entry = known->second;
        } else if (isPlaceholder(item.seen)) {
            item.step = PrivateStep::removePlaceholder;
            continue;
        }
        const auto atPlace = around.seen ? platform::fileMetadata(around.folder, item.name.c_str())
                                         : std::unexpected(around.error);
        if (atPlace && atPlace->identity == item.seen.identity && item.seen.linkCount > 1) {
            item.step = PrivateStep::takeNameAway;
        } else if (atPlace) {
            item.step = isInTrash ? PrivateStep::leave : PrivateStep::moveToTrash;
        }
        if (item.entry != nullptr) {
            course.inPrivate[item.entry] = {course.look.privatePlaces.size(),
                                            static_cast<std::size_t>(&item - place.items.data())};
            continue;
        }
        item.told = course.look.told.strangers.size();
        course.look.told.strangers.push_back(
            {.originalURL = FileURL::file(source),
             .found = item.step == PrivateStep::moveToTrash ? Found::inTrash
                      : item.step == PrivateStep::leave     ? Found::stays
                                                            : Found::putBack});
    }
    course.look.privatePlaces.push_back(std::move(place));
}

// Places and the Trash ------------------------------------------------------------------------

std::optional<std::size_t> CleanupSettlementLooker::trashedItem(Course& course,
                                                                const CleanupIntentEntry& entry) {
    // What was in the Trash when the cleanup began has a note already, of its first place.
    const std::string_view folder = path::parent(entry.sourceURL.path());
    for (const auto& place : listing_.places) {
        if (folder == path::joined(place.path, "files")) return std::nullopt;
    }
    std::optional<std::size_t> withoutNote;
    const auto identity = identityIn(entry.fingerprint);
    if (!identity) return std::nullopt;
    const std::string source = realSource(entry);
    const auto [first, last] = trashedByInode_.equal_range(identity->inode);
    for (auto each = first; each != last; ++each) {
        platform::TrashListing::Item& item = listing_.items[each->second];
        if (!comparison_.isItem(item.seen, entry.fingerprint)) continue;
        listing_.readNote(item);
        // Another name of the same file may have gone to the Trash on its own: that is another
        // item.
        if (item.note && item.note->path == source) return each->second;
        if (!item.note) withoutNote = each->second;
    }
    if (withoutNote) {
        course.look.trashSteps.push_back({.kind = TrashStepKind::writeNote,
                                          .trashed = *withoutNote,
                                          .source = source,
                                          .told = course.look.told.items.size()});
    }
    return withoutNote;
}

/// A crash may leave a file under both of its names. The Trash's goes, when it is surely that one.
void CleanupSettlementLooker::lookForSecondName(Course& course, const CleanupIntentEntry& entry,
                                                const FileMetadata& atPlace) {
    if (atPlace.linkCount < 2 || !course.mayBeReached.contains(&entry)) return;
    const std::string source = realSource(entry);
    const auto [first, last] = trashedByInode_.equal_range(atPlace.identity.inode);
    for (auto each = first; each != last; ++each) {
        platform::TrashListing::Item& item = listing_.items[each->second];
        if (item.seen.identity != atPlace.identity ||
            listing_.url(item).path() == entry.sourceURL.path()) {
            continue;
        }
        listing_.readNote(item);
        if (item.note ? item.note->path == source : item.name == entry.sourceURL.lastComponent()) {
            course.look.trashSteps.push_back({.kind = TrashStepKind::takeNameAway,
                                              .trashed = each->second,
                                              .source = source,
                                              .told = course.look.told.items.size()});
        }
    }
}

/// A place in the Trash may have been taken for an item that never got there.
void CleanupSettlementLooker::lookForPlaceholders(Course& course) {
    for (std::size_t i = 0; i < listing_.items.size(); ++i) {
        platform::TrashListing::Item& item = listing_.items[i];
        if (!isPlaceholder(item.seen)) continue;
        listing_.readNote(item);
        const auto entry =
            item.note ? course.bySource.find(item.note->path) : course.bySource.end();
        if (entry == course.bySource.end() || !course.mayBeReached.contains(entry->second) ||
            comparison_.isItem(item.seen, entry->second->fingerprint)) {
            continue;
        }
        course.look.trashSteps.push_back(
            {.kind = TrashStepKind::removePlaceholder, .trashed = i, .source = entry->first});
    }
}

SettledCleanup::Item CleanupSettlementLooker::lookFor(Course& course,
                                                      const CleanupIntentEntry& entry) {
    SettledCleanup::Item item{.candidateID = entry.candidateID,
                              .originalURL = entry.sourceURL,
                              .found = Found::unaccounted};
    const Folder& around = opened(std::string(path::parent(realSource(entry))));
    const std::string name(entry.sourceURL.lastComponent());
    const auto seen = around.seen ? platform::fileMetadata(around.folder, name.c_str())
                                  : std::unexpected(around.error);
    if (!changesTheFilesystem(course.intent().mode)) {
        item.found = seen ? Found::atPlace : Found::goneBefore; // whatever happened, others did it
        return item;
    }
    const bool isAtPlace = seen && isTheSame(*seen, entry.fingerprint, course.intent());
    if (isAtPlace) {
        item.found = Found::atPlace;
        lookForSecondName(course, entry, *seen);
    } else if (const auto trashed = trashedItem(course, entry)) {
        item.found = Found::inTrash;
        item.url = listing_.url(listing_.items[*trashed]);
    } else if (!seen && !isGone(seen.error())) {
        item.reason = "Its folder cannot be looked into (" + seen.error().description() + ").";
    } else if (!entry.outcome) {
        judgeMissing(course, entry, item);
    }
    if (item.found == Found::unaccounted) {
        item.foldersLookedInto.push_back(around.path);
        if (course.intent().mode == CleanupExecutionMode::permanent) {
            item.foldersLookedInto.push_back(
                path::joined(around.path, platform::PrivateFolder::nameFor(course.intent().id)));
        }
        for (const platform::TrashListing::Place& place : listing_.places) {
            item.foldersLookedInto.push_back(path::joined(place.path, "files"));
        }
    }
    return item;
}

/// A plan may name a folder and something in it. Where the folder went to the Trash, the other went
/// with it.
bool CleanupSettlementLooker::isInsideTrashedFolder(const Course& course,
                                                    const CleanupIntentEntry& entry) {
    const std::string source = realSource(entry);
    for (std::string_view above = path::parent(source); above != "/"; above = path::parent(above)) {
        const auto known = course.bySource.find(above);
        if (known == course.bySource.end()) continue;
        const CleanupIntentEntry& folder = *known->second;
        if (folder.outcome &&
            std::holds_alternative<intent_outcome::MovedToTrash>(folder.outcome->value)) {
            return true;
        }
        const auto identity = identityIn(folder.fingerprint);
        if (!identity) continue;
        const auto [first, last] = trashedByInode_.equal_range(identity->inode);
        if (std::any_of(first, last, [&](const auto& each) {
                return comparison_.isItem(listing_.items[each.second].seen, folder.fingerprint);
            })) {
            return true;
        }
    }
    return false;
}

/// An item without an outcome that is nowhere. What that proves follows from the order in which a
/// cleanup does things:
///
/// - It takes the items in the plan's order. It gathers at most `maxUnflushedRecords` outcomes, and
///   sets at most as many files aside before it removes them. An item behind twice as many without
///   an outcome was never touched: others took it.
/// - A file is removed for good only when its outcome is on the disk, so one without an outcome was
///   not removed by the cleanup. But it may have been moved, and which of the two lost it does not
///   show. It is unaccounted for, like an item that was to go to the Trash.
///
/// Lines of the log that could not be read may have told an outcome, so nothing is proven then.
void CleanupSettlementLooker::judgeMissing(const Course& course, const CleanupIntentEntry& entry,
                                           SettledCleanup::Item& item) {
    const std::string parent(path::parent(realSource(entry)));
    const Folder& around = opened(parent);
    if (isInsideTrashedFolder(course, entry)) {
        item.found = Found::goneBefore;
        return;
    }
    if (around.seen && !comparison_.isOnItsVolume(*around.seen, entry.fingerprint)) {
        item.reason = "The disk that it lay on is not there.";
    } else if (!course.mayBeReached.contains(&entry) && course.recorded.passedOverLineCount == 0) {
        item.found = Found::goneBefore;
    } else if (course.notLookedInto.contains(parent)) {
        item.reason = "A private folder of this cleanup cannot be looked into.";
    } else if (!listing_.unread.empty()) {
        item.reason = "It is not at its place, and the Trash cannot be looked into.";
    } else {
        item.reason = "It is neither at its place nor in the Trash.";
    }
}

/// Whether the journal knows already what was found.
bool CleanupSettlementLooker::isKnown(const CleanupIntentEntry& entry,
                                      const SettledCleanup::Item& item) {
    if (!entry.outcome) return false;
    const auto& outcome = entry.outcome->value;
    const auto* moved = std::get_if<intent_outcome::MovedToTrash>(&outcome);
    switch (item.found) {
    case Found::atPlace: return std::holds_alternative<intent_outcome::Failed>(outcome);
    case Found::inTrash:
        return moved != nullptr && item.url && moved->url.path() == item.url->path();
    default: return true; // it is gone since, which the journal does not have to know
    }
}

CleanupSettlementLook CleanupSettlementLooker::look(const RecordedIntent& recorded) {
    const CleanupIntent& intent = recorded.intent;
    last_.reset(); // another intent's repairs may have changed it
    realFolder_ = {};
    Course course{.recorded = recorded,
                  .look = {.told = {.intentID = intent.id,
                                    .planID = intent.planID,
                                    .startedAt = intent.createdAt,
                                    .mode = intent.mode}}};
    std::size_t maxReached = 2 * FileCleanupIntentJournal::maxUnflushedRecords;
    for (const CleanupIntentEntry& entry : intent.entries) {
        course.bySource.emplace(realSource(entry), &entry);
        if (entry.outcome || maxReached > 0) course.mayBeReached.insert(&entry);
        if (!entry.outcome && maxReached > 0) --maxReached;
    }
    for (const auto& [parent, target] : privateParents(intent)) {
        lookIntoPrivateFolder(course, parent, target);
    }
    SettledCleanup& told = course.look.told;
    const bool isUnsettled = intent.isOpen() || recorded.isReceiptMissing;
    for (const CleanupIntentEntry& entry : intent.entries) {
        const auto inside = course.inPrivate.find(&entry);
        if (inside != course.inPrivate.end()) {
            auto& place = course.look.privatePlaces[inside->second.first];
            auto& item = place.items[inside->second.second];
            item.told = told.items.size();
            told.items.push_back({.candidateID = entry.candidateID,
                                  .originalURL = entry.sourceURL,
                                  .found = item.step == PrivateStep::moveToTrash ? Found::inTrash
                                           : item.step == PrivateStep::leave     ? Found::stays
                                                                                 : Found::putBack});
        } else if (isUnsettled && isLookedFor(entry)) {
            // The log and what it tells of reach the disk in no certain order, so outcomes are
            // looked at as well.
            const std::size_t steps = course.look.trashSteps.size();
            auto item = lookFor(course, entry);
            if (isKnown(entry, item) && course.look.trashSteps.size() == steps) continue;
            told.items.push_back(std::move(item));
        } else {
            continue;
        }
        course.look.toldEntries.push_back(&entry);
    }
    if (isUnsettled && changesTheFilesystem(intent.mode)) lookForPlaceholders(course);
    const auto isOpenQuestion = [](const auto& each) {
        return each.found == Found::stays || each.found == Found::unaccounted;
    };
    told.isAccountedFor = course.notLookedInto.empty() &&
                          std::ranges::none_of(told.items, isOpenQuestion) &&
                          std::ranges::none_of(told.strangers, isOpenQuestion);
    return std::move(course.look);
}

} // namespace tidyro

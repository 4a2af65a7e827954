#include "Rooms/Find/Services/Building/FindIndexWalk.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Platform/Mounts/MountPoints.h"

namespace tidyro {

using platform::FolderDescriptor;

namespace {

/// Entries of a folder that are read before they are made ready: a huge folder never stands in a
/// listing as a whole.
constexpr std::size_t entriesOfAPart = 1'024;

/// Bytes of room in each column from the start: they cost nothing until they are written to, and
/// are enough for each column to be a block of its own. Small blocks would move through the memory
/// of one thread after another as they grow, and leave holes in each.
constexpr std::size_t roomOfAColumn = 1'048'576;

} // namespace

FindIndexWalk::FindIndexWalk(Options options)
    : reports_(std::move(options.progress), options.progressInterval),
      afterBulkRead_(std::move(options.afterBulkRead)),
      openFolders_(std::move(options.root), platform::openFolderBudget()),
      storage_(options.asked.rootPath, options.asked.marksSystemFolders),
      threads_({.name = "Tidyro name index",
                .workers = options.workerCount,
                .standIns = options.standInCount,
                .work = [this] { work(); }}) {
    const FindIndexBuilder::Options& asked = options.asked;
    storage_.reserveColumns(roomOfAColumn);
    places_.add(platform::mountPointsBelow(openFolders_.folder(0)), PlaceTree::Mark::mountPoint);
    places_.addBelow(storage_.rootPath, asked.skippingContentsOf, PlaceTree::Mark::contentsSkipped);
    places_.addBelow(storage_.rootPath, asked.skipping, PlaceTree::Mark::skipped);
    places_.addBelow(storage_.rootPath, asked.excludedPaths, PlaceTree::Mark::skipped);
}

std::expected<FindIndexStorage, FindIndexBuilder::Error> FindIndexWalk::run() {
    if (const auto facts = openFolders_.folder(0).facts()) rootDevice_ = facts->identity.device;
    storage_.appendRoot(storage_.rootPath, 0);
    jobs_.push_back({.folder = 0, .from = 0, .places = places_.top()});
    openFolders_.retain(0, 1);
    threads_.run();
    return finish();
}

void FindIndexWalk::cancel() {
    const std::lock_guard lock(indexLock_);
    cancelled_ = true;
    ready_.notify_all();
}

void FindIndexWalk::work() {
    FindDirectoryReader reader({.cancelled = &cancelled_, .afterBulkRead = afterBulkRead_});
    Reading reading{};
    WaitWatch watch;
    std::vector<FolderDescriptor> closing;
    std::unique_lock lock(indexLock_);
    for (;;) {
        // Nothing stays open in the hands of one who waits: another may be out of files.
        if (jobs_.empty()) closing.clear();
        ready_.wait(lock, [&] { return isWorthWaking(reading); });
        if (isOver()) {
            ready_.notify_all();
            return;
        }
        takeJob(reading);
        const bool takesOn = threads_.mayTakeOnStandIn();
        lock.unlock();
        closing.clear();
        watch.begin(takesOn);
        read(reading, reader);
        const bool hasWaited = watch.hasWaited();
        lock.lock();
        commit(reading, closing);
        if (hasWaited && !isOver()) threads_.takeOnStandIn();
        if (reports_.isDue()) {
            closing.clear();
            reports_.report(lock, [&] { return progressAt(reading.job.folder); });
        }
    }
}

/// Whether a worker has something to do, or everything is done.
bool FindIndexWalk::isWorthWaking(const Reading& last) const {
    if (cancelled_ || failure_) return true;
    return jobs_.empty() ? !turns_.isAnyoneReading() : turns_.mayBegin(last.turn);
}

void FindIndexWalk::takeJob(Reading& reading) {
    reading.job = jobs_.back();
    jobs_.pop_back();
    turns_.begin(reading.turn);
    const Entry folder = reading.job.folder;
    reading.from = &openFolders_.folder(reading.job.from);
    reading.inherited = {.flags = storage_.flags[folder],
                         .marksSystemFolders = folder == 0 && storage_.marksSystemFolders};
    reading.route.clear();
    const Entry from = openFolders_.number(reading.job.from);
    for (Entry at = folder; at != from; at = storage_.parent[at]) {
        reading.route.addAbove(storage_.name(at));
    }
}

void FindIndexWalk::read(Reading& reading, FindDirectoryReader& reader) {
    reading.block.begin(reading.inherited);
    reading.descents.clear();
    reading.leftOut.clear();
    reading.skipped = 0;
    reading.modified.reset();
    reading.outcome = Outcome::read;
    open(reading);
    if (reading.outcome != Outcome::read) return;

    const FolderDescriptor& folder = reading.folder.isOpen() ? reading.folder : *reading.from;
    reader.begin(folder);
    do {
        if (const auto read = reader.readPart(reading.listing, entriesOfAPart); !read) {
            return close(reading, read.error().error);
        }
        take(reading, folder);
    } while (reading.listing.count() == entriesOfAPart);
}

void FindIndexWalk::open(Reading& reading) {
    auto arrival = reading.route.follow(*reading.from, rootDevice_);
    if (arrival.facts) reading.modified = arrival.facts->modified;
    reading.folder = std::move(arrival.folder);
    if (arrival.isElsewhere) {
        reading.folder = {};
        reading.outcome = Outcome::mountPoint;
    } else if (arrival.error.code != 0) {
        close(reading, arrival.error);
    }
}

/// Makes a part of the listing ready, and picks the folders in it that are to be read.
void FindIndexWalk::take(Reading& reading, const FolderDescriptor& folder) {
    const PlaceTree::Branch* places = reading.job.places;
    if (places != nullptr) leaveOutSkipped(reading);
    FindDirectoryListing& listing = places != nullptr ? reading.kept : reading.listing;
    const std::uint32_t before = reading.block.count();
    for (std::size_t i = 0; i < listing.count(); ++i) {
        if (listing.types[i] != FindObjectType::directory) continue;
        const PlaceTree::Branch* place =
            places == nullptr ? nullptr : places->child(listing.name(i));
        const bool isEntered = !listing.mountPoints[i] &&
                               (listing.bsdFlags[i] & FindDirectoryReader::datalessFlag) == 0 &&
                               (place == nullptr || place->mark == PlaceTree::Mark::none);
        if (isEntered) {
            reading.descents.push_back(
                {.slot = before + static_cast<std::uint32_t>(i), .places = place});
            continue;
        }
        reading.leftOut.push_back(before + static_cast<std::uint32_t>(i));
        // Looking at a mount point may wake a server that never answers.
        const bool isMountPoint = listing.mountPoints[i] ||
                                  (place != nullptr && place->mark == PlaceTree::Mark::mountPoint);
        if (isMountPoint || listing.mtimes[i] != 0) continue;
        const auto facts = folder.facts(std::string(listing.name(i)).c_str());
        if (facts) listing.mtimes[i] = facts->modified;
    }
    reading.block.add(listing);
}

void FindIndexWalk::leaveOutSkipped(Reading& reading) const {
    reading.kept.clear();
    for (std::size_t i = 0; i < reading.listing.count(); ++i) {
        const PlaceTree::Branch* place = reading.job.places->child(reading.listing.name(i));
        if (place != nullptr && place->mark == PlaceTree::Mark::skipped) {
            ++reading.skipped;
        } else {
            reading.kept.append(reading.listing.entry(i));
        }
    }
}

/// Ends the reading of a folder without its contents.
void FindIndexWalk::close(Reading& reading, SystemError error) {
    using Kind = FindDirectoryReader::Failure::Kind;
    reading.folder = {};
    reading.error = error;
    const Kind kind = FindDirectoryReader::Failure::of(error).kind;
    const bool isGone = kind == Kind::missing || kind == Kind::notDirectory;
    if (error.code == ECANCELED) {
        reading.outcome = Outcome::unread;
    } else if (error.code == EMFILE || error.code == ENFILE) {
        reading.outcome = Outcome::postponed;
    } else if (isGone && reading.job.folder != 0) {
        reading.outcome = Outcome::vanished;
    } else {
        reading.outcome = Outcome::denied;
    }
}

void FindIndexWalk::commit(Reading& reading, std::vector<FolderDescriptor>& closing) {
    if (reading.modified) storage_.mtime[reading.job.folder] = *reading.modified;
    switch (reading.outcome) {
    case Outcome::unread: markUnread(reading.job.folder); break;
    case Outcome::postponed:
        if (!turns_.postpone(reading.turn)) {
            return fail(FindIndexBuilder::Unreadable{reading.error});
        }
        jobs_.insert(jobs_.begin(), reading.job);
        return;
    case Outcome::vanished: vanished_.push_back(reading.job.folder); break;
    case Outcome::mountPoint:
        markUnread(reading.job.folder);
        ++progress_.skipped;
        break;
    case Outcome::denied:
        if (reading.job.folder == 0) return fail(FindIndexBuilder::Unreadable{reading.error});
        markUnread(reading.job.folder);
        ++storage_.deniedCount;
        break;
    case Outcome::read:
        if (!reading.block.fits(storage_)) return fail(FindIndexBuilder::TooLarge{});
        append(reading);
        break;
    }
    turns_.finish();
    closing.push_back(std::move(reading.folder));
    closing.push_back(openFolders_.release(reading.job.from));
    const bool isLast = jobs_.empty() && !turns_.isAnyoneReading();
    if (isLast || turns_.hasAnyonePostponed()) ready_.notify_all();
}

void FindIndexWalk::markUnread(Entry folder) { storage_.flags[folder] |= findflag::unread; }

void FindIndexWalk::append(Reading& reading) {
    progress_.items += reading.block.count();
    progress_.skipped += reading.skipped + static_cast<std::int64_t>(reading.leftOut.size());
    ++progress_.folders;
    const Entry first = reading.block.moveInto(storage_, reading.job.folder);
    for (const std::uint32_t slot : reading.leftOut) markUnread(first + slot);
    pushDescents(reading, first);
}

void FindIndexWalk::pushDescents(Reading& reading, Entry first) {
    if (reading.descents.empty()) return;
    const auto waiting = static_cast<std::uint32_t>(reading.descents.size());
    OpenFolders::Slot from = reading.job.from;
    if (reading.folder.isOpen() && openFolders_.hasRoom()) {
        from = openFolders_.hold(std::move(reading.folder), reading.job.folder, waiting);
    } else {
        openFolders_.retain(from, waiting);
    }
    for (const Descent& descent : reading.descents) {
        jobs_.push_back({.folder = first + descent.slot, .from = from, .places = descent.places});
    }
    // This worker takes one itself.
    for (std::size_t i = 1; i < std::min<std::size_t>(waiting, threads_.count()); ++i) {
        ready_.notify_one();
    }
}

/// Ends the walk.
void FindIndexWalk::fail(FindIndexBuilder::Error error) {
    if (!failure_) failure_ = error;
    ready_.notify_all();
}

FindIndexBuilder::Progress FindIndexWalk::progressAt(Entry folder) const {
    FindIndexBuilder::Progress progress = progress_;
    progress.currentPath = storage_.path(folder);
    return progress;
}

std::expected<FindIndexStorage, FindIndexBuilder::Error> FindIndexWalk::finish() {
    if (cancelled_) return std::unexpected(CancellationError{});
    if (failure_) return std::unexpected(*failure_);
    if (reports_.hasHandler()) reports_.reportLast(progressAt(0));
    // Their places stay taken: the numbers of all others are in use by now.
    for (const Entry entry : vanished_) storage_.markDeleted(entry);
    storage_.aggregateFolderSizes();
    return std::move(storage_);
}

} // namespace tidyro

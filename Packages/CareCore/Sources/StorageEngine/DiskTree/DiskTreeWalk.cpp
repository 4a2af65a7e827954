#include "StorageEngine/DiskTree/DiskTreeWalk.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Base/Saturating.h"
#include "Platform/Mounts/MountPoints.h"

namespace tidyro {

using platform::FolderDescriptor;

DiskTreeWalk::DiskTreeWalk(Options options)
    : rootURL_(std::move(options.rootURL)),
      reports_(std::move(options.progressHandler), options.progressInterval),
      afterBulkRead_(std::move(options.afterBulkRead)),
      maximumDepth_(options.maximumDepth),
      startedAt_(Clock::now()),
      openFolders_(std::move(options.root), platform::openFolderBudget()),
      threads_({.name = "Tidyro disk scan",
                .workers = options.workerCount,
                .standIns = options.standInCount,
                .work = [this] { work(); }}) {
    places_.add(platform::mountPointsBelow(openFolders_.folder(0)), PlaceTree::Mark::mountPoint);
    places_.addBelow(rootURL_.path(), options.skippingContentsOf, PlaceTree::Mark::contentsSkipped);
    places_.addBelow(rootURL_.path(), options.skipping, PlaceTree::Mark::skipped);
}

std::expected<DiskTree, DiskTreeScanner::ScanError> DiskTreeWalk::run() {
    const FolderDescriptor& root = openFolders_.folder(0);
    if (const auto facts = root.facts()) rootDevice_ = facts->identity.device;
    tellsClones_ = platform::isKnownToShareBlocks(root);
    appendRoot();
    threads_.run();
    return finish();
}

void DiskTreeWalk::cancel() {
    const std::lock_guard lock(mutex_);
    cancelled_ = true;
    ready_.notify_all();
}

void DiskTreeWalk::appendRoot() {
    const auto context = contentKindContextOfPath(rootURL_.path());
    const std::string_view name = rootURL_.lastComponent();
    DiskTreeFlags flags(DiskTreeFlags::directory);
    if (isPackageFolder(name)) flags.insert(DiskTreeFlags::package);
    if (context == ContentKind::system) flags.insert(DiskTreeFlags::systemOwned);
    columns_.parent.push(-1);
    columns_.childStart.push(0);
    columns_.childCount.push(0);
    columns_.nameStart.push(0);
    columns_.nameLength.push(static_cast<std::uint16_t>(name.size()));
    columns_.nameBytes.append({name.data(), name.size()});
    columns_.logicalSize.push(0);
    columns_.allocatedSize.push(0);
    columns_.modified.push(0);
    columns_.accessed.push(0);
    columns_.kind.push(context.value_or(ContentKind::other));
    columns_.flags.push(flags);
    jobs_.push_back(
        {.index = 0, .from = 0, .depth = 0, .context = context, .places = places_.top()});
    openFolders_.retain(0, 1);
}

void DiskTreeWalk::work() {
    platform::FolderLister lister({.isAskedForClones = tellsClones_,
                                   .cancelled = &cancelled_,
                                   .afterBulkRead = afterBulkRead_});
    Reading reading{};
    WaitWatch watch;
    std::vector<FolderDescriptor> closing;
    std::unique_lock lock(mutex_);
    for (;;) {
        // Nothing stays open in the hands of one who waits: another may be out of files.
        if (jobs_.empty()) closing.clear();
        ready_.wait(lock, [&] { return isWorthWaking(reading); });
        if (cancelled_ || failure_ || jobs_.empty()) {
            ready_.notify_all();
            return;
        }
        takeJob(reading);
        const bool takesOn = threads_.mayTakeOnStandIn();
        lock.unlock();
        closing.clear();
        watch.begin(takesOn);
        read(reading, lister);
        const bool hasWaited = watch.hasWaited();
        lock.lock();
        commit(reading, closing);
        const bool isWorthIt = !cancelled_ && !failure_ && !jobs_.empty();
        if (hasWaited && isWorthIt) threads_.takeOnStandIn();
        if (reports_.isDue()) {
            closing.clear();
            reports_.report(lock, [&] { return progressAt(reading.job.index); });
        }
    }
}

/// Whether a worker has something to do, or everything is done.
bool DiskTreeWalk::isWorthWaking(const Reading& last) const {
    if (cancelled_ || failure_) return true;
    return jobs_.empty() ? !turns_.isAnyoneReading() : turns_.mayBegin(last.turn);
}

void DiskTreeWalk::takeJob(Reading& reading) {
    reading.job = jobs_.back();
    jobs_.pop_back();
    turns_.begin(reading.turn);
    reading.from = &openFolders_.folder(reading.job.from);
    reading.route.clear();
    const auto from = static_cast<NodeNumber>(openFolders_.number(reading.job.from));
    for (NodeNumber node = reading.job.index; node != from;
         node = columns_.parent[static_cast<std::size_t>(node)]) {
        reading.route.addAbove(nameSoFar(node));
    }
}

void DiskTreeWalk::read(Reading& reading, platform::FolderLister& lister) {
    reading.batch.clear();
    reading.facts.reset();
    reading.outcome = Outcome::read;
    open(reading);
    if (reading.outcome != Outcome::read) return;

    const EntrySurroundings surroundings{.context = reading.job.context,
                                         .isStartupDiskRoot =
                                             reading.job.index == 0 && rootURL_.path() == "/",
                                         .descends = reading.job.depth < maximumDepth_,
                                         .places = reading.job.places};
    const FolderDescriptor& folder = reading.folder.isOpen() ? reading.folder : *reading.from;
    lister.begin(folder);
    while (const platform::FolderEntry* entry = lister.next()) {
        reading.batch.add(*entry, surroundings);
    }
    if (lister.error().code != 0) return close(reading, Outcome::denied, lister.error());
    reading.batch.dateUnreadFolders(folder);
}

/// The root's route is empty: it is read through the descriptor it came with.
void DiskTreeWalk::open(Reading& reading) {
    auto arrival = reading.route.follow(*reading.from, rootDevice_);
    reading.facts = arrival.facts;
    reading.folder = std::move(arrival.folder);
    if (arrival.isElsewhere) {
        close(reading, Outcome::mountPoint, {0});
    } else if (arrival.error.code != 0) {
        close(reading, Outcome::denied, arrival.error);
    }
}

/// Ends the reading of a folder without its contents.
void DiskTreeWalk::close(Reading& reading, Outcome outcome, SystemError error) {
    reading.folder = {};
    reading.batch.clear();
    reading.error = error;
    if (error.code == ECANCELED) outcome = Outcome::unread;
    if (error.code == EMFILE || error.code == ENFILE) outcome = Outcome::postponed;
    if (outcome == Outcome::denied && reading.job.index != 0 && platform::hasVanished(error)) {
        outcome = Outcome::vanished;
    }
    reading.outcome = outcome;
}

void DiskTreeWalk::commit(Reading& reading, std::vector<FolderDescriptor>& closing) {
    const auto node = static_cast<std::size_t>(reading.job.index);
    if (reading.facts) {
        columns_.modified[node] = reading.facts->modified;
        columns_.accessed[node] = reading.facts->accessed;
    }
    switch (reading.outcome) {
    case Outcome::unread: break;
    case Outcome::postponed:
        if (!turns_.postpone(reading.turn)) return fail(reading.error);
        jobs_.insert(jobs_.begin(), reading.job);
        return;
    case Outcome::vanished: vanished_.push_back(reading.job.index); break;
    case Outcome::mountPoint: columns_.flags[node].insert(DiskTreeFlags::mountPoint); break;
    case Outcome::denied:
        if (reading.job.index == 0) return fail(reading.error);
        columns_.flags[node].insert(DiskTreeFlags::denied);
        ++columns_.deniedCount;
        ++progress_.denied;
        break;
    case Outcome::read: {
        if (!fits(reading.batch)) return fail({EOVERFLOW});
        reading.batch.settleShared(seenHardLinks_, seenClones_);
        progress_.items += reading.batch.count();
        progress_.folders += reading.batch.folders();
        progress_.logicalBytes =
            saturatingAdd(progress_.logicalBytes, reading.batch.logicalTotal());
        progress_.allocatedBytes =
            saturatingAdd(progress_.allocatedBytes, reading.batch.allocatedTotal());
        const auto firstChild = static_cast<NodeNumber>(columns_.parent.size());
        columns_.childStart[node] = firstChild;
        columns_.childCount[node] = static_cast<std::int32_t>(reading.batch.count());
        reading.batch.moveInto(columns_, reading.job.index);
        pushDescents(reading, firstChild);
        break;
    }
    }
    turns_.finish();
    closing.push_back(std::move(reading.folder));
    closing.push_back(openFolders_.release(reading.job.from));
    const bool isLast = jobs_.empty() && !turns_.isAnyoneReading();
    if (isLast || turns_.hasAnyonePostponed()) ready_.notify_all();
}

void DiskTreeWalk::pushDescents(Reading& reading, NodeNumber firstChild) {
    const auto& descents = reading.batch.descents();
    if (descents.empty()) return;
    const auto waiting = static_cast<std::uint32_t>(descents.size());
    OpenFolders::Slot from = reading.job.from;
    if (reading.folder.isOpen() && openFolders_.hasRoom()) {
        from = openFolders_.hold(std::move(reading.folder),
                                 static_cast<OpenFolders::Number>(reading.job.index), waiting);
    } else {
        openFolders_.retain(from, waiting);
    }
    for (const DiskTreeBatch::Descent& descent : descents) {
        jobs_.push_back({.index = firstChild + static_cast<NodeNumber>(descent.slot),
                         .from = from,
                         .depth = reading.job.depth + 1,
                         .context = descent.context,
                         .places = descent.places});
    }
    // This worker takes one itself.
    for (std::size_t i = 1; i < std::min<std::size_t>(waiting, threads_.count()); ++i) {
        ready_.notify_one();
    }
}

bool DiskTreeWalk::fits(const DiskTreeBatch& batch) const {
    constexpr std::size_t mostNodes = std::numeric_limits<NodeNumber>::max();
    constexpr std::size_t mostNameBytes = std::numeric_limits<std::uint32_t>::max();
    return batch.count() <= mostNodes - columns_.parent.size() &&
           batch.nameByteCount() <= mostNameBytes - columns_.nameBytes.size();
}

/// Ends the walk: its root cannot be read, or the tree outgrew what node numbers can count.
void DiskTreeWalk::fail(SystemError error) {
    if (!failure_) failure_ = error;
    ready_.notify_all();
}

DiskTreeScanner::Progress DiskTreeWalk::progressAt(NodeNumber folder) const {
    DiskTreeScanner::Progress progress = progress_;
    progress.currentPath = pathSoFar(folder);
    progress.elapsed = elapsed();
    return progress;
}

std::string_view DiskTreeWalk::nameSoFar(NodeNumber node) const {
    const auto i = static_cast<std::size_t>(node);
    return {columns_.nameBytes.data() + columns_.nameStart[i], columns_.nameLength[i]};
}

std::string DiskTreeWalk::pathSoFar(NodeNumber node) const {
    std::vector<std::string_view> names;
    for (; node > 0; node = columns_.parent[static_cast<std::size_t>(node)]) {
        names.push_back(nameSoFar(node));
    }
    std::string path = rootURL_.path();
    for (auto name = names.rbegin(); name != names.rend(); ++name) {
        if (!path.ends_with('/')) path += '/';
        path += *name;
    }
    return path;
}

double DiskTreeWalk::elapsed() const {
    return std::chrono::duration<double>(Clock::now() - startedAt_).count();
}

std::expected<DiskTree, DiskTreeScanner::ScanError> DiskTreeWalk::finish() {
    if (cancelled_) return std::unexpected(CancellationError{});
    if (failure_) return std::unexpected(DiskTreeScanner::Unreadable{rootURL_, *failure_});
    std::ranges::sort(vanished_);
    removeNodes(columns_, vanished_);
    totalSubtrees(columns_);
    columns_.rootURL = rootURL_;
    columns_.duration = elapsed();
    columns_.finishedAt = Timestamp::now();
    return DiskTree(std::move(columns_));
}

} // namespace tidyro

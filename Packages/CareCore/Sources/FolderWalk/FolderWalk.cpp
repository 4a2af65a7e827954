#include "FolderWalk/FolderWalk.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Platform/Mounts/MountPoints.h"

namespace tidyro {

using platform::FolderDescriptor;

FolderWalk::FolderWalk(Options options, Target& target)
    : target_(target),
      maxDepth_(options.maxDepth),
      openFolders_(std::move(options.root), platform::openFolderBudget()),
      threads_({.name = std::move(options.threadName),
                .workers = options.workerCount,
                .standIns = options.standInCount,
                .work = [this] { work(); }}) {
    const FolderDescriptor& root = openFolders_.folder(0);
    if (const auto facts = root.facts()) mounts_.root = facts->volume;
    platform::MountsBelow below = platform::mountsBelow(root, mounts_.root);
    mounts_.ontoThemselves = std::move(below.ontoThemselves);
    places_.add(below.elsewhere, PlaceTree::Mark::mountPoint);
    places_.addBelow(options.rootPath, options.skippingContentsOf,
                     PlaceTree::Mark::contentsSkipped);
    places_.addBelow(options.rootPath, options.skipping, PlaceTree::Mark::skipped);
    jobs_.push_back({.folder = 0, .from = 0, .depth = 0, .places = places_.top()});
    openFolders_.retain(0, 1);
}

std::expected<void, SystemError> FolderWalk::run() {
    threads_.run();
    if (cancelled_) return std::unexpected(SystemError{ECANCELED});
    if (failure_) return std::unexpected(*failure_);
    return {};
}

void FolderWalk::cancel() {
    const std::lock_guard lock(mutex_);
    cancelled_ = true;
    ready_.notify_all();
}

void FolderWalk::work() {
    Reading reading{.reader = target_.makeReader(cancelled_)};
    WaitWatch watch;
    Closing closing;
    std::unique_lock lock(mutex_);
    for (;;) {
        // A worker that waits keeps nothing open: another may be out of files.
        if (jobs_.empty()) closing.clear();
        ready_.wait(lock, [&] { return isWorthWaking(reading); });
        if (isOver()) {
            ready_.notify_all();
            return;
        }
        takeJob(reading);
        const bool mayTakeOn = threads_.mayTakeOnStandIn();
        lock.unlock();
        closing.clear();
        watch.begin(mayTakeOn);
        read(reading);
        const bool hasWaited = watch.hasWaited();
        lock.lock();
        commit(reading, closing);
        if (hasWaited && !isOver()) threads_.takeOnStandIn();
        if (target_.isReportDue()) {
            closing.clear();
            target_.report(lock, reading.job.folder);
        }
    }
}

/// Whether a worker has something to do, or everything is done.
bool FolderWalk::isWorthWaking(const Reading& last) const {
    if (cancelled_ || failure_) return true;
    return jobs_.empty() ? !turns_.isAnyoneReading() : turns_.mayBegin(last.turn);
}

void FolderWalk::takeJob(Reading& reading) {
    reading.job = jobs_.back();
    jobs_.pop_back();
    turns_.begin(reading.turn);
    reading.from = &openFolders_.folder(reading.job.from);
    reading.route.clear();
    const Number from = openFolders_.number(reading.job.from);
    for (Number at = reading.job.folder; at != from; at = target_.parent(at)) {
        reading.route.addAbove(target_.name(at));
    }
    reading.reader->begin(reading.job.folder);
}

void FolderWalk::read(Reading& reading) const {
    // The root's route is empty: it is read through the descriptor that it came with.
    auto arrival = reading.route.follow(*reading.from, mounts_);
    reading.facts = arrival.facts;
    reading.folder = std::move(arrival.folder);
    reading.error = arrival.error;
    reading.outcome = Outcome::read;
    if (arrival.isElsewhere) {
        reading.outcome = Outcome::mountPoint;
    } else {
        if (reading.error.code == 0) {
            reading.error = reading.reader->read(
                {.folder = reading.folder.isOpen() ? reading.folder : *reading.from,
                 .places = reading.job.places,
                 .mayDescend = reading.job.depth < maxDepth_,
                 .facts = reading.facts});
        }
        if (reading.error.code == 0) return;
        const bool isGone = reading.job.folder != 0 && platform::hasVanished(reading.error);
        reading.outcome = isGone ? Outcome::vanished : Outcome::closed;
        if (reading.error.code == ECANCELED) reading.outcome = Outcome::unread;
    }
    reading.folder = {};
}

void FolderWalk::commit(Reading& reading, Closing& closing) {
    const int error = reading.outcome == Outcome::closed ? reading.error.code : 0;
    if (error == EMFILE || error == ENFILE) {
        if (!turns_.postpone(reading.turn)) return fail(reading.error);
        jobs_.insert(jobs_.begin(), reading.job);
        return;
    }
    if (error != 0 && reading.job.folder == 0) return fail(reading.error);
    const auto handover =
        reading.reader->finish(reading.job.folder, reading.outcome, reading.facts);
    if (!handover) return fail({EOVERFLOW});
    if (!handover->descents.empty()) pushDescents(reading, *handover);
    turns_.finish();
    closing.push_back(std::move(reading.folder));
    closing.push_back(openFolders_.release(reading.job.from));
    const bool isLast = jobs_.empty() && !turns_.isAnyoneReading();
    if (isLast || turns_.hasAnyonePostponed()) ready_.notify_all();
}

void FolderWalk::pushDescents(Reading& reading, const Handover& handover) {
    const auto waiting = static_cast<std::uint32_t>(handover.descents.size());
    OpenFolders::Slot from = reading.job.from;
    if (reading.folder.isOpen() && openFolders_.hasRoom()) {
        from = openFolders_.hold(std::move(reading.folder), reading.job.folder, waiting);
    } else {
        openFolders_.retain(from, waiting);
    }
    for (const Descent& descent : handover.descents) {
        jobs_.push_back({.folder = handover.first + descent.slot,
                         .from = from,
                         .depth = reading.job.depth + 1,
                         .places = descent.places});
    }
    // This worker takes one itself.
    for (std::size_t i = 1; i < std::min<std::size_t>(waiting, threads_.count()); ++i) {
        ready_.notify_one();
    }
}

/// Ends the walk.
void FolderWalk::fail(SystemError error) {
    if (!failure_) failure_ = error;
    ready_.notify_all();
}

} // namespace tidyro

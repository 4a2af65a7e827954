#include "Rooms/Duplicates/Choosing/DuplicatesModel.h"

#include <algorithm>
#include <string_view>
#include <tuple>
#include <utility>

#include "Base/PathText.h"
#include "Base/Saturating.h"
#include "Platform/Folders/FolderChanges.h"

namespace tidyro {

namespace {

template <class Case>
bool isInState(const CopyState& state) {
    return std::holds_alternative<Case>(state.value);
}

CopyStanding standingOf(const DuplicateCopy& copy) {
    return copy.standing.value_or(CopyStanding{});
}

/// Whether a cleanup that was cut short left the copy. It goes back to its place, so it is no copy
/// to keep and none to remove.
bool isLeftByCleanup(const DuplicateCopy& copy) {
    return platform::PrivateFolder::isInOne(copy.path);
}

/// What counts before the rule; the smaller one stays. A disk of this machine comes before volumes
/// that may be taken away, even where those hold the more lasting place.
auto rankOf(const DuplicateCopy& copy) {
    const CopyStanding standing = standingOf(copy);
    return std::tuple(!standing.isReason, standing.volume.has_value(), standing.place);
}

/// The copy that the order puts first among those that the filter lets through; of several there,
/// the one that the rule prefers.
template <class Order, class Filter>
const DuplicateCopy* bestCopy(std::span<const DuplicateCopy> copies, KeepRule rule, Order order,
                              Filter mayBeTaken) {
    const DuplicateCopy* found = nullptr;
    for (const DuplicateCopy& copy : copies) {
        if (!mayBeTaken(copy)) continue;
        const bool isBetter = found == nullptr || order(copy) < order(*found) ||
                              (order(copy) == order(*found) && isBetterToKeep(copy, *found, rule));
        if (isBetter) found = &copy;
    }
    return found;
}

/// Why a copy may not go because another one is kept; empty when it may.
std::string_view whyKeptIsNoReason(const DuplicateCopy& kept, const DuplicateCopy& copy) {
    const CopyStanding staying = standingOf(kept);
    const CopyStanding going = standingOf(copy);
    if (!staying.isReason) return "No copy of this set is sure to last, so none of them may go.";
    if (staying.volume != going.volume) {
        return "The copy that is kept lies on another volume, and removable and remote volumes "
               "come and go.";
    }
    if (staying.place > going.place) {
        return "The copy that is kept lies in a place that lasts less long than this one.";
    }
    return {};
}

const DuplicateCopy* copyAt(std::string_view path, const DuplicateGroup& group) {
    const auto found = std::ranges::find(group.copies, path, &DuplicateCopy::path);
    return found == group.copies.end() ? nullptr : &*found;
}

} // namespace

// The search

DuplicatesModel::Screen DuplicatesModel::screen() const {
    if (std::holds_alternative<Searching>(phase_)) return Screen::searching;
    if (report_) return report_->groups.empty() ? Screen::nothingFound : Screen::results;
    return isScanUnderWay_ && settings.followsScans ? Screen::waitingForScan : Screen::start;
}

DuplicateSearchOptions DuplicatesModel::options(const FileURL& home) const {
    return {.roots = settings.folders.empty() ? std::vector{home} : settings.folders,
            .minimumBytes = settings.minimumBytes,
            .includeSystemVolumes = settings.includeSystemVolumes,
            .home = home,
            .systemVolumeRoots = settings.systemVolumeRoots};
}

bool DuplicatesModel::isUnderWay(SearchNumber search) const {
    return search == search_ && std::holds_alternative<Searching>(phase_);
}

DuplicatesModel::SearchNumber DuplicatesModel::searchBegan() {
    phase_ = Searching{};
    progress_.reset();
    // Without the record of what is gone the old report would offer the last copy of a file.
    report_.reset();
    keptByHand_.clear();
    gone_.clear();
    wasStopped_ = false;
    search_ = SearchNumber{static_cast<std::uint64_t>(search_) + 1};
    return search_;
}

void DuplicatesModel::progressed(SearchNumber search, DuplicateProgress progress) {
    if (isUnderWay(search)) progress_ = std::move(progress);
}

void DuplicatesModel::finished(SearchNumber search, DuplicateReport report, CleanupQueue& queue) {
    if (!isUnderWay(search)) return;
    phase_ = Finished{};
    progress_.reset();
    report_ = std::move(report);
    queueChanged(queue);
}

void DuplicatesModel::failedWith(SearchNumber search, std::string message) {
    if (!isUnderWay(search)) return;
    phase_ = Failed{std::move(message)};
    progress_.reset();
}

void DuplicatesModel::stopped(SearchNumber search) {
    if (!isUnderWay(search)) return;
    phase_ = Idle{};
    progress_.reset();
    wasStopped_ = true;
}

// Searches that follow the scans of the disk

std::optional<DuplicatesModel::AutoRun> DuplicatesModel::scanFinished(const FileURL& root,
                                                                      Timestamp finishedAt) {
    isScanUnderWay_ = false;
    if (!settings.followsScans || std::holds_alternative<Searching>(phase_)) return std::nullopt;
    AutoRun run{.root = root,
                .scanFinishedAt = finishedAt,
                .includeSystemVolumes = settings.includeSystemVolumes};
    if (lastAutoRun_ == run || !keptByHand_.empty()) return std::nullopt;
    lastAutoRun_ = run;
    return run;
}

DuplicateSearchOptions DuplicatesModel::options(const FileURL& home, const AutoRun& run) const {
    DuplicateSearchOptions made = options(home);
    made.roots = {run.root};
    made.includeSystemVolumes = run.includeSystemVolumes;
    return made;
}

// The copy that is kept

void DuplicatesModel::setKeepRule(KeepRule rule, CleanupQueue& queue) {
    keepRule_ = rule;
    queueChanged(queue);
}

void DuplicatesModel::setPreferredFolder(std::optional<FileURL> folder, CleanupQueue& queue) {
    preferredFolder_ = std::move(folder);
    queueChanged(queue);
}

const DuplicateCopy* DuplicatesModel::pick(std::span<const DuplicateCopy> copies, KeepRule rule) {
    return bestCopy(copies, rule, rankOf,
                    [](const DuplicateCopy& copy) { return !isLeftByCleanup(copy); });
}

const DuplicateCopy* DuplicatesModel::keptCopy(const DuplicateGroup& group) const {
    if (const auto chosen = keptByHand_.find(group.digest); chosen != keptByHand_.end()) {
        const DuplicateCopy* copy = copyAt(chosen->second, group);
        if (copy != nullptr && !covers(gone_, copy->path)) return copy;
    }
    const auto mayBeKept = [&](const DuplicateCopy& copy) {
        return !covers(gone_, copy.path) && !isLeftByCleanup(copy);
    };
    std::optional<std::string> preferred;
    if (keepRule_ == KeepRule::preferredFolder && preferredFolder_) {
        preferred = preferredFolder_->path() + "/";
    }
    const auto order = [&](const DuplicateCopy& copy) {
        return std::tuple(rankOf(copy), isNamedAsCopy(path::lastComponent(copy.path)),
                          !standingOf(copy).hasSeveralNames,
                          preferred && !copy.path.starts_with(*preferred));
    };
    return bestCopy(group.copies, keepRule_, order, mayBeKept);
}

CopyState DuplicatesModel::stateOf(const DuplicateCopy& copy, const DuplicateCopy* kept,
                                   const PathSet& staged) const {
    if (covers(gone_, copy.path)) return {copystate::Gone{}};
    if (kept != nullptr && kept->path == copy.path) return {copystate::Kept{}};
    if (covers(staged, copy.path)) return {copystate::Staged{}};
    if (copy.heldBecause) return {copystate::Held{*copy.heldBecause}};
    if (isLeftByCleanup(copy)) return {copystate::Held{"A cleanup that was cut short left this."}};
    if (kept == nullptr) return {copystate::Extra{}};
    if (kept->storage == copy.storage) return {copystate::SharesStorage{}};
    const std::string_view reason = whyKeptIsNoReason(*kept, copy);
    if (!reason.empty()) return {copystate::Held{std::string(reason)}};
    return {copystate::Extra{}};
}

CopyState DuplicatesModel::state(const DuplicateCopy& copy, const DuplicateGroup& group,
                                 const PathSet& staged) const {
    return stateOf(copy, keptCopy(group), staged);
}

std::vector<CopyState> DuplicatesModel::states(const DuplicateGroup& group,
                                               const PathSet& staged) const {
    const DuplicateCopy* kept = keptCopy(group);
    std::vector<CopyState> states;
    states.reserve(group.copies.size());
    for (const DuplicateCopy& copy : group.copies) states.push_back(stateOf(copy, kept, staged));
    return states;
}

std::vector<const DuplicateCopy*> DuplicatesModel::extras(const DuplicateGroup& group) const {
    const DuplicateCopy* kept = keptCopy(group);
    std::vector<const DuplicateCopy*> found;
    for (const DuplicateCopy& copy : group.copies) {
        if (isInState<copystate::Extra>(stateOf(copy, kept, {}))) found.push_back(&copy);
    }
    return found;
}

namespace {

/// How many copies of a set stay on each storage. Removing the last one frees what it has alone.
class StayingCopies {
  public:
    StayingCopies(const DuplicateGroup& group, const PathSet& staged, const PathSet& gone)
        : bytesEach_(group.bytesEach) {
        for (const DuplicateCopy& copy : group.copies) {
            if (!goes(copy, staged) && !covers(gone, copy.path)) ++count_[copy.storage];
        }
    }
    [[nodiscard]] static bool goes(const DuplicateCopy& copy, const PathSet& staged) {
        return covers(staged, copy.path) && !copy.heldBecause;
    }
    /// What is freed when this copy goes as well.
    [[nodiscard]] std::uint64_t freedBy(const DuplicateCopy& copy) const {
        const auto count = count_.find(copy.storage);
        const bool isLast = count != count_.end() && count->second == 1;
        return isLast ? copy.freedBytes.value_or(bytesEach_) : 0;
    }
    void leave(const DuplicateCopy& copy) { --count_[copy.storage]; }

  private:
    std::uint64_t bytesEach_;
    std::map<std::int64_t, std::size_t> count_;
};

} // namespace

std::uint64_t DuplicatesModel::freedBytes(const DuplicateGroup& group,
                                          const PathSet& staged) const {
    StayingCopies staying(group, {}, gone_);
    std::uint64_t freed = 0;
    for (const DuplicateCopy& copy : group.copies) {
        if (covers(gone_, copy.path) || !StayingCopies::goes(copy, staged)) continue;
        freed = saturatingAdd(freed, staying.freedBy(copy));
        staying.leave(copy);
    }
    return freed;
}

// The cleanup queue

const DuplicateGroup* DuplicatesModel::currentGroup(const DuplicateGroup& group) const {
    if (!report_) return nullptr;
    const auto found = std::ranges::find(report_->groups, group.digest, &DuplicateGroup::digest);
    return found == report_->groups.end() ? nullptr : &*found;
}

bool DuplicatesModel::stage(const DuplicateCopy& copy, const DuplicateGroup& group,
                            CleanupQueue& queue) {
    const DuplicateGroup* current = currentGroup(group);
    const DuplicateCopy* own = current == nullptr ? nullptr : copyAt(copy.path, *current);
    if (own == nullptr) return false;
    const PathSet staged = queue.staged();
    const DuplicateCopy* kept = keptCopy(*current);
    if (!isInState<copystate::Extra>(stateOf(*own, kept, staged))) return false;
    if (covers(staged, kept->path) && !queue.unstage(kept->path)) return false;
    return queue.stage(own->path, StayingCopies(*current, staged, gone_).freedBy(*own));
}

bool DuplicatesModel::unstage(const DuplicateCopy& copy, CleanupQueue& queue) {
    return queue.unstage(copy.path);
}

bool DuplicatesModel::keep(const DuplicateCopy& copy, const DuplicateGroup& group,
                           CleanupQueue& queue) {
    const DuplicateGroup* current = currentGroup(group);
    if (current == nullptr || copyAt(copy.path, *current) == nullptr) return false;
    if (covers(gone_, copy.path) || isLeftByCleanup(copy)) return false;
    if (covers(queue.staged(), copy.path) && !queue.unstage(copy.path)) return false;
    keptByHand_[current->digest] = copy.path;
    settle(*current, queue.staged(), queue);
    return true;
}

std::size_t DuplicatesModel::stageEveryExtra(CleanupQueue& queue) {
    if (!report_) return 0;
    const PathSet staged = queue.staged();
    std::size_t count = 0;
    for (const DuplicateGroup& group : report_->groups) {
        const DuplicateCopy* kept = keptCopy(group);
        if (kept == nullptr) continue;
        if (covers(staged, kept->path) && !queue.unstage(kept->path)) continue;
        StayingCopies staying(group, staged, gone_);
        for (const DuplicateCopy& copy : group.copies) {
            if (!isInState<copystate::Extra>(stateOf(copy, kept, staged))) continue;
            if (!queue.stage(copy.path, staying.freedBy(copy))) continue;
            staying.leave(copy);
            ++count;
        }
    }
    return count;
}

void DuplicatesModel::removed(const PathSet& paths, CleanupQueue& queue) {
    gone_.insert(paths.begin(), paths.end());
    queueChanged(queue);
}

void DuplicatesModel::queueChanged(CleanupQueue& queue) const {
    if (!report_) return;
    const PathSet staged = queue.staged();
    if (staged.empty()) return;
    for (const DuplicateGroup& group : report_->groups) settle(group, staged, queue);
}

void DuplicatesModel::settle(const DuplicateGroup& group, const PathSet& staged,
                             CleanupQueue& queue) const {
    const DuplicateCopy* kept = keptCopy(group);
    if (kept == nullptr) return;
    for (const DuplicateCopy& copy : group.copies) {
        // Removing it would free nothing any more, since the kept copy lies on the same blocks; or
        // it was staged because of another copy than the one that is kept now. What is held was
        // staged by another room, for reasons of its own.
        const bool mayNotGo = copy.storage == kept->storage ||
                              (!copy.heldBecause && !whyKeptIsNoReason(*kept, copy).empty());
        if (&copy != kept && mayNotGo && staged.contains(copy.path)) {
            static_cast<void>(queue.unstage(copy.path));
        }
    }
    if (!covers(staged, kept->path) || queue.unstage(kept->path)) return;
    const auto isThere = [&](const DuplicateCopy& copy) {
        return !covers(gone_, copy.path) && !isLeftByCleanup(copy);
    };
    const bool anotherStays = std::ranges::any_of(group.copies, [&](const DuplicateCopy& copy) {
        return isThere(copy) && !covers(staged, copy.path);
    });
    if (anotherStays) return;
    for (const DuplicateCopy& copy : group.copies) {
        if (isThere(copy) && queue.unstage(copy.path)) return;
    }
}

} // namespace tidyro

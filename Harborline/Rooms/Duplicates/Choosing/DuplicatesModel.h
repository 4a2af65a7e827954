#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "Base/FileURL.h"
#include "Base/Timestamp.h"
#include "Rooms/Duplicates/Choosing/CleanupQueue.h"
#include "Rooms/Duplicates/Choosing/CopyState.h"
#include "Rooms/Duplicates/Choosing/KeepRule.h"
#include "Rooms/Duplicates/Search/DuplicateProgress.h"
#include "Rooms/Duplicates/Search/DuplicateReport.h"
#include "Rooms/Duplicates/Search/DuplicateSearchOptions.h"

namespace tidyro {

/// The state of the duplicates room: how far its search is, which copy of each set stays, and which
/// copies wait to be removed.
///
///     const auto search = model.searchBegan();
///     const auto report = DuplicateEngine().run(model.options(home)); // on another thread
///     model.finished(search, *report, queue);
///     model.stageEveryExtra(queue);
///
/// It belongs to one thread and starts none. Whoever runs a search tells it what became of that.
///
/// One copy of each set of copies is kept, and a kept copy is never in the cleanup queue. An
/// operation that may change which copy is kept is therefore handed the queue, and takes the newly
/// kept copy out. If the queue does not give that back, another copy of the set leaves the queue in
/// its place. So no set is ever removed whole, as long as the model is told of everything that
/// happens to the queue and to the files.
class DuplicatesModel {
  public:
    struct Failed {
        std::string message; ///< a sentence for people
        bool operator==(const Failed&) const = default;
    };
    struct Idle {
        bool operator==(const Idle&) const = default;
    };
    struct Searching {
        bool operator==(const Searching&) const = default;
    };
    struct Finished {
        bool operator==(const Finished&) const = default;
    };
    using Phase = std::variant<Failed, Idle, Searching, Finished>;

    enum class Screen : std::uint8_t { start, waitingForScan, searching, results, nothingFound };

    /// What the person set. A change holds from the next search on.
    struct Settings {
        std::vector<FileURL> folders = {}; ///< to search; none: the home
        std::uint64_t minimumBytes = 1'000'000;
        bool includeSystemVolumes = false;
        std::vector<FileURL> systemVolumeRoots = DuplicateSearchOptions::macOSVolumes();
        /// Whether a search begins by itself when a scan of the disk has finished. Off by default,
        /// since a search reads much.
        bool followsScans = false;
    };
    Settings settings = {};

    // The search

    [[nodiscard]] const Phase& phase() const { return phase_; }
    [[nodiscard]] Screen screen() const;
    /// Of the search under way; none before its first report.
    [[nodiscard]] const std::optional<DuplicateProgress>& progress() const { return progress_; }
    /// Of the search that finished last, until the next one begins.
    [[nodiscard]] const std::optional<DuplicateReport>& report() const { return report_; }
    /// Whether the person ended the last search early.
    [[nodiscard]] bool wasStopped() const { return wasStopped_; }

    /// What the next search that the person asks for shall look at.
    [[nodiscard]] DuplicateSearchOptions options(const FileURL& home) const;

    /// Tells one search from the next. What an earlier search reports late is ignored.
    enum class SearchNumber : std::uint64_t {};
    /// Forgets the report, the choices by hand and what is gone, since the new search sees the disk
    /// as it is.
    [[nodiscard]] SearchNumber searchBegan();
    void progressed(SearchNumber search, DuplicateProgress progress);
    void finished(SearchNumber search, DuplicateReport report, CleanupQueue& queue);
    void failedWith(SearchNumber search, std::string message);
    void stopped(SearchNumber search); ///< by the person

    // Searches that follow the scans of the disk

    struct AutoRun {
        FileURL root;
        Timestamp scanFinishedAt;
        bool includeSystemVolumes;
        bool operator==(const AutoRun&) const = default;
    };

    void scanBegan() { isScanUnderWay_ = true; }
    void scanEndedWithoutResult() { isScanUnderWay_ = false; }
    /// The search that shall begin now. Each scan and choice of volumes gets one search. None while
    /// another search is under way, and while there are choices by hand, which a search forgets.
    /// May be called again for a scan that finished earlier.
    [[nodiscard]] std::optional<AutoRun> scanFinished(const FileURL& root, Timestamp finishedAt);
    [[nodiscard]] DuplicateSearchOptions options(const FileURL& home, const AutoRun& run) const;

    // The copy that is kept

    [[nodiscard]] KeepRule keepRule() const { return keepRule_; }
    void setKeepRule(KeepRule rule, CleanupQueue& queue);
    [[nodiscard]] const std::optional<FileURL>& preferredFolder() const { return preferredFolder_; }
    void setPreferredFolder(std::optional<FileURL> folder, CleanupQueue& queue);
    /// Paths by the digest of their set.
    [[nodiscard]] const std::map<std::string, std::string>& keptByHand() const {
        return keptByHand_;
    }
    /// What was removed since the last search began.
    [[nodiscard]] const PathSet& gone() const { return gone_; }

    /// The copy that stands best, and of several such the one that the rule prefers; where it
    /// prefers none, the earlier one. Null for no copies. What a cleanup that was cut short left is
    /// none of them.
    [[nodiscard]] static const DuplicateCopy* pick(std::span<const DuplicateCopy> copies,
                                                   KeepRule rule);
    /// The copy chosen by hand while it is there, otherwise the one that stands best. Of several
    /// such, one whose name is not a copy's stays, then one that has to stay anyway because it has
    /// several names, then the one that the rule prefers. Null when all are gone. The pointer, like
    /// all that follow, leads into the group.
    [[nodiscard]] const DuplicateCopy* keptCopy(const DuplicateGroup& group) const;
    /// A copy is held, whatever may be said of itself, while the kept copy is no reason for it to
    /// go. `staged`: what the cleanup queue holds.
    [[nodiscard]] CopyState state(const DuplicateCopy& copy, const DuplicateGroup& group,
                                  const PathSet& staged) const;
    /// The states of all copies, in the copies' order. Cheaper than asking for each, since it finds
    /// out only once which copy is kept.
    [[nodiscard]] std::vector<CopyState> states(const DuplicateGroup& group,
                                                const PathSet& staged) const;
    /// The copies that can be staged, and those that are.
    [[nodiscard]] std::vector<const DuplicateCopy*> extras(const DuplicateGroup& group) const;
    /// What removing the staged copies would free at least. It leaves out blocks that they share
    /// with a copy that is held or not staged.
    [[nodiscard]] std::uint64_t freedBytes(const DuplicateGroup& group,
                                           const PathSet& staged) const;

    // The cleanup queue. All of these refuse a group of an earlier report.

    /// False when the copy is no extra, when the queue refuses it, and when the kept copy is in the
    /// queue and cannot be taken out.
    bool stage(const DuplicateCopy& copy, const DuplicateGroup& group, CleanupQueue& queue);
    bool unstage(const DuplicateCopy& copy, CleanupQueue& queue);
    /// Chooses the copy to keep by hand. A staged copy leaves the queue first. False when the copy
    /// is gone or cannot leave.
    bool keep(const DuplicateCopy& copy, const DuplicateGroup& group, CleanupQueue& queue);
    /// Returns how many copies it put in.
    std::size_t stageEveryExtra(CleanupQueue& queue);
    /// To be called when files or whole folders are gone, whoever removed them.
    void removed(const PathSet& paths, CleanupQueue& queue);
    /// To be called when another room put something in.
    void queueChanged(CleanupQueue& queue) const;

  private:
    [[nodiscard]] bool isUnderWay(SearchNumber search) const;
    [[nodiscard]] const DuplicateGroup* currentGroup(const DuplicateGroup& group) const;
    [[nodiscard]] CopyState stateOf(const DuplicateCopy& copy, const DuplicateCopy* kept,
                                    const PathSet& staged) const;
    void settle(const DuplicateGroup& group, const PathSet& staged, CleanupQueue& queue) const;

    Phase phase_ = Idle{};
    SearchNumber search_{0};
    std::optional<DuplicateProgress> progress_;
    std::optional<DuplicateReport> report_;
    bool wasStopped_ = false;
    bool isScanUnderWay_ = false;
    std::optional<AutoRun> lastAutoRun_;
    KeepRule keepRule_ = KeepRule::oldest;
    std::optional<FileURL> preferredFolder_;
    std::map<std::string, std::string> keptByHand_;
    PathSet gone_;
};

} // namespace tidyro

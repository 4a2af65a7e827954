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
#include "Rooms/Duplicates/Choosing/PathSet.h"
#include "Rooms/Duplicates/Report/DuplicateReport.h"
#include "Rooms/Duplicates/Search/DuplicateProgress.h"
#include "Rooms/Duplicates/Search/DuplicateSearchOptions.h"

namespace tidyro {

/// The duplicates room: how far its search is, which copy of each group stays, and which ones wait
/// to be removed.
///
///     const auto search = model.searchBegan();
///     // elsewhere, and back on this thread:
///     const auto report = DuplicateEngine().run(model.options(home));
///     model.finished(search, *report, queue);
///     model.stageEveryExtra(queue);
///
/// It belongs to one thread and runs none: the owner of a search tells it what became of it.
///
/// One copy of each group is kept, and what is kept is never in the cleanup queue: whatever makes
/// another copy the kept one takes that copy out, and so is handed the queue. Where the queue does
/// not give it back, another copy of the group leaves the queue in its place. So no group is ever
/// removed whole as long as the model is told of what happens to the queue and to the files.
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

    /// What the person set. A search under way goes on with what it began with.
    struct Settings {
        std::vector<FileURL> folders = {}; ///< to search; none: the home
        std::uint64_t minimumBytes = 1'000'000;
        bool includeSystemVolumes = false;
        std::vector<FileURL> systemVolumeRoots = DuplicateSearchOptions::macOSVolumes();
        /// Whether a search begins by itself when a scan of the disk has finished. Off: it reads
        /// much, and is to be asked for.
        bool followsScans = false;
    };
    Settings settings = {};

    // The search

    [[nodiscard]] const Phase& phase() const { return phase_; }
    [[nodiscard]] Screen screen() const;
    /// Of the search under way; none before its first word.
    [[nodiscard]] const std::optional<DuplicateProgress>& progress() const { return progress_; }
    /// Of the search that finished last, until the next one begins.
    [[nodiscard]] const std::optional<DuplicateReport>& report() const { return report_; }
    /// Whether the person ended the last search early.
    [[nodiscard]] bool wasStopped() const { return wasStopped_; }

    /// For the next search that the person asks for.
    [[nodiscard]] DuplicateSearchOptions options(const FileURL& home) const;

    /// Tells one search from the next: what an earlier one still has to say is not listened to.
    enum class SearchNumber : std::uint64_t {};
    /// The report goes, and with it the choices by hand and the record of what is gone: the new
    /// search sees the disk as it is.
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
    [[nodiscard]] const std::optional<AutoRun>& lastAutoRun() const { return lastAutoRun_; }

    void scanBegan() { isScanUnderWay_ = true; }
    void scanEndedWithoutResult() { isScanUnderWay_ = false; }
    /// The search that shall begin now, once for each scan and choice of volumes; none while
    /// another one is under way, or while there are choices by hand that it would sweep away. May
    /// be asked again of a scan that finished earlier.
    [[nodiscard]] std::optional<AutoRun> scanFinished(const FileURL& root, Timestamp finishedAt);
    [[nodiscard]] DuplicateSearchOptions options(const FileURL& home, const AutoRun& run) const;

    // The copy that is kept

    [[nodiscard]] KeepRule keepRule() const { return keepRule_; }
    void setKeepRule(KeepRule rule, CleanupQueue& queue);
    [[nodiscard]] const std::optional<FileURL>& preferredFolder() const { return preferredFolder_; }
    void setPreferredFolder(std::optional<FileURL> folder, CleanupQueue& queue);
    /// Paths by the digest of their group.
    [[nodiscard]] const std::map<std::string, std::string>& keptByHand() const {
        return keptByHand_;
    }
    /// What was removed since the last search began.
    [[nodiscard]] const PathSet& gone() const { return gone_; }

    /// The copy that the rule prefers, the earlier one where it prefers none; null for no copies.
    [[nodiscard]] static const DuplicateCopy* pick(std::span<const DuplicateCopy> copies,
                                                   KeepRule rule);
    /// The one chosen by hand while it is there, otherwise the rule's; null when all are gone. It
    /// points into the group, as all of these do.
    [[nodiscard]] const DuplicateCopy* keptCopy(const DuplicateGroup& of) const;
    /// `staged`: what the cleanup queue holds.
    [[nodiscard]] CopyState state(const DuplicateCopy& of, const DuplicateGroup& in,
                                  const PathSet& staged) const;
    /// Of every copy, in their order. For a whole group this is the one to ask: which copy is kept
    /// is found out once.
    [[nodiscard]] std::vector<CopyState> states(const DuplicateGroup& of,
                                                const PathSet& staged) const;
    /// The copies that can be staged, and those that are.
    [[nodiscard]] std::vector<const DuplicateCopy*> extras(const DuplicateGroup& of) const;
    /// What removing the staged copies would free at least: blocks that a copy outside the queue,
    /// or one that is held, lies on as well stay.
    [[nodiscard]] std::uint64_t freedBytes(const DuplicateGroup& of, const PathSet& staged) const;

    // The cleanup queue. Groups of an earlier report are refused.

    /// False for anything but an extra, when the queue refuses it, and when the kept copy is in the
    /// queue and cannot be taken out.
    bool stage(const DuplicateCopy& copy, const DuplicateGroup& of, CleanupQueue& queue);
    bool unstage(const DuplicateCopy& copy, CleanupQueue& queue);
    /// Chooses by hand; a staged copy leaves the queue first. False for one that is gone or cannot
    /// leave.
    bool keep(const DuplicateCopy& copy, const DuplicateGroup& of, CleanupQueue& queue);
    /// How many copies it put in.
    std::size_t stageEveryExtra(CleanupQueue& queue);
    /// Files and whole folders that are not there any more, whoever removed them.
    void removed(const PathSet& paths, CleanupQueue& queue);
    /// Another room put something in.
    void queueChanged(CleanupQueue& queue) const;

  private:
    [[nodiscard]] bool isUnderWay(SearchNumber search) const;
    [[nodiscard]] const DuplicateGroup* current(const DuplicateGroup& group) const;
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

#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <expected>
#include <functional>
#include <limits>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Base/SystemError.h"
#include "FolderWalk/FolderRoute.h"
#include "FolderWalk/OpenFolders.h"
#include "FolderWalk/ReadingTurns.h"
#include "FolderWalk/WalkProgress.h"
#include "FolderWalk/WalkThreads.h"
#include "Platform/Folders/FolderReading.h"
#include "StorageEngine/DiskTree/DiskTreeBatch.h"
#include "StorageEngine/DiskTree/DiskTreeScanner.h"

namespace tidyro {

/// One scan: its threads, its stack of folders to read and its growing tree.
///
/// Workers take the folder pushed last, so the walk goes depth-first and the stack stays small.
/// The slow part, reading a folder, runs without the lock into the worker's own batch; under the
/// one lock the batch is appended and the next folder taken. Each pushed folder wakes one worker.
/// Workers look now and then whether reading made them wait; each time it did, a stand-in is taken
/// on that works like them until the end.
class DiskTreeWalk {
  public:
    struct Options {
        FileURL rootURL;
        platform::FolderDescriptor root; ///< open at `rootURL`
        std::size_t workerCount;         ///< at least 1
        std::size_t standInCount = 0;    ///< how many may be taken on
        double progressInterval;         ///< seconds
        std::set<std::string> skipping = {};
        std::set<std::string> skippingContentsOf = {};
        DiskTreeScanner::ProgressHandler progressHandler = nullptr;
        std::function<void()> afterBulkRead = nullptr;
        std::uint32_t maximumDepth = std::numeric_limits<std::uint32_t>::max();
    };

    explicit DiskTreeWalk(Options options);

    /// Reads everything and returns the tree. Once only.
    [[nodiscard]] std::expected<DiskTree, DiskTreeScanner::ScanError> run();

    /// From any thread, any number of times: `run` ends soon with a CancellationError.
    void cancel();

  private:
    using Clock = std::chrono::steady_clock;

    /// A folder that waits to be read.
    struct Job {
        NodeNumber index;
        OpenFolders::Slot from; ///< the open folder it is reached from
        std::uint32_t depth;
        std::optional<ContentKind> context;
        const PlaceTree::Branch* places;
    };

    enum class Outcome { read, denied, mountPoint, vanished, unread, postponed };

    /// What a worker learns of one folder, gathered without the lock.
    struct Reading {
        ReadingTurns::Turn turn;
        Job job;
        const platform::FolderDescriptor* from; ///< the open folder of `job.from`
        FolderRoute route;                      ///< from there
        platform::FolderDescriptor folder;
        std::optional<platform::FolderFacts> facts;
        Outcome outcome;
        SystemError error;
        DiskTreeBatch batch;
    };

    void work();
    // Under the lock.
    [[nodiscard]] bool isWorthWaking(const Reading& last) const;
    void takeJob(Reading& reading);
    void commit(Reading& reading, std::vector<platform::FolderDescriptor>& closing);
    void pushDescents(Reading& reading, NodeNumber firstChild);
    [[nodiscard]] bool fits(const DiskTreeBatch& batch) const;
    [[nodiscard]] DiskTreeScanner::Progress progressAt(NodeNumber folder) const;
    void fail(SystemError error);
    // Without the lock.
    void read(Reading& reading, platform::FolderLister& lister);
    void open(Reading& reading);
    void close(Reading& reading, Outcome outcome, SystemError error);

    void appendRoot();
    [[nodiscard]] std::string pathSoFar(NodeNumber node) const;
    [[nodiscard]] std::string_view nameSoFar(NodeNumber node) const;
    [[nodiscard]] double elapsed() const;
    [[nodiscard]] std::expected<DiskTree, DiskTreeScanner::ScanError> finish();

    // Set once, read by all.
    FileURL rootURL_;
    WalkProgress<DiskTreeScanner::Progress> reports_;
    std::function<void()> afterBulkRead_;
    std::uint32_t maximumDepth_;
    PlaceTree places_;
    Clock::time_point startedAt_;
    std::uint64_t rootDevice_ = 0;
    bool tellsClones_ = false;
    std::atomic<bool> cancelled_ = false;

    // Under the lock.
    std::mutex mutex_;
    std::condition_variable ready_;
    std::vector<Job> jobs_;
    ReadingTurns turns_;
    std::optional<SystemError> failure_;
    OpenFolders openFolders_;
    SeenSet seenHardLinks_;
    SeenSet seenClones_;
    DiskTreeColumns columns_;
    std::vector<NodeNumber> vanished_;
    DiskTreeScanner::Progress progress_;
    WalkThreads threads_;
};

} // namespace tidyro

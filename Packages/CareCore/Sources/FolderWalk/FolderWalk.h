#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Base/SystemError.h"
#include "FolderWalk/FolderRoute.h"
#include "FolderWalk/OpenFolders.h"
#include "FolderWalk/PlaceTree.h"
#include "FolderWalk/ReadingTurns.h"
#include "FolderWalk/WalkThreads.h"
#include "Platform/Folders/FolderReading.h"

namespace tidyro {

/// Reads every folder below a root with several threads. A disk tree and an index of names are
/// filled by it; each is a Target and brings a Reader for every thread.
///
///     FolderWalk walk({.root = std::move(root), .rootPath = "/home/ada", .threadName = "scan",
///                      .workerCount = 4}, target);
///     if (const auto read = walk.run(); !read) return tell(read.error());
///
/// A worker takes the folder that was pushed last, so the walk goes depth-first and few folders
/// wait. The slow part, reading a folder, runs without the lock into the worker's own Reader. Under
/// the one lock the Reader hands over what it gathered, and the worker takes the next folder. Now
/// and then a worker looks whether it had to wait for the disk. When it had, one more thread joins.
///
/// Links are not followed and other volumes are not entered. A root that cannot be read ends the
/// walk; any other folder that cannot be read only has its outcome told to the Reader.
class FolderWalk {
  public:
    /// The target's number of a folder; the root has 0.
    using Number = OpenFolders::Number;

    enum class Outcome : std::uint8_t {
        read,
        closed,     ///< the system does not let us read it
        mountPoint, ///< another volume is mounted there
        vanished,   ///< it is gone, or no folder any more
        unread,     ///< the walk was cancelled on the way
    };

    /// The folder that a Reader is to read. Good until `read` returns.
    struct Visit {
        const platform::FolderDescriptor& folder;
        const PlaceTree::Branch* places; ///< places in it or further down; none almost everywhere
        bool mayDescend;                 ///< false at the walk's greatest depth
        /// The folder's own, as they were before it is read, where they could be had.
        const std::optional<platform::FolderFacts>& facts;
    };
    /// A folder among the entries just gathered that is to be read as well.
    struct Descent {
        Number slot; ///< its place among those entries, from 0
        const PlaceTree::Branch* places;
    };
    /// What a Reader handed over. The span is good until its next `read`.
    struct Handover {
        Number first = 0; ///< the target's number of the first entry
        std::span<const Descent> descents = {};
    };

    /// Gathers one folder after another for one thread.
    class Reader {
      public:
        virtual ~Reader() = default;
        /// Under the lock: this folder comes next. What its entries inherit is to be noted here.
        virtual void begin(Number folder) = 0;
        /// Without the lock: gathers the entries. The error's code is 0 when all of them were read.
        [[nodiscard]] virtual SystemError read(const Visit& visit) = 0;
        /// Under the lock: hands what was gathered over to the target. `facts` are the folder's
        /// own, where they could be had. None when the target has no room for it.
        [[nodiscard]] virtual std::optional<Handover>
        finish(Number folder, Outcome outcome,
               const std::optional<platform::FolderFacts>& facts) = 0;
    };

    /// What is filled. The walk calls all but `makeReader` under its lock.
    class Target {
      public:
        virtual ~Target() = default;
        /// Each thread asks for its own. Reading ends with ECANCELED once `cancelled` is true.
        [[nodiscard]] virtual std::unique_ptr<Reader>
        makeReader(const std::atomic<bool>& cancelled) = 0;
        [[nodiscard]] virtual Number parent(Number folder) const = 0;
        [[nodiscard]] virtual std::string_view name(Number folder) const = 0;
        [[nodiscard]] virtual bool isReportDue() const = 0;
        /// Reports progress; the folder was read last. May let go of the lock meanwhile.
        virtual void report(std::unique_lock<std::mutex>& lock, Number folder) = 0;
    };

    struct Options {
        platform::FolderDescriptor root; ///< open at `rootPath`
        std::string rootPath;
        std::string threadName;       ///< for debuggers
        std::size_t workerCount;      ///< at least 1
        std::size_t standInCount = 0; ///< how many threads may join once workers wait for the disk
        /// Absolute paths. These and what is in them are told to the readers as skipped, and those
        /// of the second set as folders that are not to be entered.
        std::set<std::string> skipping = {};
        std::set<std::string> skippingContentsOf = {};
        std::uint32_t maxDepth = std::numeric_limits<std::uint32_t>::max();
    };
    /// The target outlives the walk, and holds its root by the time of `run`.
    FolderWalk(Options options, Target& target);

    /// Reads everything. Once only. ECANCELED after `cancel`, EOVERFLOW when the target has no
    /// room, otherwise why the root could not be read.
    [[nodiscard]] std::expected<void, SystemError> run();

    /// From any thread, any number of times: `run` ends soon.
    void cancel();

  private:
    /// A folder that waits to be read.
    struct Job {
        Number folder;
        OpenFolders::Slot from; ///< the open folder it is reached from
        std::uint32_t depth;
        const PlaceTree::Branch* places;
    };
    /// What a worker learns of one folder, gathered without the lock.
    struct Reading {
        std::unique_ptr<Reader> reader;
        ReadingTurns::Turn turn = {};
        Job job = {};
        const platform::FolderDescriptor* from = nullptr; ///< the open folder of `job.from`
        FolderRoute route = {};                           ///< from there
        platform::FolderDescriptor folder = {};
        std::optional<platform::FolderFacts> facts = std::nullopt;
        Outcome outcome = Outcome::read;
        SystemError error{0};
    };
    using Closing = std::vector<platform::FolderDescriptor>;

    void work();
    // Under the lock.
    [[nodiscard]] bool isOver() const { return cancelled_ || failure_ || jobs_.empty(); }
    [[nodiscard]] bool isWorthWaking(const Reading& last) const;
    void takeJob(Reading& reading);
    void commit(Reading& reading, Closing& closing);
    void pushDescents(Reading& reading, const Handover& handover);
    void fail(SystemError error);
    // Without the lock.
    void read(Reading& reading) const;

    // Set once, read by all.
    Target& target_;
    std::uint32_t maxDepth_;
    PlaceTree places_;
    WalkedMounts mounts_;
    std::atomic<bool> cancelled_ = false;

    // Under the lock.
    std::mutex mutex_;
    std::condition_variable ready_;
    std::vector<Job> jobs_;
    ReadingTurns turns_;
    std::optional<SystemError> failure_;
    OpenFolders openFolders_;
    WalkThreads threads_;
};

} // namespace tidyro

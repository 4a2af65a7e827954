#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "FolderWalk/FolderRoute.h"
#include "FolderWalk/OpenFolders.h"
#include "FolderWalk/PlaceTree.h"
#include "FolderWalk/ReadingTurns.h"
#include "FolderWalk/WalkProgress.h"
#include "FolderWalk/WalkThreads.h"
#include "Platform/Folders/FolderReading.h"
#include "Rooms/Find/Services/Building/FindDirectoryReader.h"
#include "Rooms/Find/Services/Building/FindIndexBlock.h"
#include "Rooms/Find/Services/Building/FindIndexBuilder.h"

namespace tidyro {

/// One building of an index: its threads, its stack of folders to read and its growing storage.
///
/// It goes as the disk scanner does: workers take the folder that was pushed last, read it without
/// the lock and append it under the one lock, where they take the next. Each pushed folder wakes
/// one worker.
class FindIndexWalk {
  public:
    struct Options {
        FindIndexBuilder::Options asked;
        platform::FolderDescriptor root; ///< open at its root path
        std::size_t workerCount;         ///< at least 1
        std::size_t standInCount = 0;    ///< how many threads may join once workers wait
        double progressInterval = 0.1;   ///< seconds
        FindIndexBuilder::ProgressHandler progress = nullptr;
        std::function<void()> afterBulkRead = nullptr; ///< for tests
    };

    explicit FindIndexWalk(Options options);

    /// Reads everything. Once only.
    [[nodiscard]] std::expected<FindIndexStorage, FindIndexBuilder::Error> run();

    /// From any thread, any number of times: `run` ends soon with a CancellationError.
    void cancel();

  private:
    using Entry = FindIndexStorage::Entry;

    /// A folder that waits to be read.
    struct Job {
        Entry folder;
        OpenFolders::Slot from; ///< the open folder it is reached from
        const PlaceTree::Branch* places;
    };
    /// A folder in a block that is to be read.
    struct Descent {
        std::uint32_t slot; ///< among the block's entries
        const PlaceTree::Branch* places;
    };
    enum class Outcome : std::uint8_t { read, denied, mountPoint, vanished, unread, postponed };

    /// What a worker learns of one folder, gathered without the lock.
    struct Reading {
        ReadingTurns::Turn turn;
        Job job;
        const platform::FolderDescriptor* from; ///< the open folder of `job.from`
        FolderRoute route;
        FindIndexBlock::Folder inherited;
        platform::FolderDescriptor folder;
        std::optional<std::uint32_t> modified;
        Outcome outcome;
        SystemError error;
        FindDirectoryListing listing; ///< a part of it
        FindDirectoryListing kept;    ///< of that part, without what is skipped
        FindIndexBlock block;
        std::vector<Descent> descents;
        std::vector<std::uint32_t> leftOut; ///< slots of folders that are listed, but not entered
        std::int64_t skipped;               ///< not even listed
    };

    void work();
    // Under the lock.
    [[nodiscard]] bool isWorthWaking(const Reading& last) const;
    void takeJob(Reading& reading);
    void commit(Reading& reading, std::vector<platform::FolderDescriptor>& closing);
    void append(Reading& reading);
    void markUnread(Entry folder);
    void pushDescents(Reading& reading, Entry first);
    void fail(FindIndexBuilder::Error error);
    [[nodiscard]] FindIndexBuilder::Progress progressAt(Entry folder) const;
    [[nodiscard]] bool isOver() const { return cancelled_ || failure_ || jobs_.empty(); }
    // Without the lock.
    void read(Reading& reading, FindDirectoryReader& reader);
    void open(Reading& reading);
    void take(Reading& reading, const platform::FolderDescriptor& folder);
    void leaveOutSkipped(Reading& reading) const;
    void close(Reading& reading, SystemError error);

    [[nodiscard]] std::expected<FindIndexStorage, FindIndexBuilder::Error> finish();

    // Set once, read by all.
    WalkProgress<FindIndexBuilder::Progress> reports_;
    std::function<void()> afterBulkRead_;
    PlaceTree places_;
    std::uint64_t rootDevice_ = 0;
    std::atomic<bool> cancelled_ = false;

    // Under the lock.
    std::mutex indexLock_;
    std::condition_variable ready_;
    std::vector<Job> jobs_;
    ReadingTurns turns_;
    std::optional<FindIndexBuilder::Error> failure_;
    OpenFolders openFolders_;
    FindIndexStorage storage_;
    std::vector<Entry> vanished_;
    FindIndexBuilder::Progress progress_;
    WalkThreads threads_;
};

} // namespace tidyro

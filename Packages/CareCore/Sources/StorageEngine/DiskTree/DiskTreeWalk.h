#pragma once

#include <atomic>
#include <chrono>
#include <expected>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "FolderWalk/FolderWalk.h"
#include "FolderWalk/WalkProgress.h"
#include "Platform/Folders/FolderReading.h"
#include "StorageEngine/DiskTree/DiskTreeBatch.h"
#include "StorageEngine/DiskTree/DiskTreeScanner.h"

namespace tidyro {

/// One scan: the growing tree, which a FolderWalk fills.
class DiskTreeWalk : private FolderWalk::Target {
  public:
    struct Options {
        FileURL rootURL;
        FolderWalk::Options walk; ///< of the folder at `rootURL`
        std::string carryingLast; ///< as the scanner's
        double progressInterval;  ///< seconds
        DiskTreeScanner::ProgressHandler progressHandler = nullptr;
        std::function<void()> afterBulkRead = nullptr;
    };

    explicit DiskTreeWalk(Options options);

    /// Reads everything and returns the tree. Once only.
    [[nodiscard]] std::expected<DiskTree, DiskTreeScanner::ScanError> run();

    /// From any thread, any number of times: `run` ends soon with a CancellationError.
    void cancel() { walk_.cancel(); }

  private:
    using Clock = std::chrono::steady_clock;
    using Number = FolderWalk::Number;
    class Reader;

    std::unique_ptr<FolderWalk::Reader> makeReader(const std::atomic<bool>& cancelled) override;
    Number parent(Number folder) const override;
    std::string_view name(Number folder) const override;
    bool isReportDue() const override { return reports_.isDue(); }
    void report(std::unique_lock<std::mutex>& lock, Number folder) override;

    // Under the walk's lock.
    [[nodiscard]] bool hasRoomFor(const DiskTreeBatch& batch) const;
    void append(DiskTreeBatch& batch, NodeNumber folder);

    void appendRoot();
    [[nodiscard]] std::string pathSoFar(Number folder) const;
    [[nodiscard]] double elapsed() const;

    // Set once, read by all.
    FileURL rootURL_;
    std::function<void()> afterBulkRead_;
    Clock::time_point startedAt_;
    bool sharesBlocks_; ///< files on the root's volume may be clones

    // Under the walk's lock.
    WalkProgress<DiskTreeScanner::Progress> reports_;
    SharedFiles sharedFiles_;
    DiskTreeColumns columns_;
    std::vector<NodeNumber> vanished_;
    DiskTreeScanner::Progress progress_;

    FolderWalk walk_;
};

} // namespace tidyro

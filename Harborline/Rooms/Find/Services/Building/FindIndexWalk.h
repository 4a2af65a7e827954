#pragma once

#include <atomic>
#include <cstddef>
#include <expected>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <vector>

#include "Base/Timestamp.h"
#include "FolderWalk/FolderWalk.h"
#include "FolderWalk/WalkProgress.h"
#include "Platform/Folders/FolderReading.h"
#include "Rooms/Find/Services/Building/FindIndexBuilder.h"

namespace tidyro {

/// One building of an index: the growing storage, which a FolderWalk fills.
class FindIndexWalk : private FolderWalk::Target {
  public:
    struct Options {
        FolderWalk::Options walk;
        std::optional<bool> marksSystemFolders = std::nullopt;
        double progressInterval = 0.1; ///< seconds
        FindIndexBuilder::ProgressHandler progress = nullptr;
        std::function<void()> afterBulkRead = nullptr; ///< for tests
    };

    explicit FindIndexWalk(Options options);

    /// Reads everything. Once only.
    [[nodiscard]] std::expected<FindIndexStorage, FindIndexBuilder::Error> run();

    /// From any thread, any number of times: `run` ends soon with a CancellationError.
    void cancel() { walk_.cancel(); }

  private:
    using Entry = FindIndexStorage::Entry;
    class Reader;

    std::unique_ptr<FolderWalk::Reader> makeReader(const std::atomic<bool>& cancelled) override;
    Entry parent(Entry folder) const override { return storage_.parent[folder]; }
    std::string_view name(Entry folder) const override { return storage_.name(folder); }
    bool isReportDue() const override { return reports_.isDue(); }
    void report(std::unique_lock<std::mutex>& lock, Entry folder) override;

    [[nodiscard]] FindIndexBuilder::Progress progressAt(Entry folder) const;

    std::function<void()> afterBulkRead_; ///< set once, read by all
    const std::int64_t begunAt_ = Timestamp::now().nanosecondsSince1970();

    // Under the walk's lock.
    WalkProgress<FindIndexBuilder::Progress> reports_;
    FindIndexStorage storage_;
    std::vector<Entry> vanished_;
    FindIndexBuilder::Progress progress_;

    FolderWalk walk_;
};

} // namespace tidyro

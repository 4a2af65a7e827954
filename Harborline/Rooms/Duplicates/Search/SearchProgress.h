#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

#include "Rooms/Duplicates/Search/DuplicateProgress.h"

namespace tidyro {

/// Counts what the threads of a search have done. Whichever thread counts when a report is due
/// calls the handler; no two threads call it at once.
class SearchProgress {
  public:
    using Handler = std::function<void(const DuplicateProgress&)>;

    /// `interval`: seconds between two reports.
    SearchProgress(Handler handler, double interval)
        : handler_(std::move(handler)), interval_(interval) {}

    /// Called while no other thread counts.
    void begin(DuplicateProgress::Phase phase, std::uint64_t total, std::uint64_t bytesTotal);
    /// `path` is asked for only when a report is due.
    void add(std::uint64_t files, std::uint64_t bytes, const std::function<std::string()>& path);

  private:
    using Clock = std::chrono::steady_clock;

    void tell(const std::function<std::string()>& path);

    const Handler handler_;
    const double interval_;
    DuplicateProgress::Phase phase_ = DuplicateProgress::Phase::listing;
    std::uint64_t total_ = 0;
    std::uint64_t bytesTotal_ = 0;
    std::atomic<std::uint64_t> done_ = 0;
    std::atomic<std::uint64_t> bytesDone_ = 0;
    std::mutex telling_;
    Clock::time_point toldAt_{}; ///< guarded
};

} // namespace tidyro

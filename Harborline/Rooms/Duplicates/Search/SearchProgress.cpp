#include "Rooms/Duplicates/Search/SearchProgress.h"

namespace tidyro {

void SearchProgress::begin(DuplicateProgress::Phase phase, std::uint64_t total,
                           std::uint64_t bytesTotal) {
    phase_ = phase;
    total_ = total;
    bytesTotal_ = bytesTotal;
    done_ = 0;
    bytesDone_ = 0;
    toldAt_ = {};
    tell([] { return std::string(); });
}

void SearchProgress::add(std::uint64_t files, std::uint64_t bytes,
                         const std::function<std::string()>& path) {
    done_ += files;
    bytesDone_ += bytes;
    tell(path);
}

void SearchProgress::tell(const std::function<std::string()>& path) {
    if (!handler_) return;
    const std::unique_lock lock(telling_, std::try_to_lock);
    if (!lock) return;
    const auto now = Clock::now();
    if (std::chrono::duration<double>(now - toldAt_).count() < interval_) return;
    toldAt_ = now;
    handler_({.phase = phase_,
              .done = static_cast<std::int64_t>(done_.load()),
              .total = static_cast<std::int64_t>(total_),
              .bytesDone = bytesDone_,
              .bytesTotal = bytesTotal_,
              .currentPath = path()});
}

} // namespace tidyro

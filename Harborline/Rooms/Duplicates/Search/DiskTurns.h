#pragma once

#include <cstdint>
#include <map>
#include <mutex>

namespace tidyro {

/// Lets threads that read large files from one disk take turns: a disk that is asked for one long
/// run after another gives them faster than several mixed up, and while one thread reads the others
/// hash. Threads share one.
class DiskTurns {
  public:
    /// Held while reading.
    [[nodiscard]] std::unique_lock<std::mutex> turn(std::uint64_t device) {
        return std::unique_lock(disk(device));
    }

  private:
    std::mutex& disk(std::uint64_t device) {
        const std::scoped_lock lock(mutex_);
        return disks_[device];
    }

    std::mutex mutex_;
    std::map<std::uint64_t, std::mutex> disks_; ///< its elements stay where they are
};

} // namespace tidyro

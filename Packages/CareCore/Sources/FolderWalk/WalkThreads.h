#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Machine/DedicatedThread.h"

namespace tidyro {

/// The threads of a walk through folders: workers, and stand-ins that are taken on one by one once
/// workers are seen waiting for the disk. All of them do the same until there is nothing left.
class WalkThreads {
  public:
    struct Options {
        std::string name;           ///< of the workers, for debuggers
        std::size_t workers;        ///< at least 1
        std::size_t standIns = 0;   ///< how many may be taken on
        std::function<void()> work; ///< what each of them does
    };
    explicit WalkThreads(Options options) : options_(std::move(options)) {}

    /// Returns when all have ended. When the system has no thread left, the caller's does the work.
    void run();

    // Under the walk's lock.

    [[nodiscard]] bool mayTakeOnStandIn() const { return standIns_.size() < options_.standIns; }
    void takeOnStandIn();
    [[nodiscard]] std::size_t count() const { return options_.workers + standIns_.size(); }

  private:
    [[nodiscard]] bool start(std::vector<platform::DedicatedThread>& threads,
                             const std::string& name);

    Options options_;
    std::vector<platform::DedicatedThread> standIns_;
};

/// Notices that a thread had to wait while it read, by asking the system before and after. Asking
/// costs a system call, so only some readings are looked at.
class WaitWatch {
  public:
    /// Before a reading.
    void begin(bool isOfInterest) {
        constexpr std::size_t readingsBetweenLooks = 8;
        looks_ = isOfInterest && readings_ % readingsBetweenLooks == 0;
        ++readings_;
        if (looks_) before_ = platform::waitCountOfThisThread();
    }
    /// After it.
    [[nodiscard]] bool hasWaited() const {
        return looks_ && platform::waitCountOfThisThread() != before_;
    }

  private:
    std::size_t readings_ = 0;
    std::uint64_t before_ = 0;
    bool looks_ = false;
};

} // namespace tidyro

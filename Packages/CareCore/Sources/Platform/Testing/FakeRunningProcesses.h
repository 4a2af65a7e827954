#pragma once

#include <atomic>
#include <expected>

#include "Platform/Processes/RunningProcesses.h"

namespace tidyro::platform::testing {

/// Processes that a test decides on, and how often they were asked for. The answer must not be
/// changed while another thread asks.
class FakeRunningProcesses final : public RunningProcesses {
  public:
    std::expected<ProcessActivity, SystemError> answer = ProcessActivity{};
    mutable std::atomic<int> timesAsked = 0;

    [[nodiscard]] std::expected<ProcessActivity, SystemError> activity() const override {
        ++timesAsked;
        return answer;
    }
};

} // namespace tidyro::platform::testing

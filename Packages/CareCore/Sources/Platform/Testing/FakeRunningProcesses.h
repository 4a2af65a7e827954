#pragma once

#include <atomic>
#include <expected>
#include <vector>

#include "Platform/Processes/RunningProcesses.h"

namespace tidyro::platform::testing {

/// Processes that a test decides on, and how often they were asked for. The answer must not be
/// changed while another thread asks.
class FakeRunningProcesses final : public RunningProcesses {
  public:
    std::expected<ProcessActivity, SystemError> answer = ProcessActivity{};
    std::vector<ProcessStart> started;
    mutable std::atomic<int> timesAsked = 0;

    [[nodiscard]] std::expected<ProcessActivity, SystemError> activity() const override {
        ++timesAsked;
        return answer;
    }
    [[nodiscard]] std::expected<std::vector<ProcessStart>, SystemError> starts() const override {
        return started;
    }
};

} // namespace tidyro::platform::testing

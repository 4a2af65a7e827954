#pragma once

#include <expected>
#include <vector>

#include "Platform/Processes/RunningProcesses.h"

namespace tidyro::testing {

/// The real processes, as though none could be hidden. Tests may run in a container, and those that
/// use this start the only processes that matter themselves.
class AllSeenProcesses final : public platform::RunningProcesses {
  public:
    [[nodiscard]] std::expected<platform::ProcessActivity, SystemError> activity() const override {
        auto seen = live_.activity();
        if (seen) seen->areOthersHidden = false;
        return seen;
    }
    [[nodiscard]] std::expected<std::vector<platform::ProcessStart>, SystemError>
    starts() const override {
        return live_.starts();
    }

  private:
    platform::LiveRunningProcesses live_;
};

} // namespace tidyro::testing

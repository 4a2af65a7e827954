#pragma once

#include <expected>
#include <vector>

#include "Platform/Processes/RunningApplications.h"

namespace tidyro::platform::testing {

/// Applications that a test decides on. The answer must not be changed while another thread
/// asks.
class FakeRunningApplications final : public RunningApplications {
  public:
    std::expected<std::vector<RunningApplication>, SystemError> answer =
        std::vector<RunningApplication>{};

    [[nodiscard]] std::expected<std::vector<RunningApplication>, SystemError>
    running() const override {
        return answer;
    }
};

} // namespace tidyro::platform::testing

#pragma once

#include <expected>
#include <vector>

#include "Platform/Mounts/Volumes.h"

namespace tidyro::platform::testing {

/// Volumes that a test decides on. The answer must not be changed while another thread asks.
class FakeVolumes final : public Volumes {
  public:
    std::expected<std::vector<Volume>, SystemError> answer = std::vector<Volume>{};

    [[nodiscard]] std::expected<std::vector<Volume>, SystemError> mounted() const override {
        return answer;
    }
};

} // namespace tidyro::platform::testing

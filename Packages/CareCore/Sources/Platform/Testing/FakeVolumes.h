#pragma once

#include <expected>
#include <string>
#include <vector>

#include "Platform/Files/FileMetadata.h"
#include "Platform/Mounts/Volumes.h"

namespace tidyro::platform::testing {

/// Volumes that a test decides on. The answer must not be changed while another thread asks.
class FakeVolumes final : public Volumes {
  public:
    /// One internal volume, "inside", that holds whatever is on the device of a path.
    [[nodiscard]] static FakeVolumes withOneAt(const std::string& path) {
        const auto seen = fileMetadata(path);
        FakeVolumes volumes;
        volumes.answer = std::vector<Volume>{{.mountPath = "/",
                                              .mount = seen->mount.value_or(0),
                                              .device = seen->identity.device,
                                              .identifier = "inside",
                                              .fileSystem = "any",
                                              .isInternalLocal = true}};
        return volumes;
    }

    std::expected<std::vector<Volume>, SystemError> answer = std::vector<Volume>{};

    [[nodiscard]] std::expected<std::vector<Volume>, SystemError> mounted() const override {
        return answer;
    }
};

} // namespace tidyro::platform::testing

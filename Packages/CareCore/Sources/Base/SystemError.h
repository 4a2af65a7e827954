#pragma once

#include <string>

namespace tidyro {

/// An error number of the operating system (errno) and its text.
struct SystemError {
    int code;

    /// The system's own words, as strerror gives them ("Permission denied").
    [[nodiscard]] std::string description() const;

    bool operator==(const SystemError&) const = default;
};

} // namespace tidyro

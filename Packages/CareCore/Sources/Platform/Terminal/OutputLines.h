#pragma once

#include <optional>
#include <string_view>

#include "Base/SystemError.h"

namespace tidyro::platform {

/// Standard output of a command. When the reader has ended, the rest is dropped quietly. Any other
/// failure is told once, at the end.
///
///     OutputLines lines;
///     lines.write("12 files\n");
///     std::exit(lines.ending(0));
class OutputLines {
  public:
    OutputLines();

    void write(std::string_view text);
    /// The status to end with: `status`, or 1 when the output could not be written. Then it also
    /// says so on standard error.
    [[nodiscard]] int ending(int status) const;

  private:
    std::optional<SystemError> failure_;
};

} // namespace tidyro::platform

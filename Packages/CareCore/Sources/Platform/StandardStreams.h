#pragma once

#include <expected>
#include <string_view>

#include "Base/SystemError.h"

namespace tidyro::platform {

enum class Stream { output = 1, error = 2 };

/// Whether somebody reads the stream on a terminal.
[[nodiscard]] bool isTerminal(Stream stream);

/// Writes all bytes in as few calls as the system takes, without a buffer of our own. EPIPE once
/// the reader has ended (and `ignoreBrokenPipes` was called).
[[nodiscard]] std::expected<void, SystemError> writeAll(Stream stream, std::string_view bytes);

/// From here on an ended reader is an error of writing, not the end of the program.
void ignoreBrokenPipes();

} // namespace tidyro::platform

#pragma once

#include <expected>
#include <string_view>

#include "Base/SystemError.h"

namespace tidyro::platform {

enum class Stream { output = 1, error = 2 };

/// Whether somebody reads the stream on a terminal.
[[nodiscard]] bool isTerminal(Stream stream);

/// Writes all bytes in as few calls as the system takes, without a buffer of our own. EPIPE once
/// the reader has ended (and `reportWriteFailuresAsErrors` was called).
[[nodiscard]] std::expected<void, SystemError> writeAll(Stream stream, std::string_view bytes);

/// From here on writing reports an error when its reader has ended or a file may not grow further.
/// Otherwise the system ends the program.
void reportWriteFailuresAsErrors();

} // namespace tidyro::platform

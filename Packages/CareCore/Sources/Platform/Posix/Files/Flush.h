#pragma once

namespace tidyro::platform {

/// Brings a file's or folder's bytes to the medium itself. False with errno set on failure.
[[nodiscard]] bool flushToDisk(int descriptor);

} // namespace tidyro::platform

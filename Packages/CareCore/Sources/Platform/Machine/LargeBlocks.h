#pragma once

#include <cstddef>
#include <span>

/// Hints about large blocks of memory. They save time or memory and change nothing else. A system
/// that knows no such hint does nothing.
namespace tidyro::platform {

/// From now on, freeing a block of 128 KiB or more gives it back to the system at once. Otherwise
/// the allocator raises that limit when it sees the first large block freed, and keeps what other
/// threads free afterwards. Called once, by `main`, before there are threads.
void giveLargeBlocksBack();

/// Announces that a new block is about to be written from its beginning to its end. The system then
/// clears 2 MiB at once instead of 4 KiB at a time, which shows when a large index is opened.
void expectWholeWrite(std::span<std::byte> block);

} // namespace tidyro::platform

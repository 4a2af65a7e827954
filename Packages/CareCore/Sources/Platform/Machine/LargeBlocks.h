#pragma once

#include <cstddef>
#include <span>

/// Hints about large blocks of memory. They save time or memory and change nothing else. A system
/// that knows no such hint does nothing.
namespace tidyro::platform {

/// From now on, freeing a block of 128 KiB or more gives it back to the system at once. Otherwise
/// the allocator raises that limit when it sees the first large block freed, and keeps what other
/// threads free afterwards: 3 of the 45 MB of an index of 460,000 names. Called once, by `main`,
/// before there are threads.
void giveLargeBlocksBack();

/// Announces that a new block is about to be written from its beginning to its end. The system then
/// clears 2 MiB at once instead of 4 KiB at a time: a saved index of a million names opens in 30 ms
/// instead of 48.
void expectWholeWrite(std::span<std::byte> block);

} // namespace tidyro::platform

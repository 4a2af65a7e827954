#pragma once

#include <cstddef>
#include <span>

/// How large blocks of memory are had from the system. Both are about pages and time only; a system
/// that has no such thing does nothing.
namespace tidyro::platform {

/// From now on each block of 128 KiB and more is the system's again as soon as it is freed. Left to
/// itself the allocator raises that limit with the first large block it sees freed, and what other
/// threads free afterwards stays with their arenas: 3 of the 45 MB of an index of 460,000 names.
/// Called once, by `main`, before there are threads.
void giveLargeBlocksBack();

/// Tells that all of a new block is about to be written. Where it holds whole large pages the
/// system then clears 2 MiB at once instead of being asked for each 4 KiB: a saved index of a
/// million names opens in 30 ms instead of 48.
void expectWholeWrite(std::span<std::byte> block);

} // namespace tidyro::platform

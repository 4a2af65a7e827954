#include "Platform/Machine/LargeBlocks.h"

namespace tidyro::platform {

// Its allocator keeps large blocks apart, and its pages have one size.
void giveLargeBlocksBack() {}
void expectWholeWrite(std::span<std::byte> /*block*/) {}

} // namespace tidyro::platform

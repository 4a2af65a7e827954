#include "Platform/Machine/LargeBlocks.h"

#include <cstdint>

#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

namespace tidyro::platform {

void giveLargeBlocksBack() {
    constexpr int minSize = 131'072;      // the allocator's own first choice
    ::mallopt(M_MMAP_THRESHOLD, minSize); // NOLINT(concurrency-mt-unsafe): no thread runs yet
}

void expectWholeWrite(std::span<std::byte> block) {
    constexpr std::size_t largePage = 2'097'152;
    if (block.size() < largePage) return;
    // The hint begins with the page in which the block and the allocator's own word before it lie:
    // the kernel takes a large page only where the hint covers all of it.
    const auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    const std::size_t before = reinterpret_cast<std::uintptr_t>(block.data()) % page;
    // A kernel without large pages refuses; nothing is lost.
    static_cast<void>(::madvise(block.data() - before, before + block.size(), MADV_HUGEPAGE));
}

} // namespace tidyro::platform

// An index of a git repository, as a damaged disk or a hostile archive may hold one. Whatever it
// holds, reading it ends within its bytes.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "StorageEngine/PickedItems/RepositoryIndex.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size); // NOLINT
    const auto isListed = tidyro::RepositoryIndex::isListed(bytes, "build");
    // Fewer bytes have no room for an entry.
    if (isListed && *isListed && size < 12 + 62) std::abort();
    return 0;
}

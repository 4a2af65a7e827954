// A snapshot's file: any bytes give a snapshot that is written and read back unchanged, or an
// error.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Base/Fault.h"
#include "Base/JSONCoding.h"
#include "Rooms/Activity/FolderSnapshot.h"

using tidyro::FolderSnapshot;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto read = tidyro::fromJSONText<FolderSnapshot>(text);
    if (!read) return 0;
    const auto again =
        tidyro::fromJSONText<FolderSnapshot>(tidyro::jsonText(tidyro::toJSON(*read)));
    tidyro::require(again == read, "a snapshot changed on its way");
    return 0;
}

// An application's Info.plist: any bytes give an identifier that stands in them, or none.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Base/Fault.h"
#include "Platform/Processes/BundleIdentifier.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // The beginning is given, or no run would ever get past it.
    const std::string_view given(reinterpret_cast<const char*>(data), size);
    for (const std::string& list : {"bplist00" + std::string(given), std::string(given)}) {
        const auto found = tidyro::platform::bundleIdentifierIn(list);
        if (!found) continue;
        tidyro::require(!found->empty() && list.find(*found) != std::string::npos,
                        "an identifier from nowhere");
    }
    return 0;
}

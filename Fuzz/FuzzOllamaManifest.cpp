// A manifest among Ollama's models. Any bytes give names that can lie directly in a folder of blobs
// and nowhere else, or none.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Base/Fault.h"
#include "StorageEngine/DeveloperStores/StoreManifests.h"

using namespace tidyro;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string given(reinterpret_cast<const char*>(data), size); // NOLINT
    // The frame is given, or hardly any run would get past it.
    for (const std::string& text :
         {given, "{\"layers\":[{\"digest\":\"sha256:" + given + "\"}]}"}) {
        const auto names = ollamaBlobNames(text);
        if (!names) continue;
        for (const std::string& name : *names) {
            require(name.starts_with("sha256-") && name.size() == 71 &&
                        name.find_first_of(std::string_view("/.\0", 3)) == std::string::npos,
                    "a blob's name is none");
        }
    }
    return 0;
}

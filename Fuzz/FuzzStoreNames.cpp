// Names of folders and targets of links in stores. Whatever they are, a blob lies directly in its
// folder, a name is no longer than what it was made of, and nothing is read beyond the bytes.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Base/Fault.h"
#include "StorageEngine/DeveloperStores/StoreManifests.h"

using namespace tidyro;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view given(reinterpret_cast<const char*>(data), size); // NOLINT
    for (const std::size_t depth : {0U, 1U, 2U, 5U}) {
        const auto blob = huggingFaceBlob(given, depth);
        if (!blob) continue;
        require(!blob->empty() && *blob != "." && *blob != ".." &&
                    blob->find('/') == std::string_view::npos,
                "a blob lies outside its folder");
    }
    if (const auto name = huggingFaceRepository(given)) {
        require(!name->empty() && name->size() < given.size() + 1, "a repository's name grew");
    }
    require(goModuleName(given).size() <= given.size(), "a module's name grew");
    if (const auto name = ollamaModelName(given)) {
        require(name->size() <= given.size(), "a model's name grew");
    }
    return 0;
}

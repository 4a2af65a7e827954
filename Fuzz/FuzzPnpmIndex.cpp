// An index of a package in pnpm's store. Any bytes give places directly in the store's folders, and
// a name that can be shown, or none.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "Base/Fault.h"
#include "StorageEngine/DeveloperStores/StoreManifests.h"

using namespace tidyro;

namespace {

bool isPlain(const std::string& name) {
    return std::ranges::all_of(name, [](char byte) { return byte > ' ' && byte < '\x7f'; });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string given(reinterpret_cast<const char*>(data), size); // NOLINT
    const std::string frame = "{\"name\":\"a\",\"version\":\"1\",\"files\":{\"f\":{";
    // The frame is given, or hardly any run would get past it.
    for (const std::string& text :
         {given, frame + given + "}}}",
          frame + "\"mode\":493,\"integrity\":\"sha512-" + given + "\"}}}"}) {
        const auto package = pnpmPackage(text);
        if (!package) continue;
        require(isPlain(package->name), "a package's name cannot be shown");
        for (const PnpmPackage::File& file : package->files) {
            require(file.folder.size() == 2 && file.name.size() >= 126 &&
                        (file.folder + file.name).find_first_of("/.") == std::string::npos,
                    "a file lies outside its store");
        }
    }
    return 0;
}

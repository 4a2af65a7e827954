// An index of a package in pnpm's store. Any bytes give a name that can be shown, or none. The
// reader of the usual spelling finds what the reader of every spelling finds: the same name, and
// all files. Only a file that is listed twice it may tell twice.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <fmt/format.h>

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
    constexpr std::string_view frame = R"({"name":"a","version":"1","files":{"f":{)";
    // The frame is given, or hardly any run would get past it.
    for (const std::string& text :
         {given, fmt::format("{}{}}}}}}}", frame, given),
          fmt::format(R"({}"mode":493,"integrity":"sha512-{}"}}}}}})", frame, given),
          fmt::format(R"({{"name":"a","version":"1",{},"files":{{}}}})", given)}) {
        const auto package = pnpmPackage(text);
        const auto same = pnpmPackageOfAnySpelling(text);
        require(package.has_value() == same.has_value(), "only one reader takes an index");
        if (!package || !same) continue;
        require(isPlain(package->name), "a package's name cannot be shown");
        require(package->name == same->name, "two readers name a package differently");
        for (const PnpmFileKey key : same->files) {
            require(std::ranges::find(package->files, key) != package->files.end(),
                    "a file was passed over");
        }
    }
    // A name of a file that is one has both digits of each byte.
    const std::string name = given + std::string(126 - std::min<std::size_t>(size, 126), 'a');
    if (pnpmFileKey("00", name)) {
        require(name.size() == 126 || name.ends_with("-exec"), "a strange file has a key");
    }
    return 0;
}

// The file of an index: any bytes give an index in which every walk ends inside it, or an error.
// The first byte says what is made of the rest: nothing, or changes to a file that is sound.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>

#include "Base/Fault.h"
#include "Platform/Files/DurableFile.h"
#include "Rooms/Find/Services/Index/FindTrees.h"
#include "Rooms/Find/Services/Saving/FindIndexPersistence.h"

namespace {

using namespace tidyro;

const std::string& soundFile() {
    static const std::string bytes = [] {
        std::string folder = (std::filesystem::temp_directory_path() / "tidyro-XXXXXX").string();
        require(::mkdtemp(folder.data()) != nullptr, "no folder for the sample");
        const FileURL url = FileURL::file(folder + "/index");
        require(FindIndexPersistence::write(testing::everythingOnce(), {}, url).has_value(),
                "the sample is not written");
        std::string whole = platform::readWholeFile(url.path(), 1U << 20).value_or("");
        std::filesystem::remove_all(folder);
        return whole;
    }();
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    std::string file(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (data[0] % 2 == 1) { // pairs of a place and a byte
        const std::string changes = std::move(file);
        file = soundFile();
        for (std::size_t i = 0; i + 2 < changes.size(); i += 3) {
            const std::size_t at = static_cast<unsigned char>(changes[i]) * 256U +
                                   static_cast<unsigned char>(changes[i + 1]);
            file[at % file.size()] = changes[i + 2];
        }
    }
    std::string_view rest = file;
    const auto read = FindIndexPersistence::read(file.size(), [&](std::span<std::byte> into) {
        const std::size_t count = rest.copy(reinterpret_cast<char*>(into.data()), into.size());
        rest.remove_prefix(count);
        return std::expected<std::size_t, SystemError>(count);
    });
    if (read) {
        testing::walkEverything(read->storage);
        require(FindIndexPersistence::validate(read->storage.compacted()).has_value(),
                "a sound index is not sound when it is compacted");
    }
    return 0;
}

// A note in the Trash. Any bytes give an absolute path without a step upwards, or none; a path that
// was read is written and read back unchanged.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Base/Fault.h"
#include "Base/PathText.h"
#include "Platform/Folders/TrashNote.h"

using namespace tidyro;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view given(reinterpret_cast<const char*>(data), size);
    // The beginning is given, or no run would ever get past it.
    for (const std::string& text :
         {std::string(given), "[Trash Info]\nPath=" + std::string(given)}) {
        for (const std::string_view top : {"", "/media/disk"}) {
            const auto note = platform::readTrashNote(text, top);
            if (!note) continue;
            require(path::isStandardized(note->path) && note->path.size() > 1 &&
                        note->path.find('\0') == std::string::npos,
                    "a note tells a path that is none");
            const auto again = platform::readTrashNote(
                platform::trashNote(note->path, {}, Timestamp::sinceReference(0)), {});
            require(again && again->path == note->path, "a path changed on its way");
        }
    }
    return 0;
}

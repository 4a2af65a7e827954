// What a file of an AI tool's home begins with. Any bytes have an answer. A key of a conversation
// tells wherever it stands, whatever comes before it, and so does its name in a path.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Base/Fault.h"
#include "StorageEngine/AITools/AIToolVeto.h"

using namespace tidyro;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string given(reinterpret_cast<const char*>(data), size); // NOLINT
    (void)AIToolVeto::hasTellingContents(given);
    require(AIToolVeto::hasTellingContents(given + R"({"messages":[)"), "a key was passed over");
    require(AIToolVeto::hasTellingContents(given + R"({"\u0072ole" : "user)"),
            "an escaped key was passed over");
    (void)AIToolVeto::hasTellingWord(given);
    require(AIToolVeto::hasTellingWord(given + ".session." + given), "a word was passed over");
    return 0;
}

#include "Platform/Posix/Processes/ProgramImage.h"

#include <algorithm>

namespace tidyro::platform {

bool beginsNativeProgram(const std::array<unsigned char, 4>& start) {
    using Start = std::array<unsigned char, 4>;
    constexpr std::array<Start, 3> known{
        Start{0xCF, 0xFA, 0xED, 0xFE}, // one processor
        Start{0xCA, 0xFE, 0xBA, 0xBE}, // several
        Start{0xCA, 0xFE, 0xBA, 0xBF}, // several, large
    };
    return std::ranges::find(known, start) != known.end();
}

// No call of this system starts an open file.
std::string pathOfOpenProgram(int /*fd*/, const std::string& path) { return path; }

} // namespace tidyro::platform

#include "Platform/MountPoints.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>
#include <system_error>

#include "Base/PathText.h"

namespace tidyro::platform {

namespace {

/// The kernel writes blanks, line breaks and backslashes in paths as a backslash and three octal
/// digits.
std::string unescaped(std::string_view text) {
    std::string path;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '\\' && at + 3 < text.size()) {
            const auto digit = [&](std::size_t i) { return text[at + i] - '0'; };
            path += static_cast<char>(digit(1) << 6 | digit(2) << 3 | digit(3));
            at += 3;
        } else {
            path += text[at];
        }
    }
    return path;
}

} // namespace

std::set<std::string> mountPointsBelow(const FolderDescriptor& folder) {
    // The kernel's own name of the folder: the list has no links in its paths.
    std::error_code failed;
    const std::string root =
        std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(folder.number()), failed)
            .string();
    std::set<std::string> places;
    std::ifstream mounts("/proc/self/mountinfo");
    for (std::string line; !failed && std::getline(mounts, line);) {
        // "36 35 98:0 /top /mounted/at options ...": the fifth word.
        std::istringstream words(line);
        std::string word;
        for (int i = 0; i < 5; ++i) words >> word;
        const std::string path = unescaped(word);
        if (path != root && path::isInsideOrEqual(path, root)) {
            places.emplace(path::below(path, root));
        }
    }
    return places;
}

} // namespace tidyro::platform

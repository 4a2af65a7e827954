#include <array>
#include <cstdlib>

#include <pwd.h>
#include <unistd.h>

#include "Platform/Folders/WellKnownFolders.h"

namespace tidyro::platform {

std::optional<std::string> folderNamedBy(const char* variable) {
    const char* path = std::getenv(variable); // NOLINT(concurrency-mt-unsafe)
    return path != nullptr && path[0] == '/' ? std::optional<std::string>(path) : std::nullopt;
}

FileURL homeFolder() {
    // The environment is read before any thread of ours could change it; none does.
    const char* home = std::getenv("HOME"); // NOLINT(concurrency-mt-unsafe)
    if (home != nullptr && home[0] == '/') return FileURL::folder(home);
    passwd entry{};
    passwd* found = nullptr;
    std::array<char, 16'384> texts{};
    if (::getpwuid_r(::getuid(), &entry, texts.data(), texts.size(), &found) == 0 &&
        found != nullptr) {
        return FileURL::folder(entry.pw_dir);
    }
    return FileURL::folder("/");
}

} // namespace tidyro::platform

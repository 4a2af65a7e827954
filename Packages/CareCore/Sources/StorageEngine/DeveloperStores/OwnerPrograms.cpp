#include "StorageEngine/DeveloperStores/OwnerPrograms.h"

#include <algorithm>
#include <array>

#include "Base/PathText.h"
#include "Platform/Files/FileMetadata.h"

namespace tidyro {

namespace {

constexpr auto programFoldersBelowHome = std::to_array<std::string_view>({
    ".local/bin",
    ".cargo/bin",
    "go/bin",
    ".local/share/pnpm",
    "miniconda3/bin",
    "miniforge3/bin",
    "anaconda3/bin",
    ".nix-profile/bin",
});
constexpr auto programFolders = std::to_array<std::string_view>({
    "/usr/local/bin",
    "/usr/bin",
    "/bin",
    "/usr/local/go/bin",
    "/opt/homebrew/bin",
    "/home/linuxbrew/.linuxbrew/bin",
    "/nix/var/nix/profiles/default/bin",
    "/run/current-system/sw/bin",
});
constexpr std::uint32_t anyoneMayExecute = 0111;

bool isProgram(const std::string& path) {
    const auto real = platform::realPath(path);
    if (!real) return false;
    const auto seen = platform::fileMetadata(*real);
    return seen && seen->kind == platform::ItemKind::regularFile &&
           (seen->permissions & anyoneMayExecute) != 0;
}

} // namespace

bool ProgramsInFolders::isInstalled(std::string_view name) const {
    if (name.empty() || name.find('/') != std::string_view::npos) return false;
    return std::ranges::any_of(
        folders_, [&](const std::string& folder) { return isProgram(path::joined(folder, name)); });
}

std::vector<std::string> ProgramsInFolders::usualFolders(const FileURL& home,
                                                         std::string_view searchPath) {
    std::vector<std::string> folders;
    const auto add = [&](std::string folder) {
        if (std::ranges::find(folders, folder) == folders.end()) {
            folders.push_back(std::move(folder));
        }
    };
    while (!searchPath.empty()) {
        const std::string_view folder = searchPath.substr(0, searchPath.find(':'));
        // A relative one leads to wherever this program was started.
        if (folder.starts_with('/')) add(path::standardized(folder));
        searchPath.remove_prefix(std::min(folder.size() + 1, searchPath.size()));
    }
    for (const std::string_view folder : programFoldersBelowHome) {
        add(home.appendingFolder(folder).path());
    }
    for (const std::string_view folder : programFolders) add(std::string(folder));
    return folders;
}

} // namespace tidyro

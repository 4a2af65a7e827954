#include "StorageEngine/Safety/ActiveApplications.h"

#include <algorithm>
#include <array>
#include <ranges>
#include <set>
#include <string_view>

#include "Base/PathText.h"
#include "Base/UnicodeText.h"

namespace tidyro {

namespace {

/// Folders that programs make from their names or their bundle identifiers.
constexpr std::array<std::string_view, 4> foldersByName{".cache", ".config", ".local/share",
                                                        ".local/state"};
constexpr std::array<std::string_view, 6> foldersOnMacOS{
    "Library/Caches",     "Library/Application Support",
    "Library/Containers", "Library/HTTPStorages",
    "Library/Logs",       "Library/WebKit"};

/// The elements of a list of the table.
auto elements(std::string_view list) {
    return list | std::views::split('|') |
           std::views::transform([](auto element) { return std::string_view(element); });
}

/// Whether a name begins so, and no letter follows.
bool isBeginningOf(std::string_view beginning, std::string_view name) {
    if (!name.starts_with(beginning)) return false;
    if (name.size() == beginning.size()) return true;
    const char next = name[beginning.size()];
    return !(next >= 'a' && next <= 'z');
}

/// The name of the executable, without the mark of a file that was replaced while it ran.
std::string_view executableName(const platform::RunningApplication& running) {
    constexpr std::string_view deleted = " (deleted)";
    std::string_view path = running.executable;
    if (path.empty()) return {};
    if (path.ends_with(deleted)) path.remove_suffix(deleted.size());
    return path::lastComponent(path);
}

/// Whether a name may stand for one folder: what comes from outside must not lead elsewhere.
bool isOneName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

void addUsualFolders(const platform::RunningApplication& running, std::set<std::string>& folders) {
    for (const std::string_view name : {executableName(running), std::string_view(running.name)}) {
        if (!isOneName(name)) continue;
        for (const std::string_view folder : foldersByName) {
            folders.insert(path::joined(folder, name));
        }
        for (const std::string_view folder : foldersOnMacOS) {
            folders.insert(path::joined(folder, name));
        }
    }
    if (isOneName(running.bundleIdentifier)) {
        for (const std::string_view folder : foldersOnMacOS) {
            folders.insert(path::joined(folder, running.bundleIdentifier));
        }
        folders.insert("Library/Saved Application State/" + running.bundleIdentifier +
                       ".savedState");
    }
    // Sandboxed packages have their data where the sandbox puts it.
    const auto places = path::components(running.executable);
    if (places.size() > 2 && places[0] == "snap") folders.insert("snap/" + std::string(places[1]));
    if (!places.empty() && (places[0] == "app" || places[0] == "newroot"))
        folders.insert(".var/app");
}

/// What the rows of the table are compared with, lowered once.
struct LoweredNames {
    std::string executable;
    std::string name;
    std::string bundleIdentifier;
};

LoweredNames loweredNames(const platform::RunningApplication& running) {
    return {.executable = lowercased(executableName(running)),
            .name = lowercased(running.name),
            .bundleIdentifier = lowercased(running.bundleIdentifier)};
}

/// Whether a running program is the application of a row.
bool isProcessOf(const ActiveApplications::Known& application, const LoweredNames& running) {
    const auto isItsName = [&](std::string_view beginning) {
        return isBeginningOf(beginning, running.executable) ||
               isBeginningOf(beginning, running.name);
    };
    if (std::ranges::any_of(elements(application.names), isItsName)) return true;
    const std::string& identifier = running.bundleIdentifier;
    if (identifier.empty()) return false;
    return std::ranges::any_of(elements(application.bundleIdentifiers), [&](std::string_view one) {
        const std::string known = lowercased(one);
        return identifier == known || identifier.starts_with(known + ".");
    });
}

} // namespace

std::vector<std::string>
ActiveApplications::dataFolders(std::span<const platform::RunningApplication> running) {
    std::set<std::string> folders;
    std::set<std::string> seen; // hundreds of processes, few programs
    const std::span<const Known> known = table();
    std::vector<bool> isRunning(known.size());
    for (const platform::RunningApplication& one : running) {
        const std::string key = one.executable + '\0' + one.name + '\0' + one.bundleIdentifier;
        if (!seen.insert(key).second) continue;
        addUsualFolders(one, folders);
        const LoweredNames names = loweredNames(one);
        for (std::size_t row = 0; row < known.size(); ++row) {
            isRunning[row] = isRunning[row] || isProcessOf(known[row], names);
        }
    }
    for (std::size_t row = 0; row < known.size(); ++row) {
        if (!isRunning[row]) continue;
        for (const std::string_view folder : elements(known[row].folders)) folders.emplace(folder);
    }
    return {folders.begin(), folders.end()};
}

std::vector<std::string> ActiveApplications::allFolders() {
    std::set<std::string> folders;
    for (const Known& application : table()) {
        for (const std::string_view folder : elements(application.folders)) folders.emplace(folder);
    }
    return {folders.begin(), folders.end()};
}

} // namespace tidyro

#include "StorageEngine/Safety/ActiveApplications.h"

#include <algorithm>
#include <array>
#include <set>
#include <string_view>

#include "Base/PathText.h"
#include "Base/UnicodeText.h"
#include "StorageEngine/Safety/KnownApplications.h"

namespace tidyro {

namespace {

/// Folders that programs make from their names or their bundle identifiers.
constexpr std::array<std::string_view, 4> foldersByName{".cache", ".config", ".local/share",
                                                        ".local/state"};
constexpr std::array<std::string_view, 6> foldersOnMacOS{
    "Library/Caches",     "Library/Application Support",
    "Library/Containers", "Library/HTTPStorages",
    "Library/Logs",       "Library/WebKit"};

/// Calls `use` with each element of a list until it says that it has seen enough.
template <class Use>
bool anyOf(std::string_view list, Use use) {
    while (!list.empty()) {
        const std::size_t end = std::min(list.find('|'), list.size());
        if (use(list.substr(0, end))) return true;
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    return false;
}

bool begins(std::string_view name, std::string_view beginning) {
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

/// What one row is compared with, lowered once.
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

bool takes(const KnownApplication& application, const LoweredNames& running) {
    if (anyOf(application.names, [&](std::string_view name) {
            return begins(running.executable, name) || begins(running.name, name);
        })) {
        return true;
    }
    const std::string& identifier = running.bundleIdentifier;
    return !identifier.empty() && anyOf(application.bundleIdentifiers, [&](std::string_view one) {
        const std::string known = lowercased(one);
        return identifier == known || identifier.starts_with(known + ".");
    });
}

} // namespace

std::vector<std::string>
ActiveApplications::dataFolders(std::span<const platform::RunningApplication> running) {
    std::set<std::string> folders;
    std::set<std::string> known; // hundreds of processes, few programs
    const auto applications = knownApplications();
    std::vector<bool> isTaken(applications.size());
    for (const platform::RunningApplication& one : running) {
        const std::string key = one.executable + '\0' + one.name + '\0' + one.bundleIdentifier;
        if (!known.insert(key).second) continue;
        addUsualFolders(one, folders);
        const LoweredNames names = loweredNames(one);
        for (std::size_t row = 0; row < applications.size(); ++row) {
            isTaken[row] = isTaken[row] || takes(applications[row], names);
        }
    }
    for (std::size_t row = 0; row < applications.size(); ++row) {
        if (!isTaken[row]) continue;
        anyOf(applications[row].folders, [&](std::string_view folder) {
            folders.emplace(folder);
            return false;
        });
    }
    return {folders.begin(), folders.end()};
}

} // namespace tidyro

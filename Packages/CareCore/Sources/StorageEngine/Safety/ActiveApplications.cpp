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

/// Where scripts lie that came with the system. What a person installs, also for everybody, lies
/// elsewhere, and so do the libraries that any script may have been given to.
constexpr std::array<std::string_view, 8> systemFolders{
    "/usr/bin", "/usr/sbin", "/usr/libexec", "/usr/lib", "/usr/share", "/bin", "/sbin", "/lib"};

/// What libraries keep for whichever script loads them.
constexpr std::array<std::string_view, 3> foldersOfLibraries{".cache/huggingface", ".cache/torch",
                                                             ".cache/matplotlib"};

/// The names on the way to a script that came with the system: "blueman-applet", or "jupyter" and
/// "main.py". Empty for every other script.
std::vector<std::string_view> namesOfSystemScript(std::string_view script) {
    const auto folder = std::ranges::find_if(systemFolders, [&](std::string_view one) {
        return script.size() > one.size() && path::isInsideOrEqual(script, one);
    });
    if (folder == systemFolders.end()) return {};
    return path::components(path::below(script, *folder));
}

/// The name of the executable, without the mark of a file that was replaced while it ran.
std::string_view executableName(const platform::RunningApplication& running) {
    constexpr std::string_view deleted = " (deleted)";
    std::string_view path = running.executable;
    if (path.ends_with(deleted)) path.remove_suffix(deleted.size());
    return path::lastComponent(path);
}

/// Whether a name may stand for one folder: what comes from outside must not lead elsewhere.
bool isOneName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

/// What the folders of a running program may be called after.
std::vector<std::string_view> namesOf(const platform::RunningApplication& running) {
    const std::string_view executable = executableName(running);
    std::vector<std::string_view> names = namesOfSystemScript(running.script);
    const bool isSystemScript = !names.empty();
    if (!isSystemScript) names.push_back(executable);
    // The name of a script's process is the interpreter's or the beginning of the script's.
    const bool isInterpreters = executable.empty() || executable.starts_with(running.name);
    if (!isSystemScript || !isInterpreters) names.push_back(running.name);
    return names;
}

void addUsualFolders(const platform::RunningApplication& running, std::set<std::string>& folders) {
    for (const std::string_view name : namesOf(running)) {
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
    std::vector<std::string> names;
    std::string bundleIdentifier;
};

LoweredNames loweredNames(const platform::RunningApplication& running) {
    LoweredNames lowered{.names = {}, .bundleIdentifier = lowercased(running.bundleIdentifier)};
    for (const std::string_view name : namesOf(running)) lowered.names.push_back(lowercased(name));
    return lowered;
}

/// What a person would look for to quit it.
std::string shownName(const platform::RunningApplication& running) {
    if (!running.script.empty()) return terminalSafe(path::lastComponent(running.script));
    const std::string_view executable = executableName(running);
    return terminalSafe(executable.empty() ? std::string_view(running.name) : executable);
}

/// Whether a running program is the application of a row.
bool isProcessOf(const ActiveApplications::Known& application, const LoweredNames& running) {
    const auto isItsName = [&](std::string_view beginning) {
        return std::ranges::any_of(
            running.names, [&](const std::string& name) { return isBeginningOf(beginning, name); });
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

ActiveApplications::Owners
ActiveApplications::owners(std::span<const platform::RunningApplication> running) {
    Owners owners;
    // Of several programs the first in the alphabet, whatever order they were found in.
    const auto add = [&](std::string folder, const std::string& name) {
        const auto [known, isNew] = owners.try_emplace(std::move(folder), name);
        if (!isNew) known->second = std::min(known->second, name);
    };
    std::set<std::string> seen; // hundreds of processes, few programs
    const std::span<const Known> known = table();
    for (const platform::RunningApplication& one : running) {
        const std::string key =
            one.executable + '\0' + one.name + '\0' + one.bundleIdentifier + '\0' + one.script;
        if (!seen.insert(key).second) continue;
        const std::string name = shownName(one);
        std::set<std::string> folders;
        addUsualFolders(one, folders);
        if (!one.script.empty()) {
            folders.insert(foldersOfLibraries.begin(), foldersOfLibraries.end());
        }
        const LoweredNames names = loweredNames(one);
        for (const Known& application : known) {
            if (!isProcessOf(application, names)) continue;
            for (const std::string_view folder : elements(application.folders)) {
                folders.emplace(folder);
            }
        }
        for (const std::string& folder : folders) add(folder, name);
    }
    return owners;
}

std::vector<std::string> ActiveApplications::allFolders() {
    std::set<std::string> folders;
    for (const Known& application : table()) {
        for (const std::string_view folder : elements(application.folders)) folders.emplace(folder);
    }
    return {folders.begin(), folders.end()};
}

} // namespace tidyro

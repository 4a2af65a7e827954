#include "StorageEngine/DeveloperStores/UVCacheFolder.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include "Base/PathText.h"
#include "Platform/Files/FileMetadata.h"

namespace tidyro::UVCacheFolder {

namespace {

constexpr auto bucketNames = std::to_array<std::string_view>({
    "wheels",
    "archive",
    "simple",
    "sdists",
    "git",
    "builds",
    "interpreter",
    "environments",
    "flat-index",
    "python",
    "binaries",
    "built-wheels",
    "wheel-metadata",
});
constexpr auto fileNames =
    std::to_array<std::string_view>({"CACHEDIR.TAG", ".gitignore", lockName});
constexpr std::string_view temporaryBeginning = ".tmp";

/// The variables with which uv starts programs from its cache. Others may name the cache in every
/// shell, such as the one that moves it.
constexpr auto variablesOfUse =
    std::to_array<std::string_view>({"PATH=", "VIRTUAL_ENV=", "PYTHONPATH="});

/// "wheels-v5": what stands before the version.
std::string_view bucketName(std::string_view name) {
    const std::size_t last = name.find_last_not_of("0123456789");
    if (last == std::string_view::npos || last + 1 == name.size()) return {};
    const std::string_view beginning = name.substr(0, last + 1);
    return beginning.ends_with("-v") ? beginning.substr(0, beginning.size() - 2) : "";
}

bool isInside(std::string_view path, const std::string& folder) {
    return path != folder && path::isInsideOrEqual(path, folder);
}

/// The folder with a "/" behind it and something behind that, anywhere in a text: an option may
/// stand before the path, and a list may hold several.
bool namesSomethingIn(std::string_view text, const std::string& folder) {
    for (std::size_t at = text.find(folder); at != std::string_view::npos;
         at = text.find(folder, at + 1)) {
        const std::string_view behind = text.substr(at + folder.size());
        if (behind.size() > 1 && behind[0] == '/') return true;
    }
    return false;
}

/// What a process keeps, looked at for one cache.
struct Cache {
    const std::string& written;
    const std::string& real;

    [[nodiscard]] bool isUsedBy(const platform::RunningProcess& process) const {
        const auto isIn = [&](const std::string& file) { return isInside(file, real); };
        return isIn(process.executable) || std::ranges::any_of(process.files, isIn);
    }
    [[nodiscard]] bool isUsedBy(const platform::ProcessStart& start) const {
        const auto isNamed = [&](const std::string& text) {
            return namesSomethingIn(text, real) || namesSomethingIn(text, written);
        };
        const auto isNamedForUse = [&](const std::string& variable) {
            const auto begins = [&](std::string_view name) { return variable.starts_with(name); };
            return std::ranges::any_of(variablesOfUse, begins) && isNamed(variable);
        };
        return isInside(start.workingFolder, real) ||
               std::ranges::any_of(start.arguments, isNamed) ||
               std::ranges::any_of(start.environment, isNamedForUse);
    }
};

/// Whether the cache lies on another volume than the root. What is mounted into a container came
/// from outside, where nobody here sees who uses it.
bool isMountedFromElsewhere(const std::string& real) {
    const auto root = platform::fileMetadata("/");
    const auto cache = platform::fileMetadata(real);
    return !root || !cache || root->identity.device != cache->identity.device;
}

} // namespace

bool isOfUV(std::string_view name, platform::EntryType type) {
    if (type == platform::EntryType::link) return false;
    if (name.starts_with(temporaryBeginning)) return true;
    return type == platform::EntryType::folder
               ? std::ranges::find(bucketNames, bucketName(name)) != bucketNames.end()
               : std::ranges::find(fileNames, name) != fileNames.end();
}

std::expected<bool, SystemError> holdsOnlyUV(const platform::FolderDescriptor& cache) {
    platform::FolderLister lister({.isAskedForFacts = false});
    lister.begin(cache);
    while (const platform::FolderEntry* entry = lister.next()) {
        if (!isOfUV(entry->name, entry->type)) return false;
    }
    if (lister.error().code != 0) return std::unexpected(lister.error());
    return true;
}

std::expected<std::optional<User>, SystemError>
userOf(const std::string& written, const std::string& real,
       const platform::RunningProcesses& processes) {
    const Cache cache{.written = written, .real = real};
    const std::int64_t ourselves = platform::currentProcessID();
    const auto activity = processes.activity();
    if (!activity) return std::unexpected(activity.error());
    if (activity->areOthersHidden && isMountedFromElsewhere(real)) {
        return std::unexpected(SystemError{EACCES});
    }
    const auto starts = processes.starts();
    if (!starts) return std::unexpected(starts.error());
    for (const platform::RunningProcess& process : activity->processes) {
        if (process.pid == ourselves || !cache.isUsedBy(process)) continue;
        return User{.pid = process.pid,
                    .program = std::string(path::lastComponent(process.executable))};
    }
    for (const platform::ProcessStart& start : *starts) {
        if (start.pid == ourselves || !cache.isUsedBy(start)) continue;
        const std::string_view program =
            start.arguments.empty() ? "" : std::string_view(start.arguments[0]);
        return User{.pid = start.pid, .program = std::string(path::lastComponent(program))};
    }
    return std::nullopt;
}

} // namespace tidyro::UVCacheFolder

#include "StorageEngine/Observation/FolderSurroundings.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <system_error>
#include <vector>

#include "Base/PathText.h"
#include "Base/UnicodeText.h"
#include "Platform/Files/FileMetadata.h"
#include "StorageEngine/Observation/FolderSigns.h"

namespace tidyro {

namespace {

constexpr FolderSurroundings inDoubt{.isInProjectRepository = true,
                                     .isInBackup = true,
                                     .isInDatabase = true,
                                     .isInHistory = true,
                                     .isInEnvironment = true,
                                     .isNearJournal = true};

/// Scans of very many folders must not remember them all.
constexpr std::size_t maxRememberedFolders = 100'000;

/// What the names in a folder say of it. Neither a ".git" in it nor the folders above it count.
FolderSurroundings readSigns(const std::string& folder) {
    FolderSigns signs;
    std::error_code failed;
    for (std::filesystem::directory_iterator at(folder, failed), end; !failed && at != end;
         at.increment(failed)) {
        signs.add(lowercased(at->path().filename().native()));
    }
    if (failed) return inDoubt;
    bool isBackup = signs.isBackup();
    if (!isBackup && signs.mayBeBorg()) {
        const auto opened = platform::FolderDescriptor::openRoot(folder);
        isBackup = !opened || isBorgRepository(*opened);
    }
    return {.isInProjectRepository = false,
            .isInBackup = isBackup,
            .isInDatabase = signs.isDatabase(),
            .isInHistory = signs.isRepository(),
            .isInEnvironment = signs.isEnvironment(),
            .isNearJournal = signs.hasJournal()};
}

bool hasRepository(const std::string& folder) {
    const auto seen = platform::fileMetadata(path::joined(folder, ".git"));
    return seen || seen.error().code != ENOENT;
}

FolderSurroundings united(FolderSurroundings a, FolderSurroundings b) {
    return {.isInProjectRepository = a.isInProjectRepository || b.isInProjectRepository,
            .isInBackup = a.isInBackup || b.isInBackup,
            .isInDatabase = a.isInDatabase || b.isInDatabase,
            .isInHistory = a.isInHistory || b.isInHistory,
            .isInEnvironment = a.isInEnvironment || b.isInEnvironment,
            .isNearJournal = a.isNearJournal || b.isNearJournal};
}

} // namespace

bool isBackupByName(std::string_view path) {
    constexpr std::array<std::string_view, 3> stores{".timemachine", ".mobilebackups",
                                                     "com.apple.timemachine.localsnapshots"};
    const std::string lowered = lowercased(path);
    std::string_view before;
    for (const std::string_view component : path::components(lowered)) {
        if (component == ".backupdb" || component.ends_with(".backupdb")) return true;
        if (component == ".snapshots") return true; // snapper's
        if (std::ranges::find(stores, component) != stores.end()) return true;
        if (before == "mobilesync" && component == "backup") return true;
        // Timeshift also keeps lists of its snapshots by their occasion: "snapshots-daily".
        if ((before == "timeshift" || before == "timeshift-btrfs") &&
            component.starts_with("snapshots")) {
            return true;
        }
        before = component;
    }
    return false;
}

FolderSurroundingsFinder::FolderSurroundingsFinder(const FileURL& home)
    : home_(home.path()), realHome_(platform::realPath(home_).value_or(home_)) {}

/// Goes up to the nearest folder that is known, and reads the others on the way down again.
FolderSurroundings FolderSurroundingsFinder::readUpwards(std::string_view folder) {
    const bool isInHome =
        path::isInsideOrEqual(folder, home_) || path::isInsideOrEqual(folder, realHome_);
    const auto isHome = [&](std::string_view at) { return at == home_ || at == realHome_; };
    FolderSurroundings found{};
    std::vector<std::string> unknown;
    for (std::string_view at = folder;; at = path::parent(at)) {
        if (const auto known = read_.find(at); known != read_.end()) {
            found = known->second;
            break;
        }
        unknown.emplace_back(at);
        if (at == "/" || (isInHome && isHome(at))) break;
    }
    for (auto at = unknown.rbegin(); at != unknown.rend(); ++at) {
        FolderSurroundings own = readSigns(*at);
        own.isInProjectRepository = !isHome(*at) && hasRepository(*at);
        own.isInHistory = own.isInHistory && !isHome(*at);
        own.isInEnvironment = own.isInEnvironment && !isHome(*at);
        found = united(found, own);
        read_.emplace(*at, found);
    }
    return found;
}

FolderSurroundings FolderSurroundingsFinder::surroundings(const std::string& folder) {
    if (const auto known = answers_.find(folder); known != answers_.end()) return known->second;
    if (answers_.size() >= maxRememberedFolders || read_.size() >= maxRememberedFolders) {
        answers_.clear();
        read_.clear();
    }
    FolderSurroundings found = inDoubt;
    if (const auto real = platform::realPath(folder)) {
        found = readUpwards(folder);
        if (*real != folder) found = united(found, readUpwards(*real));
        found.isInBackup = found.isInBackup || isBackupByName(folder) || isBackupByName(*real);
    }
    answers_.emplace(folder, found);
    return found;
}

} // namespace tidyro

#include "StorageEngine/Observation/FolderSurroundings.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <set>
#include <system_error>
#include <vector>

#include "Base/PathText.h"
#include "Base/UnicodeText.h"
#include "Platform/Files/FileMetadata.h"
#include "StorageEngine/Observation/FolderSigns.h"
#include "StorageEngine/Places/BaseFolders.h"

namespace tidyro {

namespace {

constexpr FolderSurroundings inDoubt{.isInProjectRepository = true,
                                     .isInToolCheckout = false,
                                     .isInBackup = true,
                                     .isInDatabase = true,
                                     .isInHistory = true,
                                     .isInEnvironment = true,
                                     .isNearJournal = true};

/// Scans of very many folders must not remember them all.
constexpr std::size_t maxRememberedFolders = 100'000;

/// What the listing of the folder says of an item. None where the system did not tell with it.
std::optional<platform::ItemKind> kindOfEntry(const std::filesystem::directory_entry& entry) {
    std::error_code failed;
    if (entry.is_symlink(failed)) return platform::ItemKind::link;
    if (entry.is_directory(failed)) return platform::ItemKind::folder;
    if (entry.is_regular_file(failed)) return platform::ItemKind::regularFile;
    return failed ? std::nullopt : std::optional(platform::ItemKind::other);
}

/// What the names in a folder say of it. The folders above it do not count.
FolderSurroundings readSigns(const std::string& folder) {
    FolderSigns signs;
    std::error_code failed;
    for (std::filesystem::directory_iterator at(folder, failed), end; !failed && at != end;
         at.increment(failed)) {
        signs.add(lowercased(at->path().filename().native()), kindOfEntry(*at));
    }
    if (failed) {
        FolderSurroundings doubt = inDoubt;
        doubt.isInProjectRepository = false; // which is asked by name as well
        return doubt;
    }
    bool isBackup = signs.isBackup();
    if (!isBackup && signs.mayBeBorg()) {
        const auto opened = platform::FolderDescriptor::openRoot(folder);
        isBackup = !opened || isBorgRepository(*opened);
    }
    return {.isInProjectRepository = signs.isWorkTree(),
            .isInToolCheckout = false, // which the folder's place decides
            .isInBackup = isBackup,
            .isInDatabase = signs.isDatabase(),
            .isInHistory = signs.isRepository(),
            .isInEnvironment = signs.isEnvironment(),
            .isNearJournal = signs.hasJournal()};
}

/// Asked by name: some folders may be listed, though nothing in them may be looked at, and others
/// the other way round.
bool mayHaveRepository(const std::string& folder) {
    const auto seen = platform::fileMetadata(path::joined(folder, ".git"));
    return seen || seen.error().code != ENOENT;
}

/// Where tools keep repositories that they fetched themselves, below the home: so many folders
/// further down each one begins.
struct Checkouts {
    std::string_view root;
    std::size_t depth;
};
constexpr std::array<Checkouts, 3> checkouts{{
    {".cargo/git/checkouts", 2}, // the name and the revision
    {".cache/yay", 1},
    {".cache/paru/clone", 1},
}};

/// Both paths of a folder, or what it and the folders above it say. A tool's checkout is all that a
/// folder lies in only when neither speaks of another repository.
FolderSurroundings united(FolderSurroundings a, FolderSurroundings b) {
    const auto isInOther = [](const FolderSurroundings& one) {
        return one.isInProjectRepository && !one.isInToolCheckout;
    };
    return {.isInProjectRepository = a.isInProjectRepository || b.isInProjectRepository,
            .isInToolCheckout =
                (a.isInToolCheckout || b.isInToolCheckout) && !isInOther(a) && !isInOther(b),
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
    : home_(home.path()), realHome_(platform::realPath(home_).value_or(home_)) {
    const BaseFolders bases = BaseFolders::find(home);
    for (const std::string& base : std::set{home_, realHome_}) {
        for (const Checkouts& place : checkouts) {
            checkouts_.push_back({path::joined(base, bases.moved(place.root)), place.depth});
        }
    }
}

/// Whether a tool keeps a repository of its own in the folder, if it is one.
bool FolderSurroundingsFinder::isCheckout(std::string_view folder) const {
    return std::ranges::any_of(checkouts_, [&](const auto& place) {
        const auto& [root, depth] = place;
        if (!path::isInsideOrEqual(folder, root) || folder == root) return false;
        return path::components(path::below(folder, root)).size() <= depth;
    });
}

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
        own.isInProjectRepository = own.isInProjectRepository || mayHaveRepository(*at);
        if (isHome(*at)) {
            own.isInProjectRepository = own.isInHistory = own.isInEnvironment = false;
        }
        own.isInToolCheckout =
            own.isInProjectRepository && !found.isInProjectRepository && isCheckout(*at);
        const bool isHistoryOfCheckout = found.isInToolCheckout &&
                                         path::lastComponent(*at) == ".git" &&
                                         isCheckout(path::parent(*at));
        if (isHistoryOfCheckout) own.isInHistory = false;
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

#include "StorageEngine/Observation/FolderSurroundings.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <set>
#include <vector>

#include "Base/LoweredPath.h"
#include "Base/PathText.h"
#include "Platform/Files/FileMetadata.h"
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

/// A repository is asked for by name as well.
constexpr FolderSurroundings inDoubtBySigns = [] {
    FolderSurroundings doubt = inDoubt;
    doubt.isInProjectRepository = false;
    return doubt;
}();

/// Scans of very many folders must not remember them all.
constexpr std::size_t maxRememberedFolders = 100'000;

/// What the names in a folder say of it. The folders above it do not count.
FolderSurroundings surroundingsBySigns(const std::string& folder, const FolderSigns& signs) {
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
    std::string_view before;
    return LoweredPath(path).hasComponent([&](std::string_view component) {
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
        return false;
    });
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

FolderSurroundings FolderSurroundingsFinder::readSigns(const std::string& folder) {
    if (listed_.folder == folder) return surroundingsBySigns(folder, listed_.signs);
    const auto opened = platform::FolderDescriptor::openRoot(folder);
    if (!opened) return inDoubtBySigns;
    if (lister_ == nullptr) {
        lister_ = std::make_unique<platform::FolderLister>(
            platform::FolderLister::Options{.isAskedForFacts = false});
    }
    FolderSigns signs;
    lister_->begin(*opened);
    while (const platform::FolderEntry* entry = lister_->next()) {
        signs.add(*entry);
    }
    return lister_->error().code != 0 ? inDoubtBySigns : surroundingsBySigns(folder, signs);
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
    const auto real = listed_.folder == folder
                          ? std::expected<std::string, SystemError>(listed_.real)
                          : platform::realPath(folder);
    if (real) {
        found = readUpwards(folder);
        if (*real != folder) found = united(found, readUpwards(*real));
        found.isInBackup = found.isInBackup || isBackupByName(folder) ||
                           (*real != folder && isBackupByName(*real));
    }
    if (listed_.folder != folder) answers_.emplace(folder, found); // else its asker remembers it
    return found;
}

} // namespace tidyro

#include "Rooms/Duplicates/Search/CopyPlaces.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>

#include "Base/LowercaseTable.h"
#include "Base/PathText.h"
#include "Base/UnicodeText.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderChanges.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "StorageEngine/Places/DesktopFolders.h"
#include "StorageEngine/Places/HomeFolders.h"
#include "StorageEngine/Sorting/KnownPlaces.h"
#include "StorageEngine/Sorting/ProjectFolderJudge.h"

namespace tidyro {

namespace {

using Finding = CopyPlaces::Finding;

constexpr std::string_view inHiddenFolder =
    "In a hidden folder of your home, where programs keep what they need.";
constexpr std::string_view inStore =
    "Part of a store of packages or tools, which would break without it.";
constexpr std::string_view inEnvironment =
    "Part of an environment that programs run in, which would break without it.";
constexpr std::string_view inProject =
    "Part of a project, which may need each of its files where it is.";

/// What the presence of a name in a folder makes of that folder.
enum class Mark : std::uint8_t { repository, environment, project };

constexpr std::array<ValueWords<Mark>, 3> markWords{
    {{.value = Mark::repository,
      .words = ".git .hg .jj .svn _darcs .bzr .pijul .sl .fslckout _fossil_ .fos"},
     {.value = Mark::environment, .words = "pyvenv.cfg conda-meta"},
     {.value = Mark::project,
      .words = "package.json cargo.toml pyproject.toml setup.py go.mod pom.xml build.gradle "
               "build.gradle.kts cmakelists.txt composer.json gemfile mix.exs meson.build "
               "package.swift build.sbt stack.yaml dune-project pubspec.yaml"}}};
constexpr auto marks = lowercaseTable<markWords>();

/// Folders in which a package manager or a manager of toolchains keeps what programs are made of,
/// wherever they lie. Those that are called so in a home alone are hidden there anyway.
constexpr std::string_view storeNames =
    "site-packages dist-packages node_modules bower_components __pycache__ .pyenv .rustup .cargo "
    ".nvm .fnm .rbenv .rvm .asdf .sdkman .jenv .nodenv .goenv .volta .m2 .ivy2 .gradle .nuget .npm "
    ".pnpm .pnpm-store .yarn .bun .deno .stack .cabal .ghcup .opam .conda miniconda miniconda3 "
    "anaconda anaconda3 miniforge3 mambaforge micromamba .mamba .virtualenvs virtualenvs .venv "
    "venv "
    ".tox .nox .linuxbrew linuxbrew .steam";
constexpr auto stores = lowercaseSet<wordCount(storeNames)>(storeNames);

constexpr std::string_view disposableNames = "tmp temp cache caches";
constexpr auto disposables = lowercaseSet<wordCount(disposableNames)>(disposableNames);

Finding findingOf(Mark mark) {
    switch (mark) {
    case Mark::repository:
    case Mark::project: return {.place = CopyPlace::own, .heldBecause = inProject};
    case Mark::environment: return {.place = CopyPlace::disposable, .heldBecause = inEnvironment};
    }
    return {};
}

bool isSharedByAll(std::string_view folder) {
    return folder == "/" || folder == "/tmp" || folder == "/var/tmp";
}

bool isInAny(std::string_view path, const std::vector<std::string>& folders) {
    return std::ranges::any_of(
        folders, [&](const std::string& folder) { return path::isInsideOrEqual(path, folder); });
}

void addBothPaths(std::vector<std::string>& folders, const std::string& path) {
    folders.push_back(folded(path));
    if (const auto real = platform::realPath(path)) folders.push_back(folded(*real));
}

} // namespace

void CopyPlaces::Finding::add(const Finding& other) {
    place = std::max(place, other.place);
    if (heldBecause.empty()) heldBecause = other.heldBecause;
}

CopyPlaces::CopyPlaces(const DuplicateListing& listing, const FileURL& home)
    : listing_(listing), home_(home) {
    addBothPaths(homes_, home.path());
    system_ = SystemPlaces(homes_);
    for (const std::string_view name : {"Downloads", "Desktop"}) {
        addBothPaths(landing_, path::joined(home.path(), name));
    }
    // Without the list the policy lets nothing go, so nothing depends on it then.
    const auto desktop = DesktopFolders::read(home).value_or(DesktopFolders{});
    for (const auto* folders : {&desktop.downloads, &desktop.desktops}) {
        for (const FileURL& folder : *folders) addBothPaths(landing_, folder.path());
    }
    for (const std::string& folder :
         {std::string("/tmp"), std::string("/var/tmp"), std::string("/private/var/folders")}) {
        addBothPaths(temporary_, folder);
    }
}

/// The part of a path below the home, folded as the path is; empty for the home itself.
std::optional<std::string> CopyPlaces::belowHome(std::string_view path) const {
    for (const std::string& home : homes_) {
        if (path::isInsideOrEqual(path, home)) return std::string(path::below(path, home));
    }
    return std::nullopt;
}

/// Judges a folder by the names on the way to it.
Finding CopyPlaces::byPath(std::string_view folder) const {
    Finding found;
    const auto isDisposable = [&] { found.add({.place = CopyPlace::disposable}); };
    const std::string path = folded(folder);
    const auto below = belowHome(path);
    const std::string_view rest = below ? std::string_view(*below) : std::string_view(path);
    std::string_view before;
    for (const std::string_view name : path::components(rest)) {
        const bool isFirst = before.empty();
        // On macOS the folder "Library" of the home is hidden, though its name does not say so.
        if (below && isFirst && (name.starts_with('.') || name == "library" || name == "snap")) {
            found.add({.place = CopyPlace::disposable, .heldBecause = inHiddenFolder});
        }
        const bool isOfGo = before == "go" && name == "pkg";
        if (isOfGo || stores.contains(name)) {
            found.add({.place = CopyPlace::disposable, .heldBecause = inStore});
        }
        if (name.starts_with('.') || disposables.contains(name) ||
            ProjectFolderJudge::mayBeGenerated(name)) {
            isDisposable();
        }
        before = name;
    }
    if (isInAny(path, landing_)) found.add({.place = CopyPlace::landing});
    if (KnownPlaces::place(folder, home_) != nullptr) isDisposable();
    if (!below && (isInAny(path, temporary_) || system_.isTouchedBy(path::joined(path, "file")))) {
        isDisposable();
    }
    return found;
}

/// What a name in a folder makes of the folder. A repository in the home itself says nothing of
/// what lies there, since people keep their settings in one. The list of a project's parts lies
/// about by accident in homes, in their standard folders and where everybody puts things.
Finding CopyPlaces::byName(std::string_view name, std::string_view folder) const {
    const auto mark = marks.find(name);
    if (!mark) return {};
    const auto below = belowHome(folded(folder));
    if (below && below->empty()) return {};
    if (*mark == Mark::project) {
        if (!below) return isSharedByAll(folder) ? Finding() : findingOf(*mark);
        const bool isStandard =
            std::ranges::any_of(HomeFolders::standardHomeFolders(), [&](std::string_view standard) {
                return folded(standard) == *below;
            });
        if (isStandard) return {};
    }
    return findingOf(*mark);
}

/// Reads the folders above the root of a tree. For a root in the home those above the home do not
/// count.
Finding CopyPlaces::lookAbove(std::string_view path) const {
    Finding found;
    while (path != "/" && belowHome(folded(path)) != "") {
        path = path::parent(path);
        const std::string folder(path);
        std::error_code failed;
        for (std::filesystem::directory_iterator at(folder, failed), end; !failed && at != end;
             at.increment(failed)) {
            found.add(byName(at->path().filename().native(), folder));
        }
        if (failed) found.add(findingOf(Mark::repository)); // it may be one
    }
    return found;
}

CopyPlaces::Root& CopyPlaces::rootOf(const ListedFile& file) {
    const DiskTree& tree = listing_.tree(file);
    const auto [at, isNew] = roots_.try_emplace(&tree);
    Root& root = at->second;
    if (isNew) {
        const std::string& written = tree.rootURL().path();
        root.real = platform::realPath(written).value_or(written);
        root.above = lookAbove(written);
        if (root.real != written) root.above.add(lookAbove(root.real));
    }
    return root;
}

std::string CopyPlaces::realPath(const ListedFile& file) {
    const std::string& written = listing_.tree(file).rootURL().path();
    std::string path = listing_.path(file);
    const Root& root = rootOf(file);
    if (root.real == written) return path;
    return path::joined(root.real, path::below(path, written));
}

const CopyPlaces::Folder& CopyPlaces::folderOf(const ListedFile& file) {
    const DiskTree& tree = listing_.tree(file);
    Root& root = rootOf(file);
    const NodeNumber own = tree.parent(file.node);
    if (const auto known = root.folders.find(own); known != root.folders.end()) {
        return known->second;
    }
    // Goes up to the nearest folder that is known, and judges the others on the way down again.
    std::vector<NodeNumber> unknown;
    Finding beside = root.above;
    for (NodeNumber at = own; at >= 0; at = tree.parent(at)) {
        if (const auto known = root.folders.find(at); known != root.folders.end()) {
            beside = known->second.beside;
            break;
        }
        unknown.push_back(at);
    }
    const std::string& written = tree.rootURL().path();
    for (auto at = unknown.rbegin(); at != unknown.rend(); ++at) {
        const std::string path = tree.path(*at);
        const bool isHome = belowHome(folded(path)) == "";
        if (isHome) beside = {}; // what lies above a home says nothing of it
        for (const NodeNumber child : tree.children(*at)) {
            beside.add(byName(tree.nameBytes(child), path));
        }
        Finding all = byPath(path);
        if (root.real != written) {
            all.add(
                byPath(path::standardized(path::joined(root.real, path::below(path, written)))));
        }
        all.add(beside);
        root.folders.emplace(*at, Folder{.beside = beside, .all = all, .isHome = isHome});
    }
    return root.folders.at(own);
}

Finding CopyPlaces::look(const ListedFile& file) {
    const Folder& folder = folderOf(file);
    Finding found = folder.all;
    // A hidden file of the home itself is a program's, too.
    if (folder.isHome && listing_.tree(file).nameBytes(file.node).starts_with('.')) {
        found.add({.place = CopyPlace::disposable, .heldBecause = inHiddenFolder});
    }
    return found;
}

bool isNameOfTrash(std::string_view name) {
    constexpr std::string_view trash = ".trash";
    if (name.size() < trash.size() || name[0] != '.') return false;
    if (platform::PrivateFolder::isName(name)) return true;
    const std::string whole = folded(name);
    if (whole == trash || whole == ".trashes") return true;
    return whole.starts_with(".trash-") && whole.find_first_not_of("0123456789", 7) == whole.npos;
}

bool isInTrash(std::string_view path, const FileURL& home) {
    const auto lies = [&](const std::string& trash) {
        return path::isInsideOrEqual(folded(path), folded(trash));
    };
    const FileURL items = platform::trashPlaces().home;
    // Beside the items lie the notes of where they came from.
    const FileURL whole = items.lastComponent() == "files" ? items.parent() : items;
    return lies(path::joined(home.path(), ".local/share/Trash")) || lies(whole.path()) ||
           std::ranges::any_of(path::components(path), isNameOfTrash);
}

} // namespace tidyro

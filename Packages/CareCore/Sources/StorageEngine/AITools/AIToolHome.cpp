#include "StorageEngine/AITools/AIToolHome.h"

#include <algorithm>
#include <array>

#include "Base/PathText.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "Platform/Machine/OperatingSystem.h"
#include "StorageEngine/Places/DesktopFolders.h"

namespace tidyro {

namespace {

/// No tool keeps its home in them.
constexpr auto systemRoots = std::to_array<std::string_view>(
    {"/System", "/Library", "/Applications", "/usr", "/bin", "/sbin", "/etc", "/private/etc",
     "/private/var/db", "/Volumes", "/cores", "/opt/homebrew",
     // Linux has these besides.
     "/boot", "/dev", "/lib", "/lib32", "/lib64", "/libx32", "/opt", "/proc", "/snap", "/srv",
     "/sys", "/var/cache", "/var/db", "/var/lib", "/var/log", "/var/spool"});

/// They hold all that a person has. What lies in them may be a home, they themselves are none.
constexpr auto broadFolders = std::to_array<std::string_view>(
    {"Desktop",        "Documents",    "Downloads",    "Movies",
     "Music",          "Pictures",     "Library",      "Videos",
     "Public",         "Templates",    ".config",      ".cache",
     ".local",         ".local/share", ".local/state", "Library/Application Support",
     "Library/Caches", "snap",         ".var",         ".var/app"});

bool exists(const std::string& path) { return platform::fileMetadata(path).has_value(); }

std::vector<std::string> componentsBelow(std::string_view path, std::string_view root) {
    std::vector<std::string> all;
    for (const std::string_view each : path::components(path::below(path, root))) {
        all.emplace_back(each);
    }
    return all;
}

} // namespace

std::string_view explanation(AIToolHomeRejection rejection) {
    switch (rejection) {
        using enum AIToolHomeRejection;
    case missing: return platform::systemText(SystemText::toolHomeNotFound);
    case notADirectory: return "That path is not a folder.";
    case symbolicLink:
        return "That folder is a link to somewhere else, so Tidyro only measures it and never "
               "cleans it.";
    case notOwnedByYou: return "That folder belongs to another user.";
    case unsafeLocation:
        return "That location is too broad or belongs to the system, so Tidyro will not treat it "
               "as a tool folder.";
    case notRecognized:
        return "That folder does not contain enough of what this tool writes, so Tidyro will not "
               "treat it as the tool's folder.";
    case insideProject: break;
    }
    return "That folder is inside a Git project, so Tidyro will not treat it as a tool folder. "
           "Project folders are checked under Your projects instead.";
}

bool AIToolHome::stillIdentified() const {
    const auto seen = platform::fileMetadata(url.path());
    return seen && seen->kind == platform::ItemKind::folder && seen->identity.device == deviceID &&
           seen->identity.inode == inode;
}

std::optional<AIToolLocation> AIToolHome::locate(const FileURL& at) const {
    const std::vector<AIToolExternalStore>& stores = layout().externalStores;
    for (std::size_t i = 0; i < stores.size(); ++i) {
        FileURL root = userHome.appendingFolder(stores[i].relativeToUserHome);
        if (!path::isInsideOrEqual(at.path(), root.path())) continue;
        // In a home that lies in the store, or takes its place, the home's own rules hold: they
        // know of conversations.
        if (path::isInsideOrEqual(url.path(), root.path()) &&
            path::isInsideOrEqual(at.path(), url.path())) {
            continue;
        }
        auto components = componentsBelow(at.path(), root.path());
        return AIToolLocation{.home = *this,
                              .place = {.storeIndex = i},
                              .rootURL = std::move(root),
                              .components = std::move(components)};
    }
    if (!path::isInsideOrEqual(at.path(), url.path())) return std::nullopt;
    return AIToolLocation{.home = *this,
                          .place = {.storeIndex = std::nullopt},
                          .rootURL = url,
                          .components = componentsBelow(at.path(), url.path())};
}

std::vector<std::pair<std::size_t, FileURL>> AIToolHome::validExternalStores() const {
    std::vector<std::pair<std::size_t, FileURL>> valid;
    const std::vector<AIToolExternalStore>& stores = layout().externalStores;
    for (std::size_t i = 0; i < stores.size(); ++i) {
        FileURL root = userHome.appendingFolder(stores[i].relativeToUserHome);
        const auto seen = platform::fileMetadata(root.path());
        if (seen && seen->kind == platform::ItemKind::folder)
            valid.emplace_back(i, std::move(root));
    }
    return valid;
}

AIToolHomeDiscovery AIToolHomeDiscovery::ofThisPerson(FileURL userHome) {
    AIToolHomeDiscovery made{.userHome = std::move(userHome)};
    made.bases = BaseFolders::find(made.userHome);
    for (const AIToolLayout& layout : AIToolLayouts::all()) {
        if (layout.environmentVariable.empty()) continue;
        if (auto named = platform::folderNamedBy(layout.environmentVariable.c_str())) {
            made.environment.emplace(layout.environmentVariable, *std::move(named));
        }
    }
    return made;
}

bool AIToolHomeDiscovery::isAcceptableLocation(const FileURL& url) const {
    const std::string& place = url.path();
    if (path::isInsideOrEqual(userHome.path(), place)) return false; // "/" holds it as well
    const bool isBelowHome = path::isInsideOrEqual(place, userHome.path());
    // A home may itself lie below such a place, as "/var/home/ada" does.
    if (!isBelowHome && std::ranges::any_of(systemRoots, [&](std::string_view root) {
            return path::isInsideOrEqual(place, root);
        })) {
        return false;
    }
    const auto isPlace = [&](const FileURL& folder) { return folder.path() == place; };
    if (std::ranges::any_of(broadFolders, [&](std::string_view folder) {
            return isPlace(userHome.appendingFolder(folder));
        })) {
        return false;
    }
    if (!isBelowHome) return true;
    // In the person's own language they have other names. Where these cannot be read, any folder
    // directly inside the home may be one of them, unless it is hidden.
    const auto desktop = DesktopFolders::read(userHome);
    if (!desktop) {
        return url.parent().path() != userHome.path() || url.lastComponent().starts_with('.');
    }
    return std::ranges::none_of(desktop->personal, isPlace) &&
           std::ranges::none_of(desktop->downloads, isPlace);
}

bool AIToolHomeDiscovery::isInsideRepository(const FileURL& url) const {
    for (FileURL at = url; at.path() != "/" && at.path() != userHome.path(); at = at.parent()) {
        if (exists(path::joined(at.path(), ".git"))) return true;
    }
    return false;
}

std::expected<AIToolHome, AIToolHomeRejectionError>
AIToolHomeDiscovery::validate(const FileURL& url, AIToolID tool, AIToolHome::Source source) const {
    using enum AIToolHomeRejection;
    const auto reject = [](AIToolHomeRejection reason) {
        return std::unexpected(AIToolHomeRejectionError{reason});
    };
    const auto seen = platform::fileMetadata(url.path());
    if (!seen) return reject(missing);
    if (seen->kind == platform::ItemKind::link) return reject(symbolicLink);
    if (seen->kind != platform::ItemKind::folder) return reject(notADirectory);
    if (seen->ownerUserID != platform::currentUserID()) return reject(notOwnedByYou);
    if (!isAcceptableLocation(url)) return reject(unsafeLocation);
    if (isInsideRepository(url)) return reject(insideProject);
    const auto found = std::ranges::count_if(
        AIToolLayouts::layout(tool).homeMarkers, [&](const std::string& marker) {
            const auto item = platform::fileMetadata(path::joined(url.path(), marker));
            // What a link leads to may be anybody's.
            return item && item->kind != platform::ItemKind::link;
        });
    if (found < 2) return reject(notRecognized);
    return AIToolHome{.tool = tool,
                      .url = FileURL::folder(url.path()),
                      .deviceID = seen->identity.device,
                      .inode = seen->identity.inode,
                      .source = source,
                      .userHome = userHome};
}

std::vector<AIToolHomeCandidate>
AIToolHomeDiscovery::discover(std::span<const AIToolID> tools) const {
    using Source = AIToolHomeSource;
    std::vector<AIToolHomeCandidate> found;
    for (const AIToolID tool : tools) {
        const AIToolLayout& layout = AIToolLayouts::layout(tool);
        std::vector<std::pair<FileURL, Source>> places;
        const auto add = [&](FileURL url, Source source) {
            const auto isThere = [&](const auto& place) {
                return place.first.path() == url.path();
            };
            if (std::ranges::none_of(places, isThere)) places.emplace_back(std::move(url), source);
        };
        const auto addIfThere = [&](FileURL url) {
            if (exists(url.path())) add(std::move(url), Source::conventional);
        };
        const auto named = layout.environmentVariable.empty()
                               ? environment.end()
                               : environment.find(layout.environmentVariable);
        if (named != environment.end() && !named->second.empty()) {
            add(FileURL::folder(named->second), Source::environment);
        } else {
            add(userHome.appendingFolder(bases.moved(layout.homeRelativePath)),
                Source::conventional);
            // A program that does not follow the environment still writes to the usual place.
            addIfThere(userHome.appendingFolder(layout.homeRelativePath));
            for (const std::string& further : layout.furtherHomes) {
                addIfThere(userHome.appendingFolder(further));
            }
        }
        if (const auto customs = customHomes.find(tool); customs != customHomes.end()) {
            for (const FileURL& url : customs->second) add(url, Source::custom);
        }
        for (auto& [url, source] : places) {
            auto result = validate(url, tool, source);
            found.push_back({tool, std::move(url), source, std::move(result)});
        }
    }
    return found;
}

} // namespace tidyro

#include "StorageEngine/AITools/AIToolVersionState.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "Base/JSON.h"
#include "Base/PathText.h"
#include "Platform/Files/DurableFile.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderReading.h"

namespace tidyro {

namespace {

/// What applications ship is a few kilobytes.
constexpr std::size_t maxProductBytes = 4 << 20;

bool isDigit(char byte) { return byte >= '0' && byte <= '9'; }

std::string_view takePart(std::string_view& text) {
    const std::size_t end = std::min(text.find('.'), text.size());
    const std::string_view part = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return part;
}

std::strong_ordering compareNumbers(std::string_view a, std::string_view b) {
    a.remove_prefix(std::min(a.find_first_not_of('0'), a.size()));
    b.remove_prefix(std::min(b.find_first_not_of('0'), b.size()));
    if (a.size() != b.size()) return a.size() <=> b.size();
    return a <=> b;
}

std::strong_ordering compareParts(std::string_view a, std::string_view b) {
    const bool isANumber = std::ranges::all_of(a, isDigit);
    const bool isBNumber = std::ranges::all_of(b, isDigit);
    if (isANumber && isBNumber) return compareNumbers(a, b);
    if (isANumber != isBNumber) {
        return isANumber ? std::strong_ordering::greater : std::strong_ordering::less;
    }
    return a <=> b;
}

/// Nothing where the folder cannot be read whole.
std::optional<AIToolVersionState::Names> versionsIn(const std::string& folder) {
    const auto opened = platform::FolderDescriptor::openRoot(folder);
    if (!opened) return std::nullopt;
    AIToolVersionState::Names names;
    platform::FolderLister lister({.isAskedForFacts = false});
    lister.begin(*opened);
    while (const platform::FolderEntry* entry = lister.next()) {
        if (entry->type == platform::EntryType::link || entry->name.starts_with('.')) continue;
        names.emplace(entry->name);
    }
    if (lister.error().code != 0) return std::nullopt;
    return names;
}

AIToolVersionState allCurrent(const AIToolVersionState::Names& versions) {
    return {.versions = versions, .current = versions};
}

void addActive(AIToolVersionState& state, const FileURL& folder,
               const ToolActivitySnapshot& activity) {
    for (const std::string& name : state.versions) {
        if (activity.isActive(path::joined(folder.path(), name))) state.current.insert(name);
    }
}

/// The build that a product file names. The file is there; none when it does not say.
std::optional<std::string> buildNamedBy(const std::string& file) {
    const auto seen = platform::fileMetadata(file);
    if (!seen || seen->kind != platform::ItemKind::regularFile) return std::nullopt;
    const auto text = platform::readWholeFile(file, maxProductBytes);
    if (!text) return std::nullopt;
    const JSON product = JSON::parse(*text, nullptr, /*allow_exceptions=*/false);
    if (!product.is_object()) return std::nullopt;
    const auto commit = product.find("commit");
    if (commit == product.end() || !commit->is_string()) return std::nullopt;
    return commit->get<std::string>();
}

/// The folder at which an image is mounted from which the program runs, with its "/".
std::optional<std::string_view> imageOf(std::string_view program,
                                        std::span<const std::string> markers) {
    for (const std::string& marker : markers) {
        if (!marker.starts_with("/.mount_")) continue;
        const std::size_t at = program.find(marker);
        if (at == program.npos) continue;
        const std::size_t end = program.find('/', at + 1);
        if (end != program.npos) return program.substr(0, end + 1);
    }
    return std::nullopt;
}

std::string written(const std::string& path, const FileURL& home) {
    return path.starts_with("~/") ? path::joined(home.path(), path.substr(2)) : path;
}

} // namespace

std::strong_ordering AIToolVersionState::compareVersions(std::string_view a, std::string_view b) {
    const std::string_view numbersOfA = a.substr(0, a.find('-'));
    const std::string_view numbersOfB = b.substr(0, b.find('-'));
    std::string_view restA = numbersOfA;
    std::string_view restB = numbersOfB;
    while (!restA.empty() || !restB.empty()) {
        // A part that is missing counts as 0, so that "1.9" and "1.9.0" are one version.
        if (const auto order = compareParts(takePart(restA), takePart(restB)); order != 0) {
            return order;
        }
    }
    const bool isEarlyA = numbersOfA.size() != a.size();
    const bool isEarlyB = numbersOfB.size() != b.size();
    if (isEarlyA != isEarlyB) {
        return isEarlyA ? std::strong_ordering::less : std::strong_ordering::greater;
    }
    return a.substr(numbersOfA.size()) <=> b.substr(numbersOfB.size());
}

AIToolVersionState AIToolVersionState::compute(const FileURL& storeURL, const FileURL& launcherURL,
                                               const ToolActivitySnapshot& activity) {
    auto versions = versionsIn(storeURL.path());
    if (!versions || activity.isIncomplete) return allCurrent(versions.value_or(Names{}));
    const auto target = platform::realPath(launcherURL.path());
    const auto store = platform::realPath(storeURL.path());
    if (!target || !store || *target == *store || !path::isInsideOrEqual(*target, *store)) {
        return allCurrent(*versions);
    }
    const std::string_view below = path::below(*target, *store);
    const std::string launched(path::components(below).front());
    if (!versions->contains(launched)) return allCurrent(*versions);
    AIToolVersionState state{.versions = *std::move(versions), .current = {launched}};
    const auto newest = std::ranges::max_element(
        state.versions, [](const auto& a, const auto& b) { return compareVersions(a, b) < 0; });
    state.current.insert(*newest);
    // What has no version's name is no old version.
    for (const std::string& name : state.versions) {
        if (name.empty() || !isDigit(name.front())) state.current.insert(name);
    }
    addActive(state, storeURL, activity);
    return state;
}

AIToolVersionState AIToolVersionState::computeBuilds(const FileURL& rootURL,
                                                     std::span<const std::string> productFiles,
                                                     const ToolActivitySnapshot& activity) {
    auto versions = versionsIn(rootURL.path());
    if (!versions || activity.isIncomplete) return allCurrent(versions.value_or(Names{}));
    Names named;
    for (const std::string& file : productFiles) {
        const auto seen = platform::fileMetadata(file);
        if (!seen && (seen.error().code == ENOENT || seen.error().code == ENOTDIR)) continue;
        const auto build = buildNamedBy(file);
        if (!build || !versions->contains(*build)) return allCurrent(*versions);
        named.insert(*build);
    }
    if (named.empty()) return allCurrent(*versions);
    AIToolVersionState state{.versions = *std::move(versions), .current = std::move(named)};
    std::optional<Timestamp> newest;
    std::vector<std::string> newestNames; // dates may be equal
    for (const std::string& name : state.versions) {
        const auto seen = platform::fileMetadata(path::joined(rootURL.path(), name));
        const auto modified = seen ? seen->modified : std::nullopt;
        if (!modified) return allCurrent(state.versions);
        if (newest && *modified < *newest) continue;
        if (newest && *newest < *modified) newestNames.clear();
        newest = modified;
        newestNames.push_back(name);
    }
    state.current.insert(newestNames.begin(), newestNames.end());
    addActive(state, rootURL, activity);
    return state;
}

std::optional<AIToolVersionState>
AIToolVersionState::forBuildFolder(const AIToolLocation& at, const ToolActivitySnapshot& activity) {
    const AIToolLayout& layout = at.layout();
    if (at.place.storeIndex) {
        const AIToolExternalStore& store = layout.externalStores[*at.place.storeIndex];
        if (!store.kind.launcherRelativePath) return std::nullopt;
        return compute(at.rootURL, at.home.userHome.appending(*store.kind.launcherRelativePath),
                       activity);
    }
    const AIToolCandidateRoot* root = layout.rootOf(at.components);
    if (root == nullptr) return std::nullopt;
    const FileURL folder = at.rootURL.appendingFolder(root->relativePath);
    if (root->currentLink)
        return compute(folder, at.rootURL.appending(*root->currentLink), activity);
    if (!root->buildFolders) return std::nullopt;
    std::vector<std::string> files;
    for (const std::string& file : root->buildFolders->productFiles) {
        files.push_back(written(file, at.home.userHome));
    }
    for (const std::string& program : activity.executablePaths) {
        const auto image = imageOf(program, layout.runningAppMarkers);
        if (!image) continue;
        for (const std::string& file : root->buildFolders->productFilesInImage) {
            files.push_back(std::string(*image) + file);
        }
    }
    return computeBuilds(folder, files, activity);
}

} // namespace tidyro

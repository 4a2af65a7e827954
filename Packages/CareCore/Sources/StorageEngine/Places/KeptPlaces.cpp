#include "StorageEngine/Places/KeptPlaces.h"

#include <algorithm>
#include <array>
#include <set>

#include "Base/PathText.h"
#include "Base/UnicodeText.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "StorageEngine/Places/BaseFolders.h"
#include "StorageEngine/Places/HomeFolders.h"

namespace tidyro {

namespace {

constexpr std::string_view peoplesData =
    "This is data of yours, or of an application, that lies beside its caches.";
constexpr std::string_view ownHistory =
    "This is a history or a safety copy of your own work, which nothing makes again.";

/// One row: a place below the home, and why it stays. "*" stands for exactly one folder name.
struct Row {
    std::string_view pattern;
    std::string_view reason;
    bool isStore = false;
    /// What has a folder with "cache" in its name further down is left to the rules.
    bool isExceptCaches = false;
};

consteval Row store(std::string_view pattern, std::string_view reason) {
    return {.pattern = pattern, .reason = reason, .isStore = true};
}
consteval Row profiles(std::string_view pattern) {
    return {.pattern = pattern, .reason = peoplesData, .isExceptCaches = true};
}

constexpr std::string_view byUv = "Only uv may shrink its cache: uv cache prune";
constexpr std::string_view byHuggingFace =
    "Only its owner may shrink this store: hf cache ls, then hf cache rm or hf cache prune";
constexpr std::string_view byProjects = "These are model weights. Remove unused checkpoints from "
                                        "inside the project that downloaded them";
constexpr std::string_view byOllama =
    "Only Ollama may shrink its store: ollama list, then ollama rm <model>";
constexpr std::string_view byDocker =
    "Only Docker may shrink its store: docker system df, then docker system prune";
constexpr std::string_view byConda = "Only conda may shrink its packages: conda clean --all";
constexpr std::string_view byGo = "Only Go may shrink its modules: go clean -modcache";
constexpr std::string_view byPreCommit = "Only pre-commit may shrink its store: pre-commit gc";
constexpr std::string_view byCcache = "Only ccache may shrink its cache: ccache --cleanup";

constexpr auto rowsOfHome = std::to_array<Row>({
    {".var/app/*/data", peoplesData},
    {".var/app/*/config", peoplesData},
    {".var/app/*/.mozilla", peoplesData},
    {".var/app/*/.thunderbird", peoplesData},
    {".cache/*/swap", ownHistory},
    {".cache/*/undo", ownHistory},
    {".cache/*/undodir", ownHistory},
    {".cache/*/backup", ownHistory},
    {".cache/*/backups", ownHistory},
    {".cache/*/auto-save", ownHistory},

    profiles(".aws"),
    profiles(".config/google-chrome"),
    profiles(".config/google-chrome-beta"),
    profiles(".config/chromium"),
    profiles(".config/BraveSoftware"),
    profiles(".config/microsoft-edge"),
    profiles(".config/vivaldi"),
    profiles(".config/opera"),
    profiles("snap/chromium/common/chromium"),

    store(".cache/uv", byUv),
    store(".local/share/uv", "Only uv may shrink what it installed: uv cache prune"),
    store(".cache/huggingface", byHuggingFace),
    store(".cache/torch", byProjects),
    store(".ollama/models", byOllama),
    store(".docker/desktop", byDocker),
    store(".local/share/docker", byDocker),
    store(".local/share/containers",
          "Only Podman may shrink its store: podman system df, then podman system prune"),
    store(".local/share/flatpak", "Only Flatpak may shrink its store: flatpak uninstall --unused"),
    store(".local/share/pnpm/store", "Only pnpm may shrink its store: pnpm store prune"),
    store(".conda/pkgs", byConda),
    store("miniconda3/pkgs", byConda),
    store("miniforge3/pkgs", byConda),
    store("anaconda3/pkgs", byConda),
    store("go/pkg/mod", byGo),
    store(".cache/pre-commit", byPreCommit),
    store(".cache/ccache", byCcache),
    store(".ccache", byCcache),
});

/// Where the environment puts a store that usually lies in the home.
struct NamedStore {
    const char* variable;
    std::string_view reason;
};
constexpr auto namedStores = std::to_array<NamedStore>({
    {"UV_CACHE_DIR", byUv},
    {"HF_HOME", byHuggingFace},
    {"HF_HUB_CACHE", byHuggingFace},
    {"TORCH_HOME", byProjects},
    {"OLLAMA_MODELS", byOllama},
    {"GOMODCACHE", byGo},
    {"PRE_COMMIT_HOME", byPreCommit},
    {"CCACHE_DIR", byCcache},
});

/// Whether a path has the components of a pattern, as far as both go.
bool isAlongPattern(std::string_view path, std::string_view pattern) {
    while (!path.empty() && !pattern.empty()) {
        const std::string_view name = path.substr(0, path.find('/'));
        const std::string_view wanted = pattern.substr(0, pattern.find('/'));
        if (wanted != "*" && wanted != name) return false;
        path.remove_prefix(std::min(name.size() + 1, path.size()));
        pattern.remove_prefix(std::min(wanted.size() + 1, pattern.size()));
    }
    return true;
}

std::size_t depthBelow(std::string_view path) {
    return static_cast<std::size_t>(std::ranges::count(path, '/')) + 1;
}

/// The beginning of a pattern by which its places are looked up: its first name, and the second
/// one where it is written.
std::string_view keyOf(std::string_view pattern) {
    const std::size_t first = std::min(pattern.find('/'), pattern.size());
    const std::size_t second = std::min(pattern.find('/', first + 1), pattern.size());
    const std::string_view key = pattern.substr(0, second);
    return key.ends_with("/*") ? pattern.substr(0, first) : key;
}

/// Whether some name of a path is accepted.
template <class Accept>
bool hasName(std::string_view path, Accept accept) {
    while (!path.empty()) {
        const std::string_view name = path.substr(0, path.find('/'));
        if (accept(name)) return true;
        path.remove_prefix(std::min(name.size() + 1, path.size()));
    }
    return false;
}

/// A vault of passwords, a wallet, what a shell remembers, or the mark beside what was built on
/// this machine, wherever it lies.
bool isPeoplesName(std::string_view name) {
    if (name == "wallet.dat" || name == "maven-metadata-local.xml") return true;
    if (name.ends_with(".kdbx") || name.ends_with(".kdb")) return true;
    if (!name.starts_with('.')) return false;
    return name.ends_with("_history") || name == ".histfile" || name == ".zhistory";
}

/// Whether a path below a profile lies in a cache. What is called a cache among extensions,
/// settings and the data of websites is none.
bool isInCacheOfProfile(std::string_view path) {
    const auto isCache = [](std::string_view name) {
        return name.find("cache") != std::string_view::npos && name.find('.', 1) == name.npos;
    };
    const auto isNone = [](std::string_view name) {
        return name == "extensions" || name == "user" || name == "service worker";
    };
    return hasName(path, isCache) && !hasName(path, isNone);
}

/// What editors and shells put into caches to keep work from getting lost.
bool isHistoryInCaches(std::string_view name) {
    constexpr std::array<std::string_view, 5> endings{"_history", ".swp", ".swo", ".un~", "~"};
    return (name.starts_with('#') && name.ends_with('#')) ||
           std::ranges::any_of(endings,
                               [&](std::string_view ending) { return name.ends_with(ending); });
}

constexpr std::array<std::string_view, 2> sandboxCaches{".var/app/*/cache", "snap/*/common/.cache"};

/// The part of a path that lies in the cache of one flatpak or snap; empty for any other path. The
/// path begins below the home.
std::string_view partInSandboxCache(std::string_view below) {
    for (const std::string_view cache : sandboxCaches) {
        if (!isAlongPattern(below, cache)) continue;
        for (std::size_t depth = depthBelow(cache); depth > 0; --depth) {
            const std::size_t end = below.find('/');
            if (end == std::string_view::npos) return {};
            below.remove_prefix(end + 1);
        }
        return below;
    }
    return {};
}

/// Editors keep a person's own history of changes in a folder of this name.
bool isLocalHistory(std::string_view name) { return name == "localhistory"; }

} // namespace

KeptPlaces::KeptPlaces(const FileURL& home, OperatingSystem system)
    : homePrefix_(lowercased(home.path())), homeDepth_(path::components(home.path()).size()) {
    if (!homePrefix_.ends_with('/')) homePrefix_ += '/';
    std::vector<std::string> belowHome; // short, since all share the home
    for (const FileURL& folder : HomeFolders::protectedFolders(home)) {
        folders_.push_back(lowercased(folder.path()));
        const std::string_view path = folders_.back();
        if (path.starts_with(homePrefix_)) belowHome.emplace_back(path.substr(homePrefix_.size()));
        isHomeInFolders_ = isHomeInFolders_ || path::isInsideOrEqual(lowercased(home.path()), path);
    }
    inFolders_ = RootPathIndex(belowHome);
    const BaseFolders bases = BaseFolders::ofKeptPlaces(home);
    // Where the environment has moved a base folder, the usual place may still hold older data.
    for (const Row& row : rowsOfHome) {
        for (const std::string& moved :
             std::set{std::string(row.pattern), bases.moved(row.pattern)}) {
            const std::string place = lowercased(moved);
            places_[std::string(keyOf(place))].push_back({.pattern = place,
                                                          .depth = depthBelow(place),
                                                          .reason = row.reason,
                                                          .isStore = row.isStore,
                                                          .isExceptCaches = row.isExceptCaches});
        }
    }
    addStores(home);
    if (system == OperatingSystem::linux_) {
        for (const std::string& support :
             std::set<std::string>{".config", bases.settings, ".local/share", bases.data}) {
            supportPrefixes_.push_back(homePrefix_ + lowercased(support) + "/");
        }
    }
    for (const std::string& caches : std::set<std::string>{".cache", bases.caches}) {
        cachePrefixes_.push_back(homePrefix_ + lowercased(caches) + "/");
    }
}

void KeptPlaces::addStores(const FileURL& home) {
    stores_.push_back(
        {.path = "/nix", .reason = "Only Nix may shrink its store: nix-collect-garbage"});
    for (const NamedStore& named : namedStores) {
        const auto folder = platform::folderNamedBy(named.variable);
        if (!folder) continue;
        std::string path = path::standardized(*folder);
        // Whoever names the home as a store has mistaken the variable for another.
        if (path::isInsideOrEqual(home.path(), path)) continue;
        stores_.push_back({.path = lowercased(path), .reason = named.reason});
    }
}

bool KeptPlaces::isInCaches(std::string_view loweredPath) const {
    return std::ranges::any_of(
        cachePrefixes_, [&](const std::string& caches) { return loweredPath.starts_with(caches); });
}

const KeptPlaces::Place* KeptPlaces::placeOf(std::string_view below) const {
    const std::size_t depth = depthBelow(below);
    const Place* store = nullptr;
    for (const std::string_view key : {below.substr(0, below.find('/')), keyOf(below)}) {
        const auto known = places_.find(key);
        if (known == places_.end()) continue;
        for (const Place& place : known->second) {
            if (depth < place.depth || !isAlongPattern(below, place.pattern)) continue;
            if (place.isExceptCaches && isInCacheOfProfile(below.substr(place.pattern.size()))) {
                continue;
            }
            // A rule may be about what lies in a store, and about no other place.
            if (!place.isStore) return &place;
            if (store == nullptr) store = &place;
        }
    }
    return store;
}

std::string_view KeptPlaces::reasonByName(std::string_view name, bool isCached) {
    if (isPeoplesName(name)) return peoplesData;
    if (isLocalHistory(name) || (isCached && isHistoryInCaches(name))) return ownHistory;
    return {};
}

std::optional<KeptPlaces::Found> KeptPlaces::find(std::string_view loweredPath) const {
    for (const Store& store : stores_) {
        if (path::isInsideOrEqual(loweredPath, store.path)) {
            return Found{.reason = store.reason, .storeDepth = depthBelow(store.path) - 1};
        }
    }
    if (!loweredPath.starts_with(homePrefix_)) return std::nullopt;
    const std::string_view below = loweredPath.substr(homePrefix_.size());
    const bool isCached = isInCaches(loweredPath);
    std::string_view reason;
    const bool isKept = hasName(below, [&](std::string_view name) {
        reason = reasonByName(name, isCached);
        return !reason.empty();
    });
    if (isKept) return Found{.reason = reason};
    if (isHomeInFolders_ || inFolders_.contains(below)) return Found{.reason = peoplesData};
    // To the program in a flatpak or snap its cache is what ".cache" is to others.
    if (const std::string_view inSandbox = partInSandboxCache(below); !inSandbox.empty()) {
        auto found = find(cachePrefixes_.front() + std::string(inSandbox));
        if (found && found->storeDepth)
            *found->storeDepth += depthBelow(below) - depthBelow(inSandbox) - 1;
        return found;
    }
    const Place* place = placeOf(below);
    if (place == nullptr) return std::nullopt;
    if (!place->isStore) return Found{.reason = place->reason};
    return Found{.reason = place->reason, .storeDepth = homeDepth_ + place->depth};
}

std::optional<KeptPlaces::Found> KeptPlaces::findByName(std::string_view loweredPath) const {
    const std::string_view reason =
        reasonByName(path::lastComponent(loweredPath), isInCaches(loweredPath));
    return reason.empty() ? std::nullopt : std::optional(Found{.reason = reason});
}

bool KeptPlaces::isDecidedByNamesIn(std::string_view loweredFolder) const {
    if (!loweredFolder.starts_with(homePrefix_) || find(loweredFolder)) return false;
    const std::string_view below = loweredFolder.substr(homePrefix_.size());
    const auto liesInIt = [&](std::string_view place) {
        return path::isInsideOrEqual(place, loweredFolder);
    };
    const auto isAlong = [&](std::string_view pattern) { return isAlongPattern(below, pattern); };
    const auto isAlongAny = [&](const auto& places) {
        return std::ranges::any_of(places.second, isAlong, &Place::pattern);
    };
    // The folder of the caches is in no cache itself, so its name was not asked as theirs are.
    return isInCaches(loweredFolder) == isInCaches(std::string(loweredFolder) + "/") &&
           std::ranges::none_of(stores_, liesInIt, &Store::path) &&
           std::ranges::none_of(folders_, liesInIt) &&
           std::ranges::none_of(sandboxCaches, isAlong) &&
           std::ranges::none_of(places_, isAlongAny);
}

KeptPlaces::Touch KeptPlaces::touch(std::string_view loweredPath) const {
    if (const auto found = find(loweredPath); found && !found->storeDepth) return Touch::isIn;
    if (!loweredPath.starts_with(homePrefix_)) return Touch::nothing;
    if (path::isOrHoldsAny(loweredPath, folders_)) return Touch::holds;
    const std::string_view below = loweredPath.substr(homePrefix_.size());
    const auto mayBeHeld = [&](const Place& place) {
        // Any cache might hold an editor's safety copies; whether it does, its contents tell.
        const bool isPlain = !place.isStore && place.reason != ownHistory;
        return isPlain && depthBelow(below) < place.depth && isAlongPattern(below, place.pattern);
    };
    const bool holds = std::ranges::any_of(
        places_, [&](const auto& one) { return std::ranges::any_of(one.second, mayBeHeld); });
    return holds ? Touch::holds : Touch::nothing;
}

bool KeptPlaces::isAmongCaches(std::string_view loweredPath) const {
    if (isInCaches(loweredPath)) return true;
    if (!loweredPath.starts_with(homePrefix_)) return false;
    const std::string_view below = loweredPath.substr(homePrefix_.size());
    return below.starts_with(".var/") || below.starts_with("snap/");
}

bool KeptPlaces::isKeptName(std::string_view loweredName) {
    return isLocalHistory(loweredName) || isPeoplesName(loweredName);
}

bool KeptPlaces::isApplicationSupport(std::string_view loweredPath) const {
    return std::ranges::any_of(supportPrefixes_, [&](const std::string& prefix) {
        return loweredPath.starts_with(prefix);
    });
}

} // namespace tidyro

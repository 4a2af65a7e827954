#include "StorageEngine/DeveloperStores/DeveloperStoreInventory.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <variant>

#include "Base/PathText.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "StorageEngine/DiskTree/DiskTreeScanner.h"
#include "StorageEngine/Places/BaseFolders.h"

namespace tidyro {

namespace {

using Kind = DeveloperStoreKind;

/// How a place is found. Each kind has several, tried in the order of the table.
enum class Way : std::uint8_t {
    variable,  ///< below the folder that a variable names
    belowHome, ///< below the home, and where the environment moves the base folder to
    ofSystem,  ///< one for the whole computer
};
enum class On : std::uint8_t { everySystem, linuxOnly };

struct PlaceRow {
    Kind kind;
    Way way;
    std::string_view text;       ///< the variable, or the path
    std::string_view below = {}; ///< what comes after the folder of a variable
    On on = On::everySystem;
};

constexpr auto placeRows = std::to_array<PlaceRow>({
    {Kind::uvCache, Way::variable, "UV_CACHE_DIR"},
    {Kind::uvCache, Way::variable, "XDG_CACHE_HOME", "uv"},
    {Kind::uvCache, Way::belowHome, ".cache/uv"},
    {Kind::uvCache, Way::belowHome, "Library/Caches/uv"},
    {Kind::huggingFaceHub, Way::variable, "HF_HUB_CACHE"},
    {Kind::huggingFaceHub, Way::variable, "HF_HOME", "hub"},
    {Kind::huggingFaceHub, Way::belowHome, ".cache/huggingface/hub"},
    {Kind::torchHub, Way::variable, "TORCH_HOME"},
    {Kind::torchHub, Way::belowHome, ".cache/torch"},
    {Kind::ollamaModels, Way::variable, "OLLAMA_MODELS"},
    {Kind::ollamaModels, Way::belowHome, ".ollama/models"},
    {Kind::ollamaModels, Way::ofSystem, "usr/share/ollama/.ollama/models", "", On::linuxOnly},
    {Kind::ollamaModels, Way::ofSystem, "var/lib/ollama", "", On::linuxOnly},
    {Kind::dockerDiskImage, Way::belowHome,
     "Library/Containers/com.docker.docker/Data/vms/0/data/Docker.raw"},
    {Kind::dockerDiskImage, Way::belowHome, ".docker/desktop/vms/0/data/Docker.raw", "",
     On::linuxOnly},
    {Kind::pnpmStore, Way::belowHome, ".local/share/pnpm/store", "", On::linuxOnly},
    {Kind::condaPackages, Way::belowHome, ".conda/pkgs", "", On::linuxOnly},
    {Kind::condaPackages, Way::belowHome, "miniconda3/pkgs", "", On::linuxOnly},
    {Kind::condaPackages, Way::belowHome, "miniforge3/pkgs", "", On::linuxOnly},
    {Kind::condaPackages, Way::belowHome, "anaconda3/pkgs", "", On::linuxOnly},
    {Kind::goModules, Way::variable, "GOMODCACHE", "", On::linuxOnly},
    {Kind::goModules, Way::belowHome, "go/pkg/mod", "", On::linuxOnly},
    {Kind::podmanStorage, Way::belowHome, ".local/share/containers/storage", "", On::linuxOnly},
    {Kind::rootlessDocker, Way::belowHome, ".local/share/docker", "", On::linuxOnly},
    {Kind::flatpakUser, Way::belowHome, ".local/share/flatpak", "", On::linuxOnly},
    {Kind::preCommit, Way::variable, "PRE_COMMIT_HOME", "", On::linuxOnly},
    {Kind::preCommit, Way::belowHome, ".cache/pre-commit", "", On::linuxOnly},
    {Kind::nixStore, Way::ofSystem, "nix/store", "", On::linuxOnly},
    {Kind::ccache, Way::variable, "CCACHE_DIR", "", On::linuxOnly},
    {Kind::ccache, Way::belowHome, ".cache/ccache", "", On::linuxOnly},
    {Kind::ccache, Way::belowHome, ".ccache", "", On::linuxOnly},
});

/// The variables that move whole base folders.
constexpr std::array<const char*, 3> baseVariables{"XDG_CACHE_HOME", "XDG_CONFIG_HOME",
                                                   "XDG_DATA_HOME"};

std::optional<std::string> absoluteFolder(const DeveloperStoreInventory::Environment& environment,
                                          std::string_view variable) {
    const auto found = environment.find(std::string(variable));
    if (found == environment.end() || !found->second.starts_with('/')) return std::nullopt;
    return path::standardized(found->second);
}

/// A place at which something lies.
struct FoundStore {
    DeveloperStoreLocation location;
    std::string realPath;
    /// None when the system does not let us look.
    std::optional<platform::FileMetadata> seen;
    std::set<std::string> toldInside = {}; ///< real paths of stores of this kind that it holds
};

/// What is at a place; none when it is not what a store of this kind is.
std::optional<FoundStore> findStore(const DeveloperStoreLocation& location) {
    const auto closed = [&] {
        return FoundStore{.location = location, .realPath = location.url.path(), .seen = {}};
    };
    // The way to a store may hold links: people move large folders to another disk.
    const auto real = platform::realPath(location.url.path());
    if (!real) {
        const int code = real.error().code;
        const bool isAbsent =
            code == ENOENT || code == ENOTDIR || code == ELOOP || code == ENAMETOOLONG;
        return isAbsent ? std::nullopt : std::optional(closed());
    }
    const auto seen = platform::fileMetadata(*real);
    if (!seen && seen.error().code == ENOENT) return std::nullopt;
    if (!seen) return closed();
    const auto wanted = location.kind == Kind::dockerDiskImage ? platform::ItemKind::regularFile
                                                               : platform::ItemKind::folder;
    if (seen->kind != wanted) return std::nullopt;
    return FoundStore{.location = location, .realPath = *real, .seen = *seen};
}

bool isOrHoldsHome(const FoundStore& store, const FileURL& home) {
    const auto realHome = platform::realPath(home.path());
    return path::isInsideOrEqual(home.path(), store.realPath) ||
           (realHome && path::isInsideOrEqual(*realHome, store.realPath));
}

bool isIn(const FoundStore& store, const FoundStore& other) {
    return store.location.kind == other.location.kind &&
           path::isInsideOrEqual(store.realPath, other.realPath);
}

/// Whether a store is told with another one already.
bool isToldWith(const FoundStore& store, const FoundStore& other) {
    if (!store.seen || !other.seen) return false;
    return store.seen->identity == other.seen->identity || isIn(store, other);
}

void addFiles(const DiskTree& tree, DeveloperStoreMeasurement& store) {
    const DiskTree::Columns& columns = tree.columns();
    std::uint32_t newest = 0;
    for (std::size_t i = 0; i < columns.flags.size(); ++i) {
        const DiskTreeFlags flags = columns.flags[i];
        if (flags.contains(DiskTreeFlags::directory) || flags.contains(DiskTreeFlags::symlink) ||
            flags.contains(DiskTreeFlags::extraHardLink)) {
            continue;
        }
        ++store.fileCount;
        newest = std::max(newest, columns.modified[i]);
    }
    if (store.fileCount > 0) {
        store.newestModification = Timestamp::since1970(static_cast<double>(newest));
    }
}

std::expected<DeveloperStoreMeasurement, CancellationError>
measureFound(const FoundStore& found, const CancelToken& cancel) {
    if (cancel.stop_requested()) return std::unexpected(CancellationError{});
    DeveloperStoreMeasurement store{.kind = found.location.kind, .url = found.location.url};
    if (!found.seen) {
        store.isPartial = true;
        return store;
    }
    if (found.seen->kind == platform::ItemKind::regularFile) {
        store.logicalByteCount = found.seen->byteCount;
        store.allocatedByteCount = found.seen->allocatedBytes;
        store.fileCount = 1;
        store.newestModification = found.seen->modified;
        return store;
    }
    DiskTreeScanner scanner;
    scanner.skipping = found.toldInside;
    scanner.carryingLast = carryingLastOf(store.kind);
    const auto tree = scanner.scan(FileURL::folder(found.realPath), nullptr, cancel);
    if (!tree) {
        if (std::holds_alternative<CancellationError>(tree.error())) {
            return std::unexpected(CancellationError{});
        }
        store.isPartial = true;
        return store;
    }
    store.logicalByteCount = tree->size(DiskTree::root, {.onDisk = false});
    store.allocatedByteCount = tree->size(DiskTree::root, {.onDisk = true});
    store.isPartial = tree->deniedCount() > 0;
    addFiles(*tree, store);
    store.largestUnits = largestStoreUnits(store.kind, *tree, cancel);
    if (cancel.stop_requested()) return std::unexpected(CancellationError{});
    return store;
}

} // namespace

DeveloperStoreInventory DeveloperStoreInventory::ofThisProcess(const FileURL& home) {
    DeveloperStoreInventory inventory{.userHome = home};
    const auto add = [&](const std::string& variable) {
        if (auto folder = platform::folderNamedBy(variable.c_str())) {
            inventory.environment[variable] = *std::move(folder);
        }
    };
    for (const char* variable : baseVariables) add(variable);
    for (const PlaceRow& row : placeRows) {
        if (row.way == Way::variable) add(std::string(row.text));
    }
    return inventory;
}

std::vector<DeveloperStoreLocation> DeveloperStoreInventory::locations() const {
    const bool isLinux = system == OperatingSystem::linux_;
    BaseFolders bases;
    if (isLinux) {
        bases = BaseFolders::chosen(userHome,
                                    {.caches = absoluteFolder(environment, baseVariables[0]),
                                     .settings = absoluteFolder(environment, baseVariables[1]),
                                     .data = absoluteFolder(environment, baseVariables[2])});
    }
    std::vector<DeveloperStoreLocation> locations;
    const auto add = [&](Kind kind, const FileURL& top, std::string_view below) {
        DeveloperStoreLocation location{.kind = kind,
                                        .url = kind == Kind::dockerDiskImage
                                                   ? top.appending(below)
                                                   : top.appendingFolder(below)};
        if (std::ranges::find(locations, location) == locations.end()) {
            locations.push_back(std::move(location));
        }
    };
    for (const PlaceRow& row : placeRows) {
        if (row.on == On::linuxOnly && !isLinux) continue;
        switch (row.way) {
        case Way::variable:
            if (const auto folder = absoluteFolder(environment, row.text)) {
                add(row.kind, FileURL::folder(*folder), row.below);
            }
            break;
        case Way::belowHome:
            add(row.kind, userHome, bases.moved(row.text));
            add(row.kind, userHome, row.text); // what was there before it was moved
            break;
        case Way::ofSystem: add(row.kind, systemRoot, row.text); break;
        }
    }
    return locations;
}

std::expected<std::vector<DeveloperStoreMeasurement>, CancellationError>
DeveloperStoreInventory::measure(const OwnerPrograms& programs, const CancelToken& cancel) const {
    std::vector<FoundStore> found;
    for (const DeveloperStoreLocation& location : locations()) {
        auto store = findStore(location);
        if (!store || isOrHoldsHome(*store, userHome)) continue;
        const auto isTold = [&](const FoundStore& other) { return isToldWith(*store, other); };
        if (std::ranges::any_of(found, isTold)) continue;
        for (const FoundStore& other : found) {
            if (isIn(other, *store)) store->toldInside.insert(other.realPath);
        }
        found.push_back(*std::move(store));
    }
    std::vector<DeveloperStoreMeasurement> stores;
    for (const FoundStore& one : found) {
        auto store = measureFound(one, cancel);
        if (!store) return std::unexpected(store.error());
        if (!one.toldInside.empty() && store->fileCount == 0) continue; // no more than that
        store->isOwnerInstalled = programs.isInstalled(ownerProgram(store->kind));
        if (store->isOwnerInstalled || !isCommandOnlyForInstalled(store->kind)) {
            store->shownCommand = nativeCommand(store->kind);
        }
        stores.push_back(*std::move(store));
    }
    return stores;
}

std::expected<std::optional<DeveloperStoreMeasurement>, CancellationError>
DeveloperStoreInventory::measure(const DeveloperStoreLocation& location,
                                 const CancelToken& cancel) const {
    const auto found = findStore(location);
    if (!found || isOrHoldsHome(*found, userHome)) return std::nullopt;
    return measureFound(*found, cancel);
}

} // namespace tidyro

#include "StorageEngine/Sorting/KnownPlaces.h"

#include <algorithm>
#include <array>
#include <vector>

#include "Base/PathText.h"
#include "StorageEngine/Places/BaseFolders.h"

namespace tidyro {

namespace {

using enum KnownPlace::Unit;
using enum DiskGroup;

constexpr double tenMinutes = 600;
constexpr double hour = 3'600;
constexpr double aDay = 86'400;

/// The Finder's own files, in any folder.
constexpr std::array<std::string_view, 2> finderFiles{".DS_Store", ".localized"};

/// Caches that the system keeps for itself and refuses to give up.
constexpr std::array<std::string_view, 6> systemCaches{"CloudKit",
                                                       "FamilyCircle",
                                                       "com.apple.HomeKit",
                                                       "com.apple.homed",
                                                       "com.apple.containermanagerd",
                                                       "com.apple.ap.adprivacyd"};

/// Xcode does not build this one again by itself.
constexpr std::array<std::string_view, 1> compilationCache{"CompilationCache.noindex"};

/// The list of the simulators; without it all of them are lost.
constexpr std::array<std::string_view, 1> deviceSet{"device_set.plist"};

/// People's own data among the caches, and stores that only their owner may shrink.
constexpr std::array<std::string_view, 12> notInCaches{
    "uv",        "huggingface", "pre-commit", "ccache", "rclone", "deno",
    "evolution", "kioexec",     "obexd",      "zsh",    "bash",   "lm-studio"};

/// The places that macOS and both systems have. Those of Linux alone come behind them.
constexpr std::size_t placesEverywhere = 34;

constexpr std::array<KnownPlace, 44> knownPlaces{{
    {"caches", "Library/Caches", eachChild, applicationCaches, tenMinutes, systemCaches},
    {"sandboxed-caches", "Library/Containers/*/Data/Library/Caches", eachChild, sandboxedCaches,
     tenMinutes, systemCaches},
    {"logs", "Library/Logs", eachChild, logs, tenMinutes},
    {"derived-data", "Library/Developer/Xcode/DerivedData", eachChild, appleDeveloper, hour,
     compilationCache},
    {"ios-device-support", "Library/Developer/Xcode/iOS DeviceSupport", eachChild, appleDeveloper,
     aDay},
    {"watchos-device-support", "Library/Developer/Xcode/watchOS DeviceSupport", eachChild,
     appleDeveloper, aDay},
    {"tvos-device-support", "Library/Developer/Xcode/tvOS DeviceSupport", eachChild, appleDeveloper,
     aDay},
    {"simulator-caches", "Library/Developer/CoreSimulator/Caches", wholePlace, appleDeveloper,
     hour},
    {"simulator-devices", "Library/Developer/CoreSimulator/Devices", eachChild, appleDeveloper,
     aDay, deviceSet},
    {"npm-cache", ".npm/_cacache", wholePlace, packageCaches, tenMinutes},
    {"npx-cache", ".npm/_npx", wholePlace, packageCaches, tenMinutes},
    {"yarn-cache", "Library/Caches/Yarn", wholePlace, packageCaches, tenMinutes},
    {"yarn-berry-cache", ".yarn/berry/cache", wholePlace, packageCaches, tenMinutes},
    {"pnpm-store", "Library/pnpm/store", wholePlace, packageCaches, tenMinutes},
    {"pnpm-store-dot", ".pnpm-store", wholePlace, packageCaches, tenMinutes},
    {"pnpm-store-share", ".local/share/pnpm/store", wholePlace, packageCaches, tenMinutes},
    {"bun-cache", ".bun/install/cache", wholePlace, packageCaches, tenMinutes},
    {"cargo-registry", ".cargo/registry", wholePlace, packageCaches, tenMinutes},
    {"cargo-git", ".cargo/git", wholePlace, packageCaches, tenMinutes},
    {"gradle-caches", ".gradle/caches", wholePlace, packageCaches, tenMinutes},
    {"gradle-wrapper", ".gradle/wrapper/dists", wholePlace, packageCaches, tenMinutes},
    {"pip-cache", "Library/Caches/pip", wholePlace, packageCaches, tenMinutes},
    {"pip-cache-dot", ".cache/pip", wholePlace, packageCaches, tenMinutes},
    {"poetry-cache", "Library/Caches/pypoetry", wholePlace, packageCaches, tenMinutes},
    {"cocoapods-cache", "Library/Caches/CocoaPods", wholePlace, packageCaches, tenMinutes},
    {"go-mod-cache", "go/pkg/mod", wholePlace, packageCaches, tenMinutes},
    {"go-build-cache", "Library/Caches/go-build", wholePlace, packageCaches, tenMinutes},
    {"nuget-packages", ".nuget/packages", wholePlace, packageCaches, tenMinutes},
    {"composer-cache", "Library/Caches/composer", wholePlace, packageCaches, tenMinutes},
    {"composer-cache-dot", ".composer/cache", wholePlace, packageCaches, tenMinutes},
    {"playwright-browsers", "Library/Caches/ms-playwright", wholePlace, packageCaches, tenMinutes},
    {"swiftpm-cache", "Library/Caches/org.swift.swiftpm", wholePlace, packageCaches, tenMinutes},
    {"cocoapods-repos", ".cocoapods/repos", wholePlace, packageCaches, tenMinutes},
    {"torch-cache", ".cache/torch", eachChild, applicationCaches, tenMinutes},

    {"linux-caches", ".cache", eachChild, applicationCaches, tenMinutes, notInCaches},
    {"flatpak-caches", ".var/app/*/cache", wholePlace, sandboxedCaches, tenMinutes},
    {"snap-caches", "snap/*/common/.cache", wholePlace, sandboxedCaches, tenMinutes},
    {"steam-shaders", ".local/share/Steam/steamapps/shadercache", eachChild, applicationCaches,
     tenMinutes},
    {"maven-repository", ".m2/repository", wholePlace, packageCaches, tenMinutes},
    {"ivy-cache", ".ivy2/cache", wholePlace, packageCaches, tenMinutes},
    {"rustup-downloads", ".rustup/downloads", wholePlace, packageCaches, tenMinutes},
    {"android-cache", ".android/cache", wholePlace, packageCaches, tenMinutes},
    {"yay-builds", ".cache/yay", eachChild, packageCaches, hour},
    {"paru-builds", ".cache/paru/clone", eachChild, packageCaches, hour},
}};

constexpr auto componentCount(std::string_view pattern) {
    return std::ranges::count(pattern, '/') + 1;
}

constexpr auto starCount(std::string_view pattern) { return std::ranges::count(pattern, '*'); }

std::vector<const KnownPlace*> sortedBySpecificity(OperatingSystem system) {
    std::vector<const KnownPlace*> sorted;
    for (const KnownPlace& place : KnownPlaces::all(system)) sorted.push_back(&place);
    std::ranges::sort(sorted, [](const KnownPlace* a, const KnownPlace* b) {
        const auto more = componentCount(a->pattern) - componentCount(b->pattern);
        if (more != 0) return more > 0;
        const auto stars = starCount(a->pattern) - starCount(b->pattern);
        return stars != 0 ? stars < 0 : a < b; // both point into the list
    });
    return sorted;
}

/// Whether a path, given as its components below the home, is an item of the place or lies in one.
bool isInPlace(const KnownPlace& place, std::span<const std::string_view> path) {
    const auto pattern = path::components(place.pattern);
    if (path.size() < pattern.size()) return false;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (!isPatternMatch(pattern[i], path[i])) return false;
    }
    if (place.unit == wholePlace) return true;
    return path.size() > pattern.size() && !isExcludedChild(place, path[pattern.size()]);
}

} // namespace

bool isExcludedChild(const KnownPlace& place, std::string_view name) {
    return std::ranges::find(place.excludedChildren, name) != place.excludedChildren.end() ||
           std::ranges::find(finderFiles, name) != finderFiles.end();
}

std::span<const KnownPlace> KnownPlaces::all(OperatingSystem system) {
    const bool isLinux = system == OperatingSystem::linux_;
    return std::span(knownPlaces).first(isLinux ? knownPlaces.size() : placesEverywhere);
}

std::span<const KnownPlace* const> KnownPlaces::mostSpecificFirst(OperatingSystem system) {
    static const auto onMacOS = sortedBySpecificity(OperatingSystem::macOS);
    static const auto onLinux = sortedBySpecificity(OperatingSystem::linux_);
    return system == OperatingSystem::linux_ ? onLinux : onMacOS;
}

const KnownPlace* KnownPlaces::place(std::string_view id, OperatingSystem system) {
    const auto places = all(system);
    const auto found = std::ranges::find(places, id, &KnownPlace::id);
    return found == places.end() ? nullptr : &*found;
}

const KnownPlace* KnownPlaces::place(std::string_view path, const FileURL& home,
                                     OperatingSystem system) {
    const std::string wanted = path::standardized(path);
    if (!path::isInsideOrEqual(wanted, home.path())) return nullptr;
    std::string_view below = path::below(wanted, home.path());
    std::string named; // as the patterns name it
    if (platform::movedFolders() != platform::MovedFolders{}) {
        named = BaseFolders::find(home).named(below);
        below = named;
    }
    const auto components = path::components(below);
    for (const KnownPlace* place : mostSpecificFirst(system)) {
        if (isInPlace(*place, components)) return place;
    }
    return nullptr;
}

} // namespace tidyro

#include "StorageEngine/Rules/BuiltInRuleRegistry.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "Base/StableHash.h"

namespace tidyro {

namespace {

using enum CleanupCategory;

/// What a row says beside its place and age; plain rows say nothing.
enum Trait : std::uint8_t { plain = 0, highYield = 1, alwaysReviewed = 2 };

consteval CleanupRuleSpec rule(std::string_view id, std::string_view relativePath,
                               CleanupCategory category, int days, int traits = plain) {
    return {.id = id,
            .relativePath = relativePath,
            .category = category,
            .minimumAge = days * 86'400.0,
            .isHighYield = (traits & highYield) != 0,
            .alwaysNeedsReview = (traits & alwaysReviewed) != 0};
}

/// A rule of an application's support folder, which reaches no further than the caches in it.
consteval CleanupRuleSpec support(std::string_view id, std::string_view relativePath,
                                  CleanupCategory category, int days, int traits = plain) {
    CleanupRuleSpec spec = rule(id, relativePath, category, days, traits);
    spec.onlyInCacheFolders = true;
    return spec;
}

/// A rule whose folders were built on this machine when they hold a file by the name of `mark`.
consteval CleanupRuleSpec marked(CleanupRuleSpec spec, std::string_view mark) {
    spec.builtHereMark = mark;
    return spec;
}

/// The rows that name what macOS and both systems have.
constexpr std::size_t everywhere = 89;

constexpr std::array<CleanupRuleSpec, 172> specs{{
    // userLibrary
    rule("user-caches", "Library/Caches", regenerableCache, 14, highYield),
    rule("user-logs", "Library/Logs", expiredLog, 14),
    rule("diagnostic-reports", "Library/Logs/DiagnosticReports", expiredLog, 30),
    rule("dot-cache", ".cache", regenerableCache, 30, highYield | alwaysReviewed),
    rule("temporary-items", "Library/Caches/TemporaryItems", temporaryArtifact, 7),
    rule("saved-application-state", "Library/Saved Application State", appTemporaryData, 30,
         alwaysReviewed),
    rule("mail-downloads", "Library/Containers/com.apple.mail/Data/Library/Mail Downloads",
         appTemporaryData, 90, alwaysReviewed),
    rule("safari-cache", "Library/Caches/com.apple.Safari", regenerableCache, 3),
    rule("chrome-cache", "Library/Caches/Google/Chrome", regenerableCache, 3, highYield),
    rule("chromium-cache", "Library/Caches/Chromium", regenerableCache, 3),
    rule("firefox-cache", "Library/Caches/Firefox", regenerableCache, 3, highYield),
    rule("edge-cache", "Library/Caches/Microsoft Edge", regenerableCache, 3),
    rule("brave-cache", "Library/Caches/BraveSoftware", regenerableCache, 3),
    // appleDeveloper
    rule("xcode-derived-data", "Library/Developer/Xcode/DerivedData", regenerableCache, 14,
         highYield),
    rule("xcode-module-cache", "Library/Developer/Xcode/DerivedData/ModuleCache.noindex",
         regenerableCache, 14),
    rule("xcode-documentation-cache", "Library/Developer/Xcode/DocumentationCache",
         regenerableCache, 30),
    rule("xcode-products", "Library/Developer/Xcode/Products", temporaryArtifact, 30,
         alwaysReviewed),
    rule("ios-device-support", "Library/Developer/Xcode/iOS DeviceSupport", regenerableCache, 90,
         highYield | alwaysReviewed),
    rule("watchos-device-support", "Library/Developer/Xcode/watchOS DeviceSupport",
         regenerableCache, 90, alwaysReviewed),
    rule("tvos-device-support", "Library/Developer/Xcode/tvOS DeviceSupport", regenerableCache, 90,
         alwaysReviewed),
    rule("ios-device-logs", "Library/Developer/Xcode/iOS Device Logs", expiredLog, 30),
    rule("xcode-cache", "Library/Caches/com.apple.dt.Xcode", regenerableCache, 14),
    rule("simulator-caches", "Library/Developer/CoreSimulator/Caches", regenerableCache, 14,
         highYield),
    rule("simulator-logs", "Library/Logs/CoreSimulator", expiredLog, 14),
    rule("playground-devices", "Library/Developer/XCPGDevices", temporaryArtifact, 30,
         alwaysReviewed),
    rule("test-devices", "Library/Developer/XCTestDevices", temporaryArtifact, 30, alwaysReviewed),
    rule("swiftpm-cache", "Library/Caches/org.swift.swiftpm", regenerableCache, 30),
    // packageManagers
    rule("npm-cache", ".npm/_cacache", regenerableCache, 30, highYield),
    rule("npx-cache", ".npm/_npx", regenerableCache, 30),
    rule("npm-logs", ".npm/_logs", expiredLog, 14),
    rule("yarn-cache", "Library/Caches/Yarn", regenerableCache, 30, highYield),
    rule("yarn-berry-cache", ".yarn/berry/cache", regenerableCache, 30),
    rule("pnpm-store", "Library/pnpm/store", regenerableCache, 60, highYield | alwaysReviewed),
    rule("bun-cache", ".bun/install/cache", regenerableCache, 30),
    rule("deno-cache", "Library/Caches/deno", regenerableCache, 30),
    rule("cargo-registry-cache", ".cargo/registry/cache", regenerableCache, 30, highYield),
    rule("cargo-git-checkouts", ".cargo/git/checkouts", regenerableCache, 60),
    rule("gradle-caches", ".gradle/caches", regenerableCache, 30, highYield),
    rule("gradle-wrapper", ".gradle/wrapper/dists", regenerableCache, 60),
    rule("gradle-jdks", ".gradle/jdks", regenerableCache, 90),
    rule("gradle-daemon-logs", ".gradle/daemon", expiredLog, 14),
    rule("pip-cache-dot", ".cache/pip", regenerableCache, 30),
    rule("poetry-cache", "Library/Caches/pypoetry", regenerableCache, 30),
    rule("composer-cache", "Library/Caches/composer", regenerableCache, 30),
    rule("nuget-http-cache", ".local/share/NuGet/http-cache", regenerableCache, 60),
    rule("cocoapods-cache", "Library/Caches/CocoaPods", regenerableCache, 30),
    rule("homebrew-cache", "Library/Caches/Homebrew", regenerableCache, 14),
    rule("pip-cache", "Library/Caches/pip", regenerableCache, 30),
    rule("go-build-cache", "Library/Caches/go-build", regenerableCache, 14),
    rule("go-module-cache", "go/pkg/mod/cache/download", regenerableCache, 60),
    rule("ruby-gem-cache", ".gem/cache", regenerableCache, 60),
    rule("bundler-cache", ".bundle/cache", regenerableCache, 60, highYield),
    // infrastructure
    rule("docker-buildx-cache", ".docker/buildx/cache", regenerableCache, 14, alwaysReviewed),
    rule("containers-storage-tmp", ".local/share/containers/storage/tmp", temporaryArtifact, 7,
         alwaysReviewed),
    rule("kube-cache", ".kube/cache", regenerableCache, 14),
    rule("kube-http-cache", ".kube/http-cache", regenerableCache, 14),
    rule("terraform-cache", ".cache/terraform", regenerableCache, 30),
    rule("circleci-cache", ".circleci/cache", regenerableCache, 30),
    rule("gitlab-runner-cache", ".cache/gitlab-runner", regenerableCache, 30),
    rule("gcloud-logs", ".config/gcloud/logs", expiredLog, 30),
    rule("aws-cli-cache", ".aws/cli/cache", regenerableCache, 14),
    // aiTooling
    rule("puppeteer-browsers", ".cache/puppeteer", regenerableCache, 30),
    rule("node-cache", ".cache/node", regenerableCache, 30),
    rule("ollama-blob-partials", ".ollama/models/blobs/partial", temporaryArtifact, 7,
         alwaysReviewed),
    rule("opencode-cache", ".cache/opencode", regenerableCache, 14),
    rule("copilot-cache", "Library/Caches/com.github.CopilotForXcode", regenerableCache, 14),
    rule("apple-intelligence-cache", "Library/Caches/com.apple.generativeexperiences",
         regenerableCache, 14, highYield),
    // applicationSupportCacheHosts
    rule("chrome-support-caches", "Library/Application Support/Google/Chrome", regenerableCache, 3),
    rule("chromium-support-caches", "Library/Application Support/Chromium", regenerableCache, 3),
    rule("brave-support-caches", "Library/Application Support/BraveSoftware", regenerableCache, 3),
    rule("edge-support-caches", "Library/Application Support/Microsoft Edge", regenerableCache, 3),
    rule("vivaldi-support-caches", "Library/Application Support/Vivaldi", regenerableCache, 3),
    rule("opera-support-caches", "Library/Application Support/com.operasoftware.Opera",
         regenerableCache, 3),
    rule("arc-support-caches", "Library/Application Support/Arc", regenerableCache, 3),
    rule("zen-support-caches", "Library/Application Support/zen", regenerableCache, 3),
    rule("vscode-support-caches", "Library/Application Support/Code", regenerableCache, 7),
    rule("cursor-support-caches", "Library/Application Support/Cursor", regenerableCache, 7),
    rule("slack-support-caches", "Library/Application Support/Slack", regenerableCache, 7),
    rule("discord-support-caches", "Library/Application Support/discord", regenerableCache, 7),
    rule("spotify-support-caches", "Library/Application Support/Spotify", regenerableCache, 7),
    rule("figma-support-caches", "Library/Application Support/Figma", regenerableCache, 7),
    rule("notion-support-caches", "Library/Application Support/Notion", regenerableCache, 7),
    rule("obsidian-support-caches", "Library/Application Support/obsidian", regenerableCache, 7),
    rule("postman-support-caches", "Library/Application Support/Postman", regenerableCache, 7),
    rule("claude-desktop-support-caches", "Library/Application Support/Claude", regenerableCache, 7,
         highYield),
    // creativeSuites
    rule("adobe-media-cache-files", "Library/Application Support/Adobe/Common/Media Cache Files",
         regenerableCache, 30),
    rule("adobe-media-cache", "Library/Application Support/Adobe/Common/Media Cache",
         regenerableCache, 30),
    rule("adobe-peak-files", "Library/Application Support/Adobe/Common/Peak Files",
         regenerableCache, 30),
    rule("adobe-logs", "Library/Logs/Adobe", expiredLog, 30),
    // linuxBrowsers
    rule("linux-chrome-cache", ".cache/google-chrome", regenerableCache, 3, highYield),
    rule("linux-chromium-cache", ".cache/chromium", regenerableCache, 3, highYield),
    rule("linux-firefox-cache", ".cache/mozilla", regenerableCache, 3, highYield),
    rule("linux-brave-cache", ".cache/BraveSoftware", regenerableCache, 3),
    rule("linux-edge-cache", ".cache/microsoft-edge", regenerableCache, 3),
    rule("linux-vivaldi-cache", ".cache/vivaldi", regenerableCache, 3),
    rule("linux-opera-cache", ".cache/opera", regenerableCache, 3),
    rule("linux-librewolf-cache", ".cache/librewolf", regenerableCache, 3),
    rule("linux-thunderbird-cache", ".cache/thunderbird", regenerableCache, 14),
    rule("linux-epiphany-cache", ".cache/epiphany", regenerableCache, 3),
    // linuxDesktop
    rule("linux-thumbnails", ".cache/thumbnails", regenerableCache, 14, highYield),
    rule("linux-fontconfig", ".cache/fontconfig", regenerableCache, 30),
    rule("linux-gstreamer", ".cache/gstreamer-1.0", regenerableCache, 30),
    rule("linux-mesa-shaders", ".cache/mesa_shader_cache", regenerableCache, 14),
    rule("linux-mesa-shaders-db", ".cache/mesa_shader_cache_db", regenerableCache, 14),
    rule("linux-nvidia-compute", ".nv/ComputeCache", regenerableCache, 14),
    rule("linux-nvidia-shaders", ".cache/nvidia", regenerableCache, 14),
    rule("linux-spotify-cache", ".cache/spotify", regenerableCache, 30, highYield | alwaysReviewed),
    rule("linux-wine-downloads", ".cache/wine", regenerableCache, 60),
    rule("linux-winetricks-downloads", ".cache/winetricks", regenerableCache, 60,
         highYield | alwaysReviewed),
    rule("linux-steam-shaders", ".local/share/Steam/steamapps/shadercache", regenerableCache, 30,
         highYield),
    rule("linux-steam-shaders-debian", ".steam/debian-installation/steamapps/shadercache",
         regenerableCache, 30, highYield),
    rule("flatpak-steam-shaders",
         ".var/app/com.valvesoftware.Steam/.local/share/Steam/steamapps/shadercache",
         regenerableCache, 30, highYield),
    rule("linux-steam-logs", ".local/share/Steam/logs", expiredLog, 14),
    rule("linux-xorg-logs", ".local/share/xorg", expiredLog, 14),
    rule("flatpak-caches", ".var/app/*/cache", regenerableCache, 30, highYield | alwaysReviewed),
    rule("snap-caches", "snap/*/common/.cache", regenerableCache, 30, highYield | alwaysReviewed),
    rule("flatpak-firefox-cache", ".var/app/org.mozilla.firefox/cache/mozilla", regenerableCache, 3,
         highYield),
    rule("snap-firefox-cache", "snap/firefox/common/.cache/mozilla", regenerableCache, 3,
         highYield),
    rule("snap-chromium-cache", "snap/chromium/common/.cache/chromium", regenerableCache, 3,
         highYield),
    // linuxDevelopers
    rule("linux-go-build", ".cache/go-build", regenerableCache, 14, highYield),
    rule("linux-gopls", ".cache/gopls", regenerableCache, 14),
    rule("linux-golangci", ".cache/golangci-lint", regenerableCache, 14),
    rule("linux-yarn", ".cache/yarn", regenerableCache, 30, highYield),
    rule("linux-pnpm-metadata", ".cache/pnpm", regenerableCache, 30),
    rule("linux-node-gyp", ".cache/node-gyp", regenerableCache, 60),
    rule("linux-typescript", ".cache/typescript", regenerableCache, 30),
    rule("linux-electron", ".cache/electron", regenerableCache, 30),
    rule("linux-electron-builder", ".cache/electron-builder", regenerableCache, 30),
    rule("linux-playwright", ".cache/ms-playwright", regenerableCache, 30,
         highYield | alwaysReviewed),
    rule("linux-cypress", ".cache/Cypress", regenerableCache, 30, highYield | alwaysReviewed),
    rule("linux-deno", ".cache/deno", regenerableCache, 30),
    rule("linux-composer", ".cache/composer", regenerableCache, 30),
    rule("linux-poetry-downloads", ".cache/pypoetry/cache", regenerableCache, 30),
    rule("linux-poetry-artifacts", ".cache/pypoetry/artifacts", regenerableCache, 30),
    rule("linux-virtualenv-seeds", ".cache/virtualenv", regenerableCache, 60),
    rule("linux-pipenv", ".cache/pipenv", regenerableCache, 30),
    rule("linux-matplotlib", ".cache/matplotlib", regenerableCache, 60),
    rule("linux-black", ".cache/black", regenerableCache, 30),
    rule("linux-sccache", ".cache/sccache", regenerableCache, 30, highYield),
    rule("linux-bazel", ".cache/bazel", regenerableCache, 30, highYield | alwaysReviewed),
    rule("linux-bazelisk", ".cache/bazelisk", regenerableCache, 60),
    rule("linux-clangd", ".cache/clangd", regenerableCache, 30),
    rule("linux-cpptools", ".cache/vscode-cpptools", regenerableCache, 14, highYield),
    rule("linux-zig", ".cache/zig", regenerableCache, 30),
    rule("linux-coursier", ".cache/coursier", regenerableCache, 60, alwaysReviewed),
    rule("linux-ivy", ".ivy2/cache", regenerableCache, 60),
    marked(rule("linux-maven", ".m2/repository", regenerableCache, 90, highYield | alwaysReviewed),
           "maven-metadata-local.xml"),
    rule("linux-android-cache", ".android/cache", regenerableCache, 30),
    rule("linux-android-build-cache", ".android/build-cache", regenerableCache, 30),
    rule("linux-helm", ".cache/helm", regenerableCache, 30),
    rule("linux-trivy", ".cache/trivy", regenerableCache, 30),
    rule("linux-rustup-downloads", ".rustup/downloads", temporaryArtifact, 7),
    rule("linux-rustup-tmp", ".rustup/tmp", temporaryArtifact, 7),
    rule("linux-vagrant-tmp", ".vagrant.d/tmp", temporaryArtifact, 7, alwaysReviewed),
    rule("linux-jetbrains", ".cache/JetBrains", regenerableCache, 30, highYield | alwaysReviewed),
    // linuxApplicationCaches
    support("linux-chrome-support", ".config/google-chrome", regenerableCache, 3),
    support("linux-chromium-support", ".config/chromium", regenerableCache, 3),
    support("linux-brave-support", ".config/BraveSoftware", regenerableCache, 3),
    support("linux-edge-support", ".config/microsoft-edge", regenerableCache, 3),
    support("linux-vivaldi-support", ".config/vivaldi", regenerableCache, 3),
    support("linux-vscode-support", ".config/Code", regenerableCache, 7, highYield),
    support("linux-vscodium-support", ".config/VSCodium", regenerableCache, 7),
    support("linux-cursor-support", ".config/Cursor", regenerableCache, 7, highYield),
    support("linux-claude-desktop-support", ".config/Claude", regenerableCache, 7),
    support("linux-slack-support", ".config/Slack", regenerableCache, 7, highYield),
    support("linux-discord-support", ".config/discord", regenerableCache, 7, highYield),
    support("linux-teams-support", ".config/teams-for-linux", regenerableCache, 7),
    support("linux-signal-support", ".config/Signal", regenerableCache, 7),
    support("linux-element-support", ".config/Element", regenerableCache, 7),
    support("linux-obsidian-support", ".config/obsidian", regenerableCache, 7),
    support("linux-postman-support", ".config/Postman", regenerableCache, 7),
    support("linux-figma-support", ".config/figma-linux", regenerableCache, 7),
}};

constexpr std::size_t groupsEverywhere = 7;

constexpr std::array<CleanupRuleGroup, 11> groups{{
    {"userLibrary", std::span(specs).subspan(0, 13)},
    {"appleDeveloper", std::span(specs).subspan(13, 14)},
    {"packageManagers", std::span(specs).subspan(27, 25)},
    {"infrastructure", std::span(specs).subspan(52, 9)},
    {"aiTooling", std::span(specs).subspan(61, 6)},
    {"applicationSupportCacheHosts", std::span(specs).subspan(67, 18)},
    {"creativeSuites", std::span(specs).subspan(85, 4)},
    {"linuxBrowsers", std::span(specs).subspan(89, 10)},
    {"linuxDesktop", std::span(specs).subspan(99, 20)},
    {"linuxDevelopers", std::span(specs).subspan(119, 36)},
    {"linuxApplicationCaches", std::span(specs).subspan(155, 17)},
}};

constexpr std::array<BuiltInRuleRegistry::Title, 27> titles{{
    {"user-caches", "Application caches"},
    {"user-logs", "Application logs"},
    {"dot-cache", "Hidden cache folder"},
    {"xcode-derived-data", "Xcode derived data"},
    {"xcode-module-cache", "Xcode module cache"},
    {"xcode-documentation-cache", "Xcode documentation cache"},
    {"xcode-products", "Xcode products"},
    {"xcode-cache", "Xcode cache"},
    {"ios-device-support", "iOS device support"},
    {"watchos-device-support", "watchOS device support"},
    {"tvos-device-support", "tvOS device support"},
    {"ios-device-logs", "iOS device logs"},
    {"swiftpm-cache", "Swift package cache"},
    {"npm-cache", "npm cache"},
    {"npx-cache", "npx cache"},
    {"npm-logs", "npm logs"},
    {"pnpm-store", "pnpm store"},
    {"gradle-jdks", "Gradle JDKs"},
    {"pip-cache", "pip cache"},
    {"pip-cache-dot", "pip cache (hidden)"},
    {"nuget-http-cache", "NuGet downloads"},
    {"cocoapods-cache", "CocoaPods cache"},
    {"circleci-cache", "CircleCI cache"},
    {"gitlab-runner-cache", "GitLab Runner cache"},
    {"gcloud-logs", "Google Cloud logs"},
    {"aws-cli-cache", "AWS command line cache"},
    {"vscode-support-caches", "Visual Studio Code caches"},
}};

/// Lower-cased, as the paths are that they are looked for in.
constexpr std::array<std::string_view, 17> applicationSupportCacheDirectories{
    "cache",
    "caches",
    "cache_data",
    "code cache",
    "gpucache",
    "grshadercache",
    "shadercache",
    "dawncache",
    "dawngraphitecache",
    "dawnwebgpucache",
    "cacheddata",
    "cachedextensionvsixs",
    "component_crx_cache",
    "extensions_crx_cache",
    "media cache",
    "media cache files",
    "peak files"};
static_assert(tableHash(applicationSupportCacheDirectories) == 0xdf04'027c'1649'34f7);

/// What is called a cache in these is an extension's code, a person's settings, or a website's
/// data.
constexpr std::array<std::string_view, 3> foldersWithoutCaches{"extensions", "user",
                                                               "service worker"};

/// Whether some component of a path has the name of a cache folder. The last one counts only when
/// it is a folder.
bool isInCacheFolder(std::string_view rest, bool isFolder) {
    for (;;) {
        const std::size_t end = rest.find('/');
        if (end == std::string_view::npos && !isFolder) return false;
        if (std::ranges::find(applicationSupportCacheDirectories, rest.substr(0, end)) !=
            applicationSupportCacheDirectories.end()) {
            return true;
        }
        if (end == std::string_view::npos) return false;
        rest.remove_prefix(end + 1);
    }
}

} // namespace

std::span<const CleanupRuleGroup> BuiltInRuleRegistry::groupedSpecs(OperatingSystem system) {
    const bool isLinux = system == OperatingSystem::linux_;
    return std::span(groups).first(isLinux ? groups.size() : groupsEverywhere);
}

std::span<const CleanupRuleSpec> BuiltInRuleRegistry::allSpecs(OperatingSystem system) {
    const bool isLinux = system == OperatingSystem::linux_;
    return std::span(specs).first(isLinux ? specs.size() : everywhere);
}

const CleanupRuleSpec* BuiltInRuleRegistry::spec(std::string_view id, OperatingSystem system) {
    const auto rows = allSpecs(system);
    const std::string_view rowID = id.substr(0, id.find(':'));
    const auto found = std::ranges::find(rows, rowID, &CleanupRuleSpec::id);
    if (found == rows.end()) return nullptr;
    const bool isOfOneFolder = rowID.size() + 1 < id.size();
    return rowID != id && !(isOfOneFolder && isForEachFolder(*found)) ? nullptr : &*found;
}

std::span<const BuiltInRuleRegistry::Title> BuiltInRuleRegistry::titleOverrides() { return titles; }

std::string BuiltInRuleRegistry::title(std::string_view id) {
    const auto found = std::ranges::find(titles, id, &Title::id);
    if (found != titles.end()) return std::string(found->title);
    const std::size_t end = std::min(id.find(':'), id.size()); // behind it a folder's own name
    std::string title(id);
    std::replace(title.begin(), title.begin() + static_cast<std::ptrdiff_t>(end), '-', ' ');
    if (!title.empty() && title[0] >= 'a' && title[0] <= 'z') {
        title[0] = static_cast<char>(title[0] - 'a' + 'A');
    }
    if (end < title.size()) title.insert(end + 1, " ");
    return title;
}

bool BuiltInRuleRegistry::isApplicationSupportCache(std::string_view loweredPath, bool isFolder) {
    constexpr std::string_view support = "/library/application support/";
    const std::size_t at = loweredPath.find(support);
    if (at == std::string_view::npos) return false;
    const std::string_view rest = loweredPath.substr(at + support.size());
    const std::size_t end = rest.find('/'); // of the application's own folder
    return end != std::string_view::npos && isInCacheFolder(rest.substr(end + 1), isFolder);
}

bool BuiltInRuleRegistry::isCacheOnLinux(std::string_view loweredBelow, bool isFolder) {
    for (std::string_view rest = loweredBelow; !rest.empty();) {
        const std::string_view name = rest.substr(0, rest.find('/'));
        if (std::ranges::find(foldersWithoutCaches, name) != foldersWithoutCaches.end()) {
            return false;
        }
        rest.remove_prefix(std::min(name.size() + 1, rest.size()));
    }
    return isInCacheFolder(loweredBelow, isFolder);
}

} // namespace tidyro

#include "StorageEngine/Rules/BuiltInRuleRegistry.h"

#include <algorithm>
#include <array>

namespace tidyro {

namespace {

using enum CleanupCategory;

constexpr double day = 86'400;

constexpr std::array<CleanupRuleSpec, 89> specs{{
    // userLibrary
    {"user-caches", "Library/Caches", regenerableCache, 14 * day, true, false},
    {"user-logs", "Library/Logs", expiredLog, 14 * day, false, false},
    {"diagnostic-reports", "Library/Logs/DiagnosticReports", expiredLog, 30 * day, false, false},
    {"dot-cache", ".cache", regenerableCache, 30 * day, true, true},
    {"temporary-items", "Library/Caches/TemporaryItems", temporaryArtifact, 7 * day, false, false},
    {"saved-application-state", "Library/Saved Application State", appTemporaryData, 30 * day,
     false, true},
    {"mail-downloads", "Library/Containers/com.apple.mail/Data/Library/Mail Downloads",
     appTemporaryData, 90 * day, false, true},
    {"safari-cache", "Library/Caches/com.apple.Safari", regenerableCache, 3 * day, false, false},
    {"chrome-cache", "Library/Caches/Google/Chrome", regenerableCache, 3 * day, true, false},
    {"chromium-cache", "Library/Caches/Chromium", regenerableCache, 3 * day, false, false},
    {"firefox-cache", "Library/Caches/Firefox", regenerableCache, 3 * day, true, false},
    {"edge-cache", "Library/Caches/Microsoft Edge", regenerableCache, 3 * day, false, false},
    {"brave-cache", "Library/Caches/BraveSoftware", regenerableCache, 3 * day, false, false},
    // appleDeveloper
    {"xcode-derived-data", "Library/Developer/Xcode/DerivedData", regenerableCache, 14 * day, true,
     false},
    {"xcode-module-cache", "Library/Developer/Xcode/DerivedData/ModuleCache.noindex",
     regenerableCache, 14 * day, false, false},
    {"xcode-documentation-cache", "Library/Developer/Xcode/DocumentationCache", regenerableCache,
     30 * day, false, false},
    {"xcode-products", "Library/Developer/Xcode/Products", temporaryArtifact, 30 * day, false,
     true},
    {"ios-device-support", "Library/Developer/Xcode/iOS DeviceSupport", regenerableCache, 90 * day,
     true, true},
    {"watchos-device-support", "Library/Developer/Xcode/watchOS DeviceSupport", regenerableCache,
     90 * day, false, true},
    {"tvos-device-support", "Library/Developer/Xcode/tvOS DeviceSupport", regenerableCache,
     90 * day, false, true},
    {"ios-device-logs", "Library/Developer/Xcode/iOS Device Logs", expiredLog, 30 * day, false,
     false},
    {"xcode-cache", "Library/Caches/com.apple.dt.Xcode", regenerableCache, 14 * day, false, false},
    {"simulator-caches", "Library/Developer/CoreSimulator/Caches", regenerableCache, 14 * day, true,
     false},
    {"simulator-logs", "Library/Logs/CoreSimulator", expiredLog, 14 * day, false, false},
    {"playground-devices", "Library/Developer/XCPGDevices", temporaryArtifact, 30 * day, false,
     true},
    {"test-devices", "Library/Developer/XCTestDevices", temporaryArtifact, 30 * day, false, true},
    {"swiftpm-cache", "Library/Caches/org.swift.swiftpm", regenerableCache, 30 * day, false, false},
    // packageManagers
    {"npm-cache", ".npm/_cacache", regenerableCache, 30 * day, true, false},
    {"npx-cache", ".npm/_npx", regenerableCache, 30 * day, false, false},
    {"npm-logs", ".npm/_logs", expiredLog, 14 * day, false, false},
    {"yarn-cache", "Library/Caches/Yarn", regenerableCache, 30 * day, true, false},
    {"yarn-berry-cache", ".yarn/berry/cache", regenerableCache, 30 * day, false, false},
    {"pnpm-store", "Library/pnpm/store", regenerableCache, 60 * day, true, true},
    {"bun-cache", ".bun/install/cache", regenerableCache, 30 * day, false, false},
    {"deno-cache", "Library/Caches/deno", regenerableCache, 30 * day, false, false},
    {"cargo-registry-cache", ".cargo/registry/cache", regenerableCache, 30 * day, true, false},
    {"cargo-git-checkouts", ".cargo/git/checkouts", regenerableCache, 60 * day, false, false},
    {"gradle-caches", ".gradle/caches", regenerableCache, 30 * day, true, false},
    {"gradle-wrapper", ".gradle/wrapper/dists", regenerableCache, 60 * day, false, false},
    {"gradle-jdks", ".gradle/jdks", regenerableCache, 90 * day, false, false},
    {"gradle-daemon-logs", ".gradle/daemon", expiredLog, 14 * day, false, false},
    {"pip-cache-dot", ".cache/pip", regenerableCache, 30 * day, false, false},
    {"poetry-cache", "Library/Caches/pypoetry", regenerableCache, 30 * day, false, false},
    {"composer-cache", "Library/Caches/composer", regenerableCache, 30 * day, false, false},
    {"nuget-http-cache", ".local/share/NuGet/http-cache", regenerableCache, 60 * day, false, false},
    {"cocoapods-cache", "Library/Caches/CocoaPods", regenerableCache, 30 * day, false, false},
    {"homebrew-cache", "Library/Caches/Homebrew", regenerableCache, 14 * day, false, false},
    {"pip-cache", "Library/Caches/pip", regenerableCache, 30 * day, false, false},
    {"go-build-cache", "Library/Caches/go-build", regenerableCache, 14 * day, false, false},
    {"go-module-cache", "go/pkg/mod/cache/download", regenerableCache, 60 * day, false, false},
    {"ruby-gem-cache", ".gem/cache", regenerableCache, 60 * day, false, false},
    {"bundler-cache", ".bundle/cache", regenerableCache, 60 * day, true, false},
    // infrastructure
    {"docker-buildx-cache", ".docker/buildx/cache", regenerableCache, 14 * day, false, true},
    {"containers-storage-tmp", ".local/share/containers/storage/tmp", temporaryArtifact, 7 * day,
     false, true},
    {"kube-cache", ".kube/cache", regenerableCache, 14 * day, false, false},
    {"kube-http-cache", ".kube/http-cache", regenerableCache, 14 * day, false, false},
    {"terraform-cache", ".cache/terraform", regenerableCache, 30 * day, false, false},
    {"circleci-cache", ".circleci/cache", regenerableCache, 30 * day, false, false},
    {"gitlab-runner-cache", ".cache/gitlab-runner", regenerableCache, 30 * day, false, false},
    {"gcloud-logs", ".config/gcloud/logs", expiredLog, 30 * day, false, false},
    {"aws-cli-cache", ".aws/cli/cache", regenerableCache, 14 * day, false, false},
    // aiTooling
    {"puppeteer-browsers", ".cache/puppeteer", regenerableCache, 30 * day, false, false},
    {"node-cache", ".cache/node", regenerableCache, 30 * day, false, false},
    {"ollama-blob-partials", ".ollama/models/blobs/partial", temporaryArtifact, 7 * day, false,
     true},
    {"opencode-cache", ".cache/opencode", regenerableCache, 14 * day, false, false},
    {"copilot-cache", "Library/Caches/com.github.CopilotForXcode", regenerableCache, 14 * day,
     false, false},
    {"apple-intelligence-cache", "Library/Caches/com.apple.generativeexperiences", regenerableCache,
     14 * day, true, false},
    // applicationSupportCacheHosts
    {"chrome-support-caches", "Library/Application Support/Google/Chrome", regenerableCache,
     3 * day, false, false},
    {"chromium-support-caches", "Library/Application Support/Chromium", regenerableCache, 3 * day,
     false, false},
    {"brave-support-caches", "Library/Application Support/BraveSoftware", regenerableCache, 3 * day,
     false, false},
    {"edge-support-caches", "Library/Application Support/Microsoft Edge", regenerableCache, 3 * day,
     false, false},
    {"vivaldi-support-caches", "Library/Application Support/Vivaldi", regenerableCache, 3 * day,
     false, false},
    {"opera-support-caches", "Library/Application Support/com.operasoftware.Opera",
     regenerableCache, 3 * day, false, false},
    {"arc-support-caches", "Library/Application Support/Arc", regenerableCache, 3 * day, false,
     false},
    {"zen-support-caches", "Library/Application Support/zen", regenerableCache, 3 * day, false,
     false},
    {"vscode-support-caches", "Library/Application Support/Code", regenerableCache, 7 * day, false,
     false},
    {"cursor-support-caches", "Library/Application Support/Cursor", regenerableCache, 7 * day,
     false, false},
    {"slack-support-caches", "Library/Application Support/Slack", regenerableCache, 7 * day, false,
     false},
    {"discord-support-caches", "Library/Application Support/discord", regenerableCache, 7 * day,
     false, false},
    {"spotify-support-caches", "Library/Application Support/Spotify", regenerableCache, 7 * day,
     false, false},
    {"figma-support-caches", "Library/Application Support/Figma", regenerableCache, 7 * day, false,
     false},
    {"notion-support-caches", "Library/Application Support/Notion", regenerableCache, 7 * day,
     false, false},
    {"obsidian-support-caches", "Library/Application Support/obsidian", regenerableCache, 7 * day,
     false, false},
    {"postman-support-caches", "Library/Application Support/Postman", regenerableCache, 7 * day,
     false, false},
    {"claude-desktop-support-caches", "Library/Application Support/Claude", regenerableCache,
     7 * day, true, false},
    // creativeSuites
    {"adobe-media-cache-files", "Library/Application Support/Adobe/Common/Media Cache Files",
     regenerableCache, 30 * day, false, false},
    {"adobe-media-cache", "Library/Application Support/Adobe/Common/Media Cache", regenerableCache,
     30 * day, false, false},
    {"adobe-peak-files", "Library/Application Support/Adobe/Common/Peak Files", regenerableCache,
     30 * day, false, false},
    {"adobe-logs", "Library/Logs/Adobe", expiredLog, 30 * day, false, false},
}};

constexpr std::array<CleanupRuleGroup, 7> groups{{
    {"userLibrary", std::span(specs).subspan(0, 13)},
    {"appleDeveloper", std::span(specs).subspan(13, 14)},
    {"packageManagers", std::span(specs).subspan(27, 25)},
    {"infrastructure", std::span(specs).subspan(52, 9)},
    {"aiTooling", std::span(specs).subspan(61, 6)},
    {"applicationSupportCacheHosts", std::span(specs).subspan(67, 18)},
    {"creativeSuites", std::span(specs).subspan(85, 4)},
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

} // namespace

std::span<const CleanupRuleGroup> BuiltInRuleRegistry::groupedSpecs() { return groups; }

std::span<const CleanupRuleSpec> BuiltInRuleRegistry::allSpecs() { return specs; }

const CleanupRuleSpec* BuiltInRuleRegistry::spec(std::string_view id) {
    const auto found = std::ranges::find(specs, id, &CleanupRuleSpec::id);
    return found == specs.end() ? nullptr : &*found;
}

std::span<const BuiltInRuleRegistry::Title> BuiltInRuleRegistry::titleOverrides() { return titles; }

std::string BuiltInRuleRegistry::title(std::string_view id) {
    const auto found = std::ranges::find(titles, id, &Title::id);
    if (found != titles.end()) return std::string(found->title);
    std::string title(id);
    std::ranges::replace(title, '-', ' ');
    if (!title.empty() && title[0] >= 'a' && title[0] <= 'z') {
        title[0] = static_cast<char>(title[0] - 'a' + 'A');
    }
    return title;
}

bool BuiltInRuleRegistry::isApplicationSupportCache(std::string_view loweredPath, bool isFolder) {
    constexpr std::string_view support = "/library/application support/";
    const std::size_t at = loweredPath.find(support);
    if (at == std::string_view::npos) return false;
    std::string_view rest = loweredPath.substr(at + support.size());
    std::size_t end = rest.find('/'); // of the application's own folder
    while (end != std::string_view::npos) {
        rest.remove_prefix(end + 1);
        end = rest.find('/');
        if (end == std::string_view::npos && !isFolder) return false;
        if (std::ranges::find(applicationSupportCacheDirectories, rest.substr(0, end)) !=
            applicationSupportCacheDirectories.end()) {
            return true;
        }
    }
    return false;
}

} // namespace tidyro

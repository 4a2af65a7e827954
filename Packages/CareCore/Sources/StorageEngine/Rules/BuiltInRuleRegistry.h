#pragma once

#include <span>
#include <string>
#include <string_view>

#include "Base/SystemTexts.h"
#include "CareDomain/CleanupCategory.h"
#include "Platform/Machine/OperatingSystem.h"

namespace tidyro {

/// One shipped cleanup rule before it is bound to a home.
struct CleanupRuleSpec {
    std::string_view id; ///< unique, lower-case words joined by "-"
    /// Below the home, without a leading "/". A "*" stands for exactly one folder name: the row
    /// then makes a rule for each folder that is there.
    std::string_view relativePath;
    CleanupCategory category;
    double minimumAge;      ///< seconds; the rule does not clean an item that is younger
    bool isHighYield;       ///< the place usually frees much space and is offered first
    bool alwaysNeedsReview; ///< never cleaned without the person's explicit review
    /// The rule reaches only what lies in an application's cache folders (`isCacheOnLinux`).
    bool onlyInCacheFolders = false;
    /// The name of a file that its owner puts beside what was built on this machine, and which
    /// nobody can download again. Empty for most rules.
    std::string_view builtHereMark = {};
};

[[nodiscard]] constexpr bool isForEachFolder(const CleanupRuleSpec& spec) {
    return spec.relativePath.find('*') != std::string_view::npos;
}

/// Rules that belong together.
struct CleanupRuleGroup {
    std::string_view name;
    std::span<const CleanupRuleSpec> specs;
};

/// The shipped rules, before they are bound to a home: `BuiltInCleanupRules` binds them. Each names
/// material that its owner builds again when it is missing. Linux has groups of its own behind
/// those that name what macOS and both systems have. The tables are constant, so any thread may
/// read them.
struct BuiltInRuleRegistry {
    /// The groups of a system with their rows, in the order in which rules are tried and listed.
    [[nodiscard]] static std::span<const CleanupRuleGroup>
    groupedSpecs(OperatingSystem system = platform::operatingSystem());
    /// All rows of a system in group order.
    [[nodiscard]] static std::span<const CleanupRuleSpec>
    allSpecs(OperatingSystem system = platform::operatingSystem());
    /// The row of an id. A row for each folder has as many ids: its own, a ":" and the folder's
    /// name ("flatpak-caches:org.gimp.GIMP").
    [[nodiscard]] static const CleanupRuleSpec*
    spec(std::string_view id, OperatingSystem system = platform::operatingSystem());

    struct Title {
        std::string_view id;
        std::string_view title;
    };
    /// Titles for the rules whose id does not read well as one.
    [[nodiscard]] static std::span<const Title> titleOverrides();
    /// What people are shown: the override, or the id's words with a capital at the front
    /// ("cargo-registry-cache" is "Cargo registry cache").
    [[nodiscard]] static std::string title(std::string_view id);

    /// Whether a path is, or lies in, a cache that an application keeps among its support files.
    /// Such a cache is a folder with a name like "GPUCache" anywhere inside the application's own
    /// folder in "/Library/Application Support". The path is lower-cased; `isFolder` says whether
    /// a folder lies there.
    [[nodiscard]] static bool isApplicationSupportCache(std::string_view loweredPath,
                                                        bool isFolder);

    /// Whether an item lies in a cache of an application whose support folder is one of Linux's, or
    /// is such a cache. The path begins below that folder and is lower-cased. Nothing in a folder
    /// "Extensions", "User" or "Service Worker" counts.
    [[nodiscard]] static bool isCacheOnLinux(std::string_view loweredBelow, bool isFolder);
};

} // namespace tidyro

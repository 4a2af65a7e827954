#pragma once

#include <span>
#include <string>
#include <string_view>

#include "CareDomain/CleanupCategory.h"

namespace tidyro {

/// One shipped cleanup rule before it is bound to a home.
struct CleanupRuleSpec {
    std::string_view id;           ///< unique, lower-case words joined by "-"
    std::string_view relativePath; ///< below the home, without a leading "/"
    CleanupCategory category;
    double minimumAge;      ///< seconds; the rule does not clean an item that is younger
    bool isHighYield;       ///< the place usually frees much space and is offered first
    bool alwaysNeedsReview; ///< never cleaned without the person's explicit review
};

/// Rules that belong together.
struct CleanupRuleGroup {
    std::string_view name;
    std::span<const CleanupRuleSpec> specs;
};

/// The shipped rules, before they are bound to a home: `BuiltInCleanupRules` binds them. Each names
/// material that its owner builds again when it is missing. The tables are constant, so any thread
/// may read them.
struct BuiltInRuleRegistry {
    /// The groups with their rows, in the order in which rules are tried and listed.
    [[nodiscard]] static std::span<const CleanupRuleGroup> groupedSpecs();
    /// All rows in group order.
    [[nodiscard]] static std::span<const CleanupRuleSpec> allSpecs();
    [[nodiscard]] static const CleanupRuleSpec* spec(std::string_view id);

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
};

} // namespace tidyro

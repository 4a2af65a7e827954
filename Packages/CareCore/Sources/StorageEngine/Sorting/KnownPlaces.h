#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Base/FileURL.h"
#include "StorageEngine/Sorting/DiskGroup.h"

namespace tidyro {

/// A place under the home whose contents are recognised: a cache, a log folder, a store that its
/// owner fills again.
struct KnownPlace {
    /// Whether the place is one item, or each of its children is one.
    enum class Unit { wholePlace, eachChild };

    std::string_view id;
    std::string_view pattern; ///< below the home; "*" stands for exactly one folder name
    Unit unit;
    DiskGroup group;
    double quietPeriod; ///< seconds that the place must have been unchanged before it is touched
    /// Names of children that are never items.
    std::span<const std::string_view> excludedChildren = {};
};

/// The known places.
///
///     KnownPlaces::place("/home/ada/.cache/pip/http/5/2", home)->id   // "pip-cache-dot"
///
/// Names are compared as they are written.
struct KnownPlaces {
    /// All 34, in the order in which they are listed to people.
    [[nodiscard]] static std::span<const KnownPlace> all();
    /// The same, the most specific pattern first: more components before fewer, a written name
    /// before a "*". Among equals the order of `all`.
    [[nodiscard]] static std::span<const KnownPlace* const> mostSpecificFirst();

    [[nodiscard]] static const KnownPlace* place(std::string_view id);

    /// The most specific place that the path is or lies in; none where there is none. For places
    /// of `eachChild` the place itself and its excluded children belong to none.
    [[nodiscard]] static const KnownPlace* place(std::string_view path, const FileURL& home);
};

/// Whether one component of a pattern takes a name.
[[nodiscard]] constexpr bool patternTakes(std::string_view component, std::string_view name) {
    return component == "*" || component == name;
}

/// Whether a child of the place is never an item.
[[nodiscard]] bool isExcludedChild(const KnownPlace& place, std::string_view name);

} // namespace tidyro

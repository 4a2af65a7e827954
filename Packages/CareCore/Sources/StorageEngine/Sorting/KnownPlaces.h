#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Base/FileURL.h"
#include "Base/SystemTexts.h"
#include "Platform/Machine/OperatingSystem.h"
#include "StorageEngine/Sorting/DiskGroup.h"

namespace tidyro {

/// A folder below the home whose contents are recognised: a cache, a log folder, or a store that
/// its owner fills again.
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

/// The table of known places. Names are compared as they are written. Linux has places of its own
/// behind those that name what macOS and both systems have; there the environment may have moved
/// the folders that the patterns begin with.
///
///     const KnownPlace* place = KnownPlaces::place("/home/ada/.cache/pip/http/5/2", home);
///     if (place != nullptr) return place->id; // "pip-cache-dot"
///
/// The table is constant: any thread may read it, and pointers into it stay valid.
struct KnownPlaces {
    /// All of them, in the order in which they are listed to people.
    [[nodiscard]] static std::span<const KnownPlace>
    all(OperatingSystem system = platform::operatingSystem());
    /// The same, the most specific pattern first: more components before fewer, a written name
    /// before a "*". Among equals the order of `all`.
    [[nodiscard]] static std::span<const KnownPlace* const>
    mostSpecificFirst(OperatingSystem system = platform::operatingSystem());

    [[nodiscard]] static const KnownPlace*
    place(std::string_view id, OperatingSystem system = platform::operatingSystem());

    /// The most specific place that the path is or lies in, null where there is none. A place of
    /// `eachChild` has neither its own folder nor its excluded children.
    [[nodiscard]] static const KnownPlace*
    place(std::string_view path, const FileURL& home,
          OperatingSystem system = platform::operatingSystem());
};

/// Whether one component of a pattern stands for a name.
[[nodiscard]] constexpr bool isPatternMatch(std::string_view component, std::string_view name) {
    return component == "*" || component == name;
}

/// Whether a child of the place is never an item.
[[nodiscard]] bool isExcludedChild(const KnownPlace& place, std::string_view name);

} // namespace tidyro

#pragma once

#include <cstdint>
#include <string_view>

namespace tidyro {

/// What lies in a folder, as far as the names of the folder and of those above it tell. A search
/// puts what people mean before what programs keep for themselves.
enum class FindPlace : std::uint8_t {
    top,      ///< the top of a disk
    homes,    ///< the homes of all people
    home,     ///< one person's home
    own,      ///< what a person keeps where it is seen, and sources
    programs, ///< what can be run
    plain,    ///< nothing is known
    library,  ///< what programs share
    hidden,   ///< settings and the like
    aside,    ///< documentation, headers, toolchains: sought by those who know where it is
    store,    ///< packages that a tool fetched, each in a folder of its own
    noise,    ///< caches, build output, the insides of packages and repositories
};

/// How unlikely it is that something in such a place is meant, from 0 to `maxFindPlaceCost`.
[[nodiscard]] std::uint8_t findPlaceCost(FindPlace place);
constexpr std::uint8_t maxFindPlaceCost = 15;
/// How much less it costs that a file can be run. No place costs less than this.
constexpr std::uint8_t findProgramGain = 2;

/// What lies in the root of an index. Somebody asked for it, so it is never taken for noise.
[[nodiscard]] FindPlace findPlaceOfRoot(std::string_view path);
/// What lies in a folder of this name. The name is folded.
[[nodiscard]] FindPlace findPlaceInside(FindPlace above, std::string_view name, bool isPackage);

} // namespace tidyro

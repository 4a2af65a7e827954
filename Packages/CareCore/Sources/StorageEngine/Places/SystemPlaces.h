#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "StorageEngine/Places/RootPathIndex.h"

namespace tidyro {

/// The places of the operating system, and those that all its users share: nothing there is for one
/// person to remove. Ask with folded paths.
///
///     const SystemPlaces places(std::vector{folded("/home/ada")});
///     const bool isSystem = places.isTouchedBy(folded("/usr/lib/os-release"));
///
/// It does not change, so any thread may ask it.
class SystemPlaces {
  public:
    /// `homes` are the folded paths of a person's home. Some accounts have theirs in a place of the
    /// system ("/var/lib/builder"): what lies in the home is the person's, the rest of the place
    /// is not.
    explicit SystemPlaces(std::span<const std::string> homes = {});

    /// Those that no cleanup rule ever touches. The list is short and has to stay as it is: what a
    /// rule may clean follows from it.
    [[nodiscard]] static std::span<const std::string_view> protectedFromRules();

    /// All of them as they are written, whether they exist or not.
    [[nodiscard]] static std::vector<std::string> paths();

    /// Whether the path is such a place, lies in one or holds one. Everything that lies directly
    /// in "/" or "/var" counts too, because only systems put anything there.
    [[nodiscard]] bool isTouchedBy(std::string_view path) const;

  private:
    std::vector<std::string> homes_;
    std::vector<std::string> places_;
    RootPathIndex index_;
    RootPathIndex aroundHomes_; ///< those of the places that hold a home
};

} // namespace tidyro

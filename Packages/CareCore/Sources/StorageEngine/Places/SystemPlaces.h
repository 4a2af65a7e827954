#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "StorageEngine/Places/RootPathIndex.h"

namespace tidyro {

/// The places of the operating system, and what is shared by everybody who uses it: nothing there
/// is for one person to remove. Paths are folded.
class SystemPlaces {
  public:
    /// Some accounts have their home in such a place ("/var/lib/builder"): what lies in the home is
    /// theirs, the rest of the place is not.
    explicit SystemPlaces(std::span<const std::string> homes = {});

    /// Those of them that no cleanup rule ever touches: the published list, which is shorter.
    [[nodiscard]] static std::span<const std::string_view> protectedFromRules();

    /// As they are written, there or not.
    [[nodiscard]] static std::vector<std::string> paths();

    /// Whether the path is a place, lies in one or holds one, or stands at the very top of the
    /// disk, where only systems put anything.
    [[nodiscard]] bool isTouchedBy(std::string_view path) const;

  private:
    std::vector<std::string> homes_;
    std::vector<std::string> places_;
    RootPathIndex index_;
    RootPathIndex aroundHomes_; ///< those of the places that hold a home
};

} // namespace tidyro

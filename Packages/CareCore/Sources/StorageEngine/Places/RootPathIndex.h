#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tidyro {

/// Answers whether a path is one of many roots or lies inside one, component by component. It takes
/// a handful of comparisons however many roots there are. All paths are absolute and standardised.
///
/// Roots inside other roots add nothing and are dropped. The others are sorted with "/" before
/// every other byte: in this order everything that lies in a root comes directly after it, so the
/// last root that does not come after a path is the only one that the path can lie in.
class RootPathIndex {
  public:
    RootPathIndex() = default;
    explicit RootPathIndex(std::span<const std::string> roots);

    [[nodiscard]] bool contains(std::string_view path) const;

  private:
    std::vector<std::string> roots_;
};

} // namespace tidyro

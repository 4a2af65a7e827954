#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tidyro {

/// Answers whether a path is one of many roots or lies inside one, component by component, in a
/// handful of comparisons however many roots there are. Standardised absolute paths only.
///
/// Roots inside other roots add nothing and are dropped. What is left is kept in an order in which
/// "/" comes before every other byte, so that a root stands directly before all that lies in it:
/// the one root a path can lie in is the last that does not come after it.
class RootPathIndex {
  public:
    RootPathIndex() = default;
    explicit RootPathIndex(std::span<const std::string> roots);

    [[nodiscard]] bool contains(std::string_view path) const;

  private:
    std::vector<std::string> roots_;
};

} // namespace tidyro

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tidyro {

/// Whether a path is one of many roots or lies inside one, component by component.
///
///     const RootPathIndex index(std::vector<std::string>{"/home/ada/.npm", "/opt"});
///     index.contains("/home/ada/.npm/_cacache/x")   // true
///     index.contains("/home/ada/.npmrc")            // false
///
/// Asking goes over the path once and looks up each of its folders on the way, so it costs the
/// same for one root and for thousands, and allocates nothing. Names are compared as bytes. The
/// root "/" holds every absolute path. Paths on both sides are standardised and absolute; a root
/// that is not absolute holds nothing.
class RootPathIndex {
  public:
    RootPathIndex() = default;
    explicit RootPathIndex(std::span<const std::string> roots);

    [[nodiscard]] bool contains(std::string_view path) const;

    bool operator==(const RootPathIndex&) const = default;

  private:
    [[nodiscard]] bool has(std::string_view root, std::uint64_t hash) const;

    std::vector<std::string> roots_;   ///< ascending, each once
    std::vector<std::uint32_t> table_; ///< number of a root and 1, at its hash; 0 where none is
    bool holdsAll_ = false;
};

} // namespace tidyro

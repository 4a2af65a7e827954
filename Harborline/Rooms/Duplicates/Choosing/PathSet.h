#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_set>

namespace tidyro {

struct PathHash {
    using is_transparent = void;
    [[nodiscard]] std::size_t operator()(std::string_view path) const {
        return std::hash<std::string_view>{}(path);
    }
};

/// Files and folders by their absolute, standardised paths. A folder stands for all that is in it.
/// Hashed, since a look goes through every folder above a path.
using PathSet = std::unordered_set<std::string, PathHash, std::equal_to<>>;

/// Whether the path is in the set, or a folder that it lies in.
[[nodiscard]] bool covers(const PathSet& paths, std::string_view path);

} // namespace tidyro

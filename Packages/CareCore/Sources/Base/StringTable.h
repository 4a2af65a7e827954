#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

namespace tidyro {

/// Hashes strings and views alike, so that a table of strings is asked with a view and no string is
/// made for the question.
struct StringHash {
    using is_transparent = void;
    [[nodiscard]] std::size_t operator()(std::string_view text) const {
        return std::hash<std::string_view>{}(text);
    }
};

/// Hashed tables of strings: where lookups are many and the order does not matter. `find` and
/// `contains` take a view; what inserts still takes a string.
using StringSet = std::unordered_set<std::string, StringHash, std::equal_to<>>;
template <class Value>
using StringMap = std::unordered_map<std::string, Value, StringHash, std::equal_to<>>;

} // namespace tidyro

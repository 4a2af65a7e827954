#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tidyro {

/// What a search found.
struct FindSearchResult {
    std::vector<std::uint32_t> hits = {}; ///< entries, the best first, at most as many as asked for
    std::uint64_t matchCount = 0;         ///< of all, those that are not among the hits as well
    /// Of the index whose entries the hits are; another one's mean something else.
    std::uint64_t generation = 0;
    bool wasCancelled = false; ///< it was cut short: hits and count are of a part, or none
    /// Why part of the query could not be read as it was meant and was taken for words; one
    /// sentence for people.
    std::optional<std::string> problem = std::nullopt;
    bool operator==(const FindSearchResult&) const = default;
};

} // namespace tidyro

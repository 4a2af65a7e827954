#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Base/RawValues.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"

namespace tidyro {

/// The order in which hits are shown. Equal ones are in the order of their paths.
enum class FindHitOrder : std::uint8_t {
    best, ///< as the search returned them
    name, ///< as people read it: upper and lower case, accents and compositions are the same
    path, ///< byte by byte
    size, ///< the largest first
    date, ///< the latest first
};

constexpr RawValueTable<FindHitOrder, 5> rawValues(RawValueTag<FindHitOrder>) {
    using enum FindHitOrder;
    return {{{{best, "best"}, {name, "name"}, {path, "path"}, {size, "size"}, {date, "date"}}}};
}

/// How one hit is written.
enum class FindHitForm : std::uint8_t {
    line,      ///< the path and a line break
    zeroEnded, ///< the path and a zero, for names with line breaks in them
    /// An object in one line: "path", "kind", "size" in bytes, "date" as ISO 8601 in UTC. The kind
    /// is that of FindCategory, or "link". A path that is no UTF-8 is repaired, and "pathBytes" is
    /// its Base64.
    json,
};

/// Lists the hits of a search for people and scripts.
///
///     FindHitListing::sort(*storage, hits, FindHitOrder::size);
///     for (const auto hit : hits) write(FindHitListing::text(*storage, hit, FindHitForm::line));
struct FindHitListing {
    using Entry = FindIndexStorage::Entry;

    static void sort(const FindIndexStorage& index, std::vector<Entry>& hits, FindHitOrder order);
    [[nodiscard]] static std::string text(const FindIndexStorage& index, Entry hit,
                                          FindHitForm form);
};

} // namespace tidyro

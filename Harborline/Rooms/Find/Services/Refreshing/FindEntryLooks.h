#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "Base/Cancellation.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"

namespace tidyro {

/// Looks at single entries of an index on the disk, for what a look at the folders does not tell:
/// the size and the date of a file, and whether it has gone since.
///
///     const auto seen = FindEntryLooks::look(*storage, hits);
///     if (!seen.empty()) FindEntryLooks::apply(seen, changed);
struct FindEntryLooks {
    using Entry = FindIndexStorage::Entry;

    /// More candidates of a query are not looked at before they count.
    static constexpr std::size_t maxCandidates = 50'000;

    struct Seen {
        Entry entry;
        bool isGone; ///< or a folder has become a file, or a file a folder
        std::uint64_t size;
        std::uint32_t modified;
    };
    /// What differs from the index, in the order of `entries`. Several threads look when there are
    /// many. What cannot be looked at counts as the index says.
    [[nodiscard]] static std::vector<Seen> look(const FindIndexStorage& index,
                                                std::span<const Entry> entries,
                                                const CancelToken& cancel = {});
    static void apply(std::span<const Seen> seen, FindIndexStorage& index);
};

} // namespace tidyro

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <utility>
#include <vector>

#include "Base/GrowingArray.h"
#include "Platform/Folders/FolderReading.h"

namespace tidyro {

/// Which folder was read, and how it stood then. Whoever looks at the folder again and sees the
/// same need not read it again.
struct FindFolderStamp {
    /// Equals no date of a folder: it changed so shortly before it was read that a later change may
    /// bear the same date.
    static constexpr std::int64_t unsettled = std::numeric_limits<std::int64_t>::min();

    /// Some file systems keep dates of two seconds, and a kernel's clock lags a little. In
    /// nanoseconds.
    static constexpr std::int64_t coarsestClock = 3'000'000'000;

    std::int64_t changed; ///< nanoseconds since 1970, or `unsettled`
    platform::ItemIdentity identity;

    /// The stamp of a folder whose facts were taken before it was read, at or after `readAt`.
    [[nodiscard]] static FindFolderStamp taken(const platform::FolderFacts& facts,
                                               std::int64_t readAt) {
        const bool isSettled = facts.changed < readAt - coarsestClock;
        return {.changed = isSettled ? facts.changed : unsettled, .identity = facts.identity};
    }
    bool operator==(const FindFolderStamp&) const = default;
};

/// The stamps of the folders of an index that were read, in the order of their entries. A folder
/// without one is to be read again.
///
///     storage.folderStamps.add(folder, FindFolderStamp::taken(facts, readAt));
///     storage.folderStamps.sort();
struct FindFolderStamps {
    struct Row {
        std::uint32_t folder;
        FindFolderStamp stamp;
        bool operator==(const Row&) const = default;
    };

    void add(std::uint32_t folder, FindFolderStamp stamp) {
        rows.push({.folder = folder, .stamp = stamp});
    }
    void sort() { std::ranges::sort(rows, {}, &Row::folder); }

    /// Of sorted rows: those of the folders that got new numbers. `kept` holds the old numbers by
    /// the new ones.
    [[nodiscard]] FindFolderStamps renumbered(std::span<const std::uint32_t> kept) const {
        FindFolderStamps made;
        for (std::size_t number = 0; number < kept.size(); ++number) {
            const auto row = std::ranges::lower_bound(rows, kept[number], {}, &Row::folder);
            if (row != rows.end() && row->folder == kept[number]) {
                made.add(static_cast<std::uint32_t>(number), row->stamp);
            }
        }
        return made;
    }

    GrowingArray<Row> rows;
};

} // namespace tidyro

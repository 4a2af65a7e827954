#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Base/Cancellation.h"
#include "StorageEngine/DeveloperStores/DeveloperStoreKind.h"
#include "StorageEngine/DiskTree/DiskTree.h"

namespace tidyro {

/// A part of a store under the name by which its owner knows it: a model, a revision, a package.
struct DeveloperStoreUnit {
    /// Bytes, as they lie on the disk. People are shown them through `terminalSafe`, since a name
    /// may hold anything, what drives a terminal included.
    std::string name;
    std::uint64_t byteCount = 0; ///< on disk

    bool operator==(const DeveloperStoreUnit&) const = default;
};

/// How many units a measurement shows.
inline constexpr std::size_t maxShownStoreUnits = 10;

/// The folder of such a store whose files have further names in the store's units, which count
/// instead (`DiskTreeScanner::carryingLast`); empty for most kinds.
[[nodiscard]] std::string_view carryingLastOf(DeveloperStoreKind kind);

/// The largest units of a store that was just scanned, the largest first and those of one size by
/// name. What several units share is counted for one of them only, so the sizes never add up to
/// more than the store: for the current revision of a model before older ones, otherwise for the
/// first in the order of names. Units that are left with nothing are not shown.
///
/// A store that lists its contents in files has them read, each within bounds and no link followed.
/// A list that cannot be read or understood leaves its unit out, and the totals of the store do not
/// depend on it. Once cancelled, the units are incomplete.
[[nodiscard]] std::vector<DeveloperStoreUnit>
largestStoreUnits(DeveloperStoreKind kind, const DiskTree& tree, const CancelToken& cancel);

} // namespace tidyro

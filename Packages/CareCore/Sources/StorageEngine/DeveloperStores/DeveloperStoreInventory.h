#pragma once

#include <cstdint>
#include <expected>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/Cancellation.h"
#include "Base/FileURL.h"
#include "Base/SystemTexts.h"
#include "Base/Timestamp.h"
#include "Platform/Machine/OperatingSystem.h"
#include "StorageEngine/DeveloperStores/DeveloperStoreKind.h"
#include "StorageEngine/DeveloperStores/OwnerPrograms.h"
#include "StorageEngine/DeveloperStores/StoreUnits.h"

namespace tidyro {

/// A place where a store may lie.
struct DeveloperStoreLocation {
    DeveloperStoreKind kind;
    FileURL url;

    bool operator==(const DeveloperStoreLocation&) const = default;
};

/// What one store holds. Bytes are counted once for a file with several names, and for blocks that
/// clones share.
struct DeveloperStoreMeasurement {
    using Unit = DeveloperStoreUnit;

    DeveloperStoreKind kind;
    FileURL url; ///< where the store was looked for; a link may lead from there to the store
    std::uint64_t logicalByteCount = 0;
    std::uint64_t allocatedByteCount = 0;
    std::int64_t fileCount = 0;                                 ///< neither folders nor links
    std::optional<Timestamp> newestModification = std::nullopt; ///< of a file
    bool isPartial = false;                                     ///< some of it could not be read
    std::vector<Unit> largestUnits = {};

    bool isOwnerInstalled = false;
    /// How to shrink it, for people; empty where the owner would have to be installed first.
    std::string_view shownCommand = {};

    bool operator==(const DeveloperStoreMeasurement&) const = default;
};

/// Finds the large stores of developers' tools in a home and measures them. It changes nothing.
///
///     const auto inventory = DeveloperStoreInventory::ofThisProcess(home);
///     const ProgramsInFolders programs(ProgramsInFolders::usualFolders(home, "/usr/bin"));
///     const auto stores = inventory.measure(programs);
///     if (!stores) return list; // it was cancelled
///     for (const DeveloperStoreMeasurement& store : *stores) {
///         list += title(store.kind);
///         list += " " + RoomText::bytes(store.allocatedByteCount) + "\n";
///     }
///
/// Each store is read by several threads while the caller waits. No link in a store is followed and
/// no other volume entered. Any thread may ask.
struct DeveloperStoreInventory {
    using Environment = std::map<std::string, std::string>;

    FileURL userHome;
    Environment environment = {}; ///< of the tools that own the stores
    /// Where stores of the whole system are looked for. Tests put a made system there.
    FileURL systemRoot = {};
    OperatingSystem system = platform::operatingSystem();

    /// With the variables of this process's environment that move stores.
    [[nodiscard]] static DeveloperStoreInventory ofThisProcess(const FileURL& home);

    /// Every place where a store may lie, whether it is there or not, in the order of the kinds. A
    /// variable comes before the usual place, and counts when it names an absolute folder: what a
    /// relative one leads to depends on where its tool is started.
    [[nodiscard]] std::vector<DeveloperStoreLocation> locations() const;

    /// Measures each place that is there. A folder that is found in two ways is one store, told at
    /// the first. A place that is or holds the home is no store: somebody mistook a variable for
    /// another one. A place that the system does not let us look at is told as partial.
    [[nodiscard]] std::expected<std::vector<DeveloperStoreMeasurement>, CancellationError>
    measure(const OwnerPrograms& programs, const CancelToken& cancel = {}) const;

    /// Measures one place; none when no store is there. The owner is not looked for.
    [[nodiscard]] std::expected<std::optional<DeveloperStoreMeasurement>, CancellationError>
    measure(const DeveloperStoreLocation& location, const CancelToken& cancel = {}) const;
};

} // namespace tidyro

#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "Base/Cancellation.h"
#include "Base/FileURL.h"
#include "Base/SharedText.h"
#include "Base/SystemError.h"
#include "Base/Timestamp.h"
#include "CareDomain/CoverageGap.h"
#include "CareDomain/FileObservation.h"

namespace tidyro {

/// One entry of a home, as the system told of it. A link is never followed. It is good until the
/// visit ends, since the walk uses its texts again.
struct AIToolWalkEntry {
    enum class Kind : std::uint8_t { regularFile, directory, symbolicLink, other };

    std::vector<std::string> components; ///< below the walk's root
    FileURL url;
    Kind kind;
    std::uint64_t deviceID;
    std::uint64_t inode;
    std::uint32_t ownerUserID;
    std::uint64_t byteCount;
    std::uint64_t allocatedByteCount;
    std::optional<Timestamp> modificationDate = std::nullopt;
    std::optional<Timestamp> creationDate = std::nullopt;
    std::optional<Timestamp> statusChangeDate = std::nullopt;
    std::uint64_t linkCount;
    bool isReadable;
    bool isDataless; ///< its contents are not on this disk
    /// A folder that could not be opened. Its entries are not visited.
    bool isInaccessible = false;
};

/// Visits everything below a folder, depth first, by descriptors and without following a link. It
/// stays on the folder's device: what is mounted below is a gap.
struct AIToolWalker {
    static constexpr std::size_t maxEntries = 2'000'000;

    struct Coverage {
        std::vector<CoverageGap> gaps = {};
        bool isTruncated = false; ///< not everything below the root was visited
    };
    /// The root itself could not be read, or the walk was cancelled.
    using Error = std::variant<SystemError, CancellationError>;
    struct Options {
        std::size_t maxEntries = AIToolWalker::maxEntries;
        CancelToken cancel = {};
    };
    [[nodiscard]] static std::expected<Coverage, Error>
    walk(const FileURL& root, const std::function<void(const AIToolWalkEntry&)>& visit,
         const Options& options);
};

} // namespace tidyro

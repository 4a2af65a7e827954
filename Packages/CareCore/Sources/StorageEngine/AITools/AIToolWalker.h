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
#include "Platform/Files/FileMetadata.h"
#include "StorageEngine/Observation/FolderSigns.h"
#include "StorageEngine/Observation/FolderSurroundings.h"

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

    /// What all entries of one folder share.
    struct Around {
        FolderSurroundings folders; ///< of the folder that the entry lies in, or is
        std::optional<SharedText> volumeIdentifier = std::nullopt;
    };
    [[nodiscard]] FileObservation observation(const Around& around) const;
};

/// Visits everything below a folder, depth first, by descriptors and without following a link. It
/// stays on the folder's device: what is mounted below is a gap. A folder comes before what is in
/// it. Few folders are held open however deep the tree is.
///
///     const auto coverage = AIToolWalker::walk(
///         home.url, [&](const AIToolWalkEntry& entry) { bytes += entry.byteCount; }, {});
///     if (coverage && coverage->gaps.empty()) show(bytes);
struct AIToolWalker {
    static constexpr std::size_t maxEntries = 2'000'000;
    /// A folder with a longer path is not entered. No tool makes such; going on would cost time and
    /// room that grow with the square of the depth.
    static constexpr std::size_t maxPathBytes = 262'144;

    struct Coverage {
        std::vector<CoverageGap> gaps = {};
        /// Entries were left out because there were too many, or because they lay too deep.
        bool isTruncated = false;
        std::size_t entryCount = 0; ///< that were visited
    };
    /// The root itself could not be read, or the walk was cancelled.
    using Error = std::variant<SystemError, CancellationError>;
    /// A folder that is entered, before its entries are visited.
    struct Folder {
        const FileURL& url;
        std::span<const std::string> components; ///< below the walk's root
        /// What its names say of it; none when not all of them could be read.
        std::optional<FolderSigns> signs;
    };
    struct Options {
        std::size_t maxEntries = AIToolWalker::maxEntries;
        CancelToken cancel = {};
        /// The folder that the root has to be. ESTALE when another one has taken its name.
        std::optional<platform::ItemIdentity> identity = std::nullopt;
        /// Folders that are neither visited nor entered, by whatever path the walk meets them.
        std::vector<platform::ItemIdentity> passedOver = {};
        std::function<void(const Folder&)> enter = nullptr;
    };
    /// A root that is a link is not followed: ELOOP or ENOTDIR.
    [[nodiscard]] static std::expected<Coverage, Error>
    walk(const FileURL& root, const std::function<void(const AIToolWalkEntry&)>& visit,
         const Options& options);

    /// What the system says of the item at a path, a link itself. None when it cannot be asked.
    [[nodiscard]] static std::optional<platform::FileMetadata> lstat(const std::string& path);
};

} // namespace tidyro

#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <vector>

#include "Base/FileURL.h"
#include "CareDomain/FileFingerprint.h"
#include "Platform/Folders/FolderChanges.h"
#include "Platform/Folders/FolderFlushes.h"
#include "Platform/Mounts/Volumes.h"
#include "StorageEngine/Trash/FingerprintComparison.h"

namespace tidyro {

/// Puts items back from the Trash to where they lay.
///
///     TrashRestorer restorer;
///     const auto back = restorer.putBack({.trashURL = *entry.resultingTrashURL,
///                                         .originalURL = entry.originalURL,
///                                         .fingerprint = fingerprint});
///     if (!back) show(back.error().description());
///
/// Only the very item is put back: the same number on its disk, the same size and the same date. A
/// disk with a UUID has to be the same as well. Nothing is ever replaced. Used by one thread.
class TrashRestorer {
  public:
    struct Item {
        FileURL trashURL;
        FileURL originalURL; ///< a real path: no folder of it is a link
        FileFingerprint fingerprint;
        /// The permissions of the folders above, from the top down, for those that are missing.
        /// 0700 for each that is not known.
        std::vector<std::uint32_t> folderPermissions = {};
    };

    struct Error {
        enum class Kind : std::uint8_t {
            notInTrash,        ///< nothing is there
            anotherItem,       ///< something else has its name in the Trash
            placeTaken,        ///< something lies at its place; `beside` is free
            folderUnreachable, ///< a folder above its place is a link, or cannot be made or entered
            otherVolume,       ///< its place is on another volume by now
            notConfirmed,      ///< it is back, but may not outlast a crash
            failed,
        };
        Kind kind;
        std::optional<FileURL> beside = std::nullopt;

        /// For people.
        [[nodiscard]] std::string description() const;
        bool operator==(const Error&) const = default;
    };

    /// None: what the running system has, and flushes of its own. The volumes are read once, here.
    explicit TrashRestorer(platform::FolderChanges* changes = nullptr,
                           platform::FolderFlushes* flushes = nullptr,
                           const platform::Volumes* volumes = nullptr);

    /// Moves an item back, and what the Trash noted of it goes. Durable when it returns.
    [[nodiscard]] std::expected<void, Error> putBack(const Item& item) const;

  private:
    platform::FolderChanges* changes_;
    FingerprintComparison comparison_;
    platform::FolderFlushes* flushes_;
};

} // namespace tidyro

#pragma once

#include <cstdint>
#include <expected>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Folders/Trash.h"
#include "Platform/Folders/TrashNote.h"

namespace tidyro::platform {

/// One Trash of freedesktop.org, held open: `files` with the items, `info` with a note for each.
struct TrashFolders {
    std::string path;
    /// The top of its volume, to which its notes are relative; empty for the person's own Trash,
    /// whose notes have whole paths.
    std::string top;
    FolderDescriptor base;
    FolderDescriptor files;
    FolderDescriptor info;
    FileMetadata seen; ///< of `files`

    struct Size {
        std::string name;
        std::uint64_t byteCount;
    };
    /// Folders that were moved here and are not yet in `directorysizes`.
    std::vector<Size> sizes = {};

    /// Whether a rename reaches `files` from there.
    [[nodiscard]] bool isReachableFrom(const FileMetadata& item) const {
        return item.identity.device == seen.identity.device && areOnOneMount(item, seen);
    }

    /// The person's own Trash, made when it is missing.
    [[nodiscard]] static std::expected<std::shared_ptr<TrashFolders>, TrashError>
    openHome(FolderChanges& changes, ChangeGate& gate, const std::string& path);
    enum class Missing : std::uint8_t { make, refuse };
    /// The Trash at the top of a volume.
    [[nodiscard]] static std::expected<std::shared_ptr<TrashFolders>, TrashError>
    openAtTop(FolderChanges& changes, const std::string& top, Missing missing);

    using Found = std::expected<std::shared_ptr<TrashFolders>, SystemError>;
    /// The person's own Trash, and those at the top of a volume, as far as they are there. Nothing
    /// is made. An error is about one that is there and cannot be looked into; one that is not this
    /// person's, or that others could exchange, is left out.
    [[nodiscard]] static std::optional<Found> findHome(const std::string& path);
    [[nodiscard]] static std::vector<Found> findAtTop(const std::string& top);

    /// Adds the sizes that are waiting to `directorysizes`, and leaves out those of items that are
    /// gone. Nothing is flushed for it.
    void writeSizes(ChangeGate& gate);
};

/// The names that an item may get in the Trash, one after another: its own, then numbered ones,
/// then random ones. Each, with the ending of its note, has at most `maxBytes` bytes; a long one
/// loses its middle, but no part of a character and not its extension.
[[nodiscard]] std::string trashName(std::string_view name, unsigned attempt, std::size_t maxBytes);

/// Whether volumes of a type may have a Trash: those on disks, on servers and behind drivers do,
/// and what the kernel makes up in memory does not.
[[nodiscard]] bool isTypeThatMayHaveTrash(std::string_view fileSystem);

} // namespace tidyro::platform

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Base/FileURL.h"
#include "Base/SystemError.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderReading.h"
#include "Platform/Folders/TrashNote.h"
#include "Platform/Mounts/Volumes.h"

namespace tidyro::platform {

/// What lies in the Trashes of the person: in their own, and in those at the tops of the mounted
/// volumes. Nothing is made or changed.
///
///     const auto listing = platform::TrashListing::read({});
///     for (const auto& item : listing.items) {
///         if (item.note) show(listing.url(item), item.note->path);
///     }
///
/// Only folders that a cleanup would use as a Trash count: real ones of this person, which nobody
/// else could exchange. macOS does not tell what its Trash knows of an item, so nothing is listed
/// there, and `unread` says so.
struct TrashListing {
    enum class Notes : std::uint8_t { read, leave };
    struct Options {
        /// None: those of the running system.
        const Volumes* volumes = nullptr;
        /// The folder of the person's own Trash.
        std::optional<FileURL> home = std::nullopt;
        /// The volumes to look at, since one whose server is gone may never answer. None: all.
        std::function<bool(const Volume&)> isAsked = nullptr;
        Notes notes = Notes::read;
    };

    /// One Trash, held open.
    struct Place {
        std::string path;
        std::string top;        ///< of its volume; empty for the person's own
        FolderDescriptor base;  ///< the folder at `path`
        FolderDescriptor items; ///< what was moved there
        FolderDescriptor notes; ///< what is known of it
    };
    struct Item {
        std::size_t place; ///< its place in `places`
        std::string name;
        FileMetadata seen;
        /// Whether something has the name of its note. When `note` is none all the same, that is
        /// none that tells a place: damaged, too large, or not even a file.
        bool hasNote = false;
        std::optional<TrashNote> note = std::nullopt;
    };
    struct Unread {
        std::string path;
        SystemError error;
    };

    std::vector<Place> places = {};
    std::vector<Item> items = {};
    /// What could not be looked into, so that more items may lie there.
    std::vector<Unread> unread = {};

    [[nodiscard]] static TrashListing read(const Options& options);

    /// Where an item lies.
    [[nodiscard]] FileURL url(const Item& item) const;
    /// Reads the note of an item whose note was left.
    void readNote(Item& item) const;
};

} // namespace tidyro::platform

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Base/FileURL.h"
#include "Rooms/Duplicates/Search/DuplicateListing.h"
#include "Rooms/Duplicates/Search/DuplicateReport.h"
#include "StorageEngine/Places/SystemPlaces.h"

namespace tidyro {

/// Tells of a listed file how long things last where it lies, and whether it is a program's part.
///
///     CopyPlaces places(listing, home);
///     const CopyPlaces::Finding found = places.look(file);
///     if (!found.heldBecause.empty()) hold(file, found.heldBecause);
///
/// It goes by names alone: those on the way to the file, as they are written and with the links to
/// the root resolved, and those beside the folders on the way. The trees of the listing have most
/// of them, so only the folders above a root are read. It remembers folders. Used by one thread.
class CopyPlaces {
  public:
    CopyPlaces(const DuplicateListing& listing, const FileURL& home);

    struct Finding {
        CopyPlace place = CopyPlace::own;
        /// Why a program's part has to stay, a sentence for people; empty for other files.
        std::string_view heldBecause = {};

        /// Both findings hold: the place is the less lasting one.
        void add(const Finding& other);
    };
    [[nodiscard]] Finding look(const ListedFile& file);

    /// The path of a listed file with the links to its root resolved.
    [[nodiscard]] std::string realPath(const ListedFile& file);

  private:
    struct Folder {
        Finding beside; ///< by what lies in it and in the folders above it
        Finding all;    ///< by its path as well
        bool isHome = false;
    };
    struct Root {
        std::string real; ///< its real path
        Finding above;    ///< by what lies in the folders above it
        std::unordered_map<NodeNumber, Folder> folders;
    };
    [[nodiscard]] const Folder& folderOf(const ListedFile& file);
    [[nodiscard]] Root& rootOf(const ListedFile& file);
    [[nodiscard]] Finding lookAbove(std::string_view path) const;
    [[nodiscard]] Finding byPath(std::string_view folder) const;
    [[nodiscard]] Finding byName(std::string_view loweredName, std::string_view folder) const;
    [[nodiscard]] std::optional<std::string> belowHome(std::string_view path) const;

    const DuplicateListing& listing_;
    FileURL home_;
    std::vector<std::string> homes_;     ///< folded: the written path and the real one
    std::vector<std::string> landing_;   ///< folded
    std::vector<std::string> temporary_; ///< folded
    SystemPlaces system_;
    std::unordered_map<const DiskTree*, Root> roots_;
};

/// Whether the Trash keeps its items in this folder, or one of its own things. The path is absolute
/// and standardised.
[[nodiscard]] bool isInTrash(std::string_view path, const FileURL& home);

/// Whether a folder has a name that only a Trash has: ".Trash", ".Trashes", ".Trash-1000", or that
/// of a folder in which a cleanup puts what it removes.
[[nodiscard]] bool isNameOfTrash(std::string_view name);

} // namespace tidyro

#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "Base/FileURL.h"

namespace tidyro {

/// The folders in which a person's desktop keeps documents, music, pictures and the like, whatever
/// those are called in the person's language: what ".config/user-dirs.dirs" in the home names.
///
///     XDG_MUSIC_DIR="$HOME/Musik"
///
/// A name for the home itself, or for a folder that holds it, is how a desktop says that it has
/// none. A list that is there and that no desktop can have meant, or only a shell can work out,
/// tells nothing: what it would have named must not be taken for an ordinary folder.
struct DesktopFolders {
    std::vector<FileURL> personal;
    std::vector<FileURL> downloads;

    /// Empty for a home without a list, none when the list cannot be read.
    [[nodiscard]] static std::optional<DesktopFolders> read(const FileURL& home);
    [[nodiscard]] static std::optional<DesktopFolders> parse(std::string_view list,
                                                             const FileURL& home);
};

} // namespace tidyro

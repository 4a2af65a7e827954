#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "Base/FileURL.h"

namespace tidyro {

/// The folders in which a person's desktop keeps documents, music, pictures and the like. Their
/// names are in the person's language, and "user-dirs.dirs" among their settings lists them:
///
///     XDG_MUSIC_DIR="$HOME/Musik"
///
/// A desktop names the home itself, or a folder that holds it, to say that it has no such folder;
/// those are left out. Of a line that no desktop writes, or that only a shell could work out, the
/// part that names a folder of the home counts, and the other lines stay as they are.
struct DesktopFolders {
    std::vector<FileURL> personal;
    std::vector<FileURL> downloads;
    std::vector<FileURL> desktops = {}; ///< what lies on the screen; among the personal ones too

    /// Reads the list of a home, and the one that `XDG_CONFIG_HOME` names. Empty for a home without
    /// one, none when it cannot be read or understood.
    [[nodiscard]] static std::optional<DesktopFolders> read(const FileURL& home);
    [[nodiscard]] static std::optional<DesktopFolders> parse(std::string_view list,
                                                             const FileURL& home);
};

} // namespace tidyro

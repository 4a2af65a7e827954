#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/FileURL.h"

namespace tidyro {

/// Folders of a home that are never cleaned, whatever lies in them: keys and passwords, what a
/// cloud keeps in step elsewhere, mail and messages, this program's own files, and the folders
/// that the person's desktop uses for documents, music, pictures, videos, templates and the like,
/// whatever those are called in the person's language. Downloads are not among them. None when the
/// desktop's list of folders is there and cannot be read.
[[nodiscard]] std::optional<std::vector<FileURL>> protectedFolders(const FileURL& home);

/// The folders that a desktop's "user-dirs.dirs" names ('XDG_MUSIC_DIR="$HOME/Musik"'), Downloads
/// left out, and those that are the home itself, which is how a desktop says that it has none.
[[nodiscard]] std::vector<FileURL> personalFoldersIn(std::string_view userFolders,
                                                     const FileURL& home);

/// All folders that the desktop of a home names, Downloads among them; none when its list is there
/// and cannot be read.
[[nodiscard]] std::optional<std::vector<FileURL>> desktopFolders(const FileURL& home);

} // namespace tidyro

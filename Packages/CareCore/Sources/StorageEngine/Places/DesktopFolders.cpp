#include "StorageEngine/Places/DesktopFolders.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <string>
#include <utility>

#include "Base/PathText.h"
#include "Platform/Files/DurableFile.h"
#include "Platform/Folders/WellKnownFolders.h"

namespace tidyro {

namespace {

/// A desktop writes a dozen lines. Each folder is looked up on the disk, so a list of very many
/// would hold everything up.
constexpr std::size_t maxListedFolders = 100;
constexpr std::size_t maxListBytes = 100'000;

constexpr std::string_view blanks = " \t\r";

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

bool takeBeginning(std::string_view& text, std::string_view beginning) {
    if (!text.starts_with(beginning)) return false;
    text.remove_prefix(beginning.size());
    return true;
}

/// The path between double quotation marks, with its backslashes undone. Only a remark may follow
/// the second mark. None for any other text, and when a shell would replace more in it than the
/// home.
std::optional<std::string> pathIn(std::string_view text, const FileURL& home) {
    if (!takeBeginning(text, "\"")) return std::nullopt;
    std::string path;
    if (takeBeginning(text, "$HOME") || takeBeginning(text, "${HOME}")) {
        if (!text.starts_with('/') && !text.starts_with('"')) return std::nullopt;
        path = home.path();
    }
    std::size_t at = 0;
    for (; at < text.size() && text[at] != '"'; ++at) {
        if (text[at] == '$' || text[at] == '`' || text[at] == '\0') return std::nullopt;
        if (text[at] == '\\') ++at;
        if (at == text.size()) return std::nullopt;
        path += text[at];
    }
    if (at == text.size()) return std::nullopt;
    const std::string_view behind = trimmed(text.substr(at + 1));
    if (!behind.empty() && !behind.starts_with('#')) return std::nullopt;
    if (path.empty()) return home.path(); // a setting that is empty counts as none
    return path.starts_with('/') ? std::optional(path) : std::nullopt;
}

/// The folder that a line probably means which only a shell could work out: what follows the home,
/// up to the first byte that is more than a name. None for a line that does not begin in the home.
std::optional<std::string> guessedPath(std::string_view text, const FileURL& home) {
    for (const std::string_view beginning : {"$HOME/", "${HOME}/", "~/"}) {
        const std::size_t at = text.find(beginning);
        if (at == std::string_view::npos) continue;
        const std::string_view rest = text.substr(at + beginning.size());
        return path::joined(home.path(), trimmed(rest.substr(0, rest.find_first_of("\"'$`\\;#"))));
    }
    return std::nullopt;
}

} // namespace

std::optional<DesktopFolders> DesktopFolders::parse(std::string_view list, const FileURL& home) {
    DesktopFolders found;
    std::size_t count = 0;
    while (!list.empty()) {
        std::string_view line = list.substr(0, list.find('\n'));
        list.remove_prefix(std::min(line.size() + 1, list.size()));
        line = trimmed(line);
        if (line.starts_with('#') || line.find("XDG_") == std::string_view::npos) continue;
        const std::size_t sign = line.find('=');
        const std::string_view name = trimmed(line.substr(0, sign));
        if (sign == std::string_view::npos || !name.ends_with("_DIR")) continue;
        if (++count > maxListedFolders) return std::nullopt;
        std::optional<std::string> path;
        if (line.starts_with("XDG_")) path = pathIn(trimmed(line.substr(sign + 1)), home);
        if (!path) path = guessedPath(line.substr(sign + 1), home);
        if (!path) continue;
        FileURL folder = FileURL::folder(*path);
        if (path::isInsideOrEqual(home.path(), folder.path())) continue;
        auto& folders = name == "XDG_DOWNLOAD_DIR" ? found.downloads : found.personal;
        if (name == "XDG_DESKTOP_DIR") found.desktops.push_back(folder);
        folders.push_back(std::move(folder));
    }
    return found;
}

std::optional<DesktopFolders> DesktopFolders::read(const FileURL& home) {
    // The usual list counts as well when the environment names another one, since a folder too many
    // costs nothing.
    std::vector<std::string> lists{home.appending(".config/user-dirs.dirs").path()};
    if (const auto settings = platform::movedFolders().settings) {
        std::string moved = path::joined(path::standardized(*settings), "user-dirs.dirs");
        if (moved != lists.front()) lists.push_back(std::move(moved));
    }
    DesktopFolders found;
    for (const std::string& path : lists) {
        const auto list = platform::readWholeFile(path, maxListBytes);
        if (!list && (list.error().code == ENOENT || list.error().code == ENOTDIR)) continue;
        auto folders = list ? parse(*list, home) : std::nullopt;
        if (!folders) return std::nullopt;
        std::ranges::move(folders->personal, std::back_inserter(found.personal));
        std::ranges::move(folders->downloads, std::back_inserter(found.downloads));
        std::ranges::move(folders->desktops, std::back_inserter(found.desktops));
    }
    return found;
}

} // namespace tidyro

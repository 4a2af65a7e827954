#include "StorageEngine/Places/DesktopFolders.h"

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>

#include "Base/PathText.h"
#include "Platform/Files/DurableFile.h"

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
        if (!line.starts_with("XDG_") || sign == std::string_view::npos) return std::nullopt;
        const std::string_view name = trimmed(line.substr(0, sign));
        if (!name.ends_with("_DIR")) continue;
        if (++count > maxListedFolders) return std::nullopt;
        const auto path = pathIn(trimmed(line.substr(sign + 1)), home);
        if (!path) return std::nullopt;
        FileURL folder = FileURL::folder(*path);
        if (path::isInsideOrEqual(home.path(), folder.path())) continue;
        auto& folders = name == "XDG_DOWNLOAD_DIR" ? found.downloads : found.personal;
        if (name == "XDG_DESKTOP_DIR") found.desktops.push_back(folder);
        folders.push_back(std::move(folder));
    }
    return found;
}

std::optional<DesktopFolders> DesktopFolders::read(const FileURL& home) {
    const auto list =
        platform::readWholeFile(home.appending(".config/user-dirs.dirs").path(), maxListBytes);
    if (list) return parse(*list, home);
    if (list.error().code == ENOENT || list.error().code == ENOTDIR) return DesktopFolders{};
    return std::nullopt;
}

} // namespace tidyro

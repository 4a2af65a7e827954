#include "StorageEngine/ProtectedFolders.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include "Base/PathText.h"
#include "Platform/DurableFile.h"
#include "Platform/WellKnownFolders.h"

namespace tidyro {

namespace {

constexpr std::array<std::string_view, 14> kept{
    ".ssh",
    ".gnupg",
    ".pki",
    ".password-store",
    ".local/share/keyrings",
    ".local/share/kwalletd",
    "Library/Keychains",
    "Library/Mobile Documents",
    "Library/CloudStorage",
    "Library/Mail",
    "Library/Messages",
    "Library/Application Support/MobileSync",
    "Library/Application Support/AddressBook",
    "Library/Calendars",
};

/// Undoes the backslashes of a text in double quotation marks, which ends where the mark does.
std::string unquoted(std::string_view text) {
    std::string plain;
    for (std::size_t at = 0; at < text.size() && text[at] != '"'; ++at) {
        if (text[at] == '\\' && at + 1 < text.size()) ++at;
        plain += text[at];
    }
    return plain;
}

enum class Downloads { included, leftOut };

std::vector<FileURL> foldersIn(std::string_view userFolders, const FileURL& home,
                               Downloads downloads) {
    constexpr std::string_view assigned = "_DIR=\"";
    constexpr std::string_view homeMark = "$HOME";
    std::vector<FileURL> folders;
    while (!userFolders.empty()) {
        std::string_view line = userFolders.substr(0, userFolders.find('\n'));
        userFolders.remove_prefix(std::min(line.size() + 1, userFolders.size()));
        line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
        const std::size_t value = line.find(assigned);
        if (!line.starts_with("XDG_") || value == std::string_view::npos ||
            (downloads == Downloads::leftOut && line.starts_with("XDG_DOWNLOAD_"))) {
            continue;
        }
        std::string path = unquoted(line.substr(value + assigned.size()));
        if (path.starts_with(homeMark)) path.replace(0, homeMark.size(), home.path());
        if (!path.starts_with('/')) continue;
        FileURL folder = FileURL::folder(path);
        // One that holds the home would protect everything.
        if (!path::isInsideOrEqual(home.path(), folder.path())) {
            folders.push_back(std::move(folder));
        }
    }
    return folders;
}

/// The desktop's list; empty where there is none, nothing when it cannot be read.
std::optional<std::string> desktopList(const FileURL& home) {
    constexpr std::size_t most = 1'000'000;
    auto list = platform::readWholeFile(home.appending(".config/user-dirs.dirs").path(), most);
    if (list) return *std::move(list);
    if (list.error().code == ENOENT || list.error().code == ENOTDIR) return std::string();
    return std::nullopt;
}

} // namespace

std::vector<FileURL> personalFoldersIn(std::string_view userFolders, const FileURL& home) {
    return foldersIn(userFolders, home, Downloads::leftOut);
}

std::optional<std::vector<FileURL>> desktopFolders(const FileURL& home) {
    const auto list = desktopList(home);
    if (!list) return std::nullopt;
    return foldersIn(*list, home, Downloads::included);
}

std::optional<std::vector<FileURL>> protectedFolders(const FileURL& home) {
    const auto list = desktopList(home);
    if (!list) return std::nullopt;
    std::vector<FileURL> folders = personalFoldersIn(*list, home);
    for (const std::string_view folder : kept) folders.push_back(home.appendingFolder(folder));
    folders.push_back(platform::applicationSupportFolder().appendingFolder("Harborline"));
    return folders;
}

} // namespace tidyro

#include "StorageEngine/Places/HomeFolders.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>

#include "Base/PathText.h"
#include "Base/UnicodeText.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "StorageEngine/Places/BaseFolders.h"

namespace tidyro {

namespace {

constexpr std::array<std::string_view, 12> standardFolders{
    "Desktop", "Documents", "Downloads", "Movies",       "Music",  "Pictures",
    "Public",  "Library",   "Sites",     "Applications", "Videos", "Templates"};

constexpr std::array<std::string_view, 48> neverChosenRoots{
    ".config",
    ".config/autostart",
    ".config/systemd",
    ".local",
    ".local/bin",
    ".local/lib",
    ".local/share",
    ".local/share/Trash",
    ".local/share/Trash/files",
    ".local/share/Trash/info",
    ".local/share/applications",
    ".local/share/containers",
    ".local/share/flatpak",
    ".local/share/keyrings",
    ".local/state",
    ".cache",
    ".var",
    ".var/app",
    ".ssh",
    ".gnupg",
    ".pki",
    ".password-store",
    ".mozilla",
    ".thunderbird",
    ".Trash",
    "bin",
    "snap",
    "Library/Accounts",
    "Library/Application Scripts",
    "Library/Application Support",
    "Library/Caches",
    "Library/Calendars",
    "Library/Containers",
    "Library/Cookies",
    "Library/Developer",
    "Library/Developer/CoreSimulator",
    "Library/Developer/CoreSimulator/Devices",
    "Library/Developer/Xcode",
    "Library/Fonts",
    "Library/Group Containers",
    "Library/Keychains",
    "Library/LaunchAgents",
    "Library/Logs",
    "Library/Mail",
    "Library/Messages",
    "Library/Preferences",
    "Library/Safari",
    "Library/Services",
};

constexpr std::array<std::string_view, 28> cloudNames{
    "Library/Mobile Documents",
    "Library/CloudStorage",
    "iCloud Drive (Archive)",
    "iCloudDrive",
    "Dropbox",
    "OneDrive",
    "Google Drive",
    "GoogleDrive",
    "My Drive",
    "Nextcloud",
    "ownCloud",
    "pCloudDrive",
    "pCloud Drive",
    "Box",
    "Box Sync",
    "MEGA",
    "Sync",
    "Proton Drive",
    "Insync",
    "Tresorit",
    "Seafile",
    "Yandex.Disk",
    "kDrive",
    "MEGAsync",
    "SynologyDrive",
    "Synology Drive",
    "Jottacloud",
    "Koofr",
};

/// Cloud folders whose names are words as well: "sync.sh" and "Box-2" need not be a cloud's.
constexpr std::array<std::string_view, 3> ambiguousClouds{"box", "mega", "sync"};

constexpr auto protectedPlaces = std::to_array<std::string_view>({
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

    // Keys of servers and of this person
    ".git-credentials",
    ".netrc",
    ".npmrc",
    ".pypirc",
    ".aws/config",
    ".aws/credentials",
    ".aws/sso",
    ".kube/config",
    ".docker/config.json",
    ".config/age",
    ".config/borg",
    ".config/gh",
    ".config/rclone",
    ".config/sops",

    // Passwords and wallets
    ".config/1Password",
    ".config/Bitwarden",
    ".config/Bitwarden CLI",
    ".config/keepassxc",
    ".config/op",
    ".bitcoin/wallets",
    ".electrum",
    ".ethereum/keystore",

    // Mail
    ".claws-mail",
    ".maildir",
    "Mail",
    "Maildir",
    ".thunderbird",
    "snap/thunderbird/common/.thunderbird",
    ".config/evolution",
    ".local/share/akonadi",
    ".local/share/evolution",
    ".local/share/geary",
    ".local/share/local-mail",

    // Profiles of browsers that keep their caches elsewhere
    ".librewolf",
    ".mozilla",
    ".waterfox",
    ".local/share/epiphany",
    ".var/app/org.mozilla.firefox/.mozilla",
    "snap/firefox/common/.mozilla",

    // Games and machines, and what people did in them
    ".config/unity3d",
    ".local/share/gnome-boxes",
    ".local/share/lutris",
    ".local/share/Steam/steamapps/compatdata",
    ".local/share/Steam/userdata",
    ".steam/debian-installation/steamapps/compatdata",
    ".steam/debian-installation/userdata",
    ".var/app/com.valvesoftware.Steam/.local/share/Steam/steamapps/compatdata",
    ".var/app/com.valvesoftware.Steam/.local/share/Steam/userdata",
    ".minecraft",
    ".wine",

    // What is kept in step with other machines, and what shells remember
    ".config/syncthing",
    ".local/state/syncthing",
    ".local/share/atuin",
    ".local/share/fish",

    // People's data in the midst of caches: files on their way, databases, histories, models
    ".cache/bash",
    ".cache/deno/location_data",
    ".cache/evolution",
    ".cache/kioexec",
    ".cache/lm-studio",
    ".cache/obexd",
    ".cache/rclone",
    ".cache/zsh",
});

const std::vector<std::string>& foldedClouds() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all;
        all.reserve(std::size(cloudNames));
        for (const std::string_view name : cloudNames) all.push_back(folded(name));
        return all;
    }();
    return names;
}

} // namespace

std::span<const std::string_view> HomeFolders::standardHomeFolders() { return standardFolders; }

std::span<const std::string_view> HomeFolders::neverChosenHomeRoots() { return neverChosenRoots; }

std::span<const std::string_view> HomeFolders::cloudFolders() { return cloudNames; }

bool HomeFolders::isInCloudFolder(std::string_view foldedBelowHome) {
    const std::string_view first = foldedBelowHome.substr(0, foldedBelowHome.find('/'));
    if (first.ends_with(" dropbox")) return true;
    return std::ranges::any_of(foldedClouds(), [&](const std::string& cloud) {
        if (path::isInsideOrEqual(foldedBelowHome, cloud)) return true;
        if (!first.starts_with(cloud)) return false;
        const std::string_view added = first.substr(cloud.size());
        if (added.starts_with(" - ") || added.starts_with(" (")) return true;
        constexpr std::string_view beginnings = "-._0123456789";
        return beginnings.find(added.front()) != std::string_view::npos &&
               std::ranges::find(ambiguousClouds, cloud) == ambiguousClouds.end();
    });
}

std::optional<std::vector<FileURL>> HomeFolders::findCloudFolders(const FileURL& home) {
    std::vector<FileURL> folders;
    folders.reserve(cloudNames.size());
    for (const std::string_view name : cloudNames) {
        folders.push_back(home.appendingFolder(name));
    }
    std::error_code failed;
    for (std::filesystem::directory_iterator at(home.path(), failed), end; !failed && at != end;
         at.increment(failed)) {
        const std::string name = at->path().filename().string();
        if (isInCloudFolder(folded(name))) {
            folders.push_back(home.appendingFolder(name));
        }
    }
    if (failed && failed.value() != ENOENT) return std::nullopt;
    return folders;
}

std::vector<FileURL> HomeFolders::protectedFolders(const FileURL& home) {
    std::vector<FileURL> folders;
    folders.reserve(protectedPlaces.size() + 1);
    const BaseFolders bases = BaseFolders::ofKeptPlaces(home);
    for (const std::string_view folder : protectedPlaces) {
        folders.push_back(home.appendingFolder(folder));
        // The usual place stays protected, since older data may still lie there.
        const std::string moved = bases.moved(folder);
        if (moved != folder) folders.push_back(home.appendingFolder(moved));
    }
    folders.push_back(platform::applicationSupportFolder().appendingFolder("Harborline"));
    return folders;
}

} // namespace tidyro

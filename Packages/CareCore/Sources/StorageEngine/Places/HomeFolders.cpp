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

constexpr std::array<std::string_view, 14> protectedPlaces{
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
    for (const std::string_view folder : protectedPlaces)
        folders.push_back(home.appendingFolder(folder));
    folders.push_back(platform::applicationSupportFolder().appendingFolder("Harborline"));
    return folders;
}

} // namespace tidyro

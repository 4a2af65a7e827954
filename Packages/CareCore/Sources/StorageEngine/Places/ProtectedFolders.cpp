#include "StorageEngine/Places/ProtectedFolders.h"

#include <array>
#include <string_view>

#include "Platform/Folders/WellKnownFolders.h"

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

} // namespace

std::vector<FileURL> protectedFolders(const FileURL& home) {
    std::vector<FileURL> folders;
    folders.reserve(kept.size() + 1);
    for (const std::string_view folder : kept) folders.push_back(home.appendingFolder(folder));
    folders.push_back(platform::applicationSupportFolder().appendingFolder("Harborline"));
    return folders;
}

} // namespace tidyro

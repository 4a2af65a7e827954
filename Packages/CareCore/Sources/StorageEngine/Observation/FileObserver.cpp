#include "StorageEngine/Observation/FileObserver.h"

#include "Base/PathText.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "StorageEngine/Observation/DatabaseFile.h"

namespace tidyro {

namespace {

FileKind kindOf(platform::ItemKind kind) {
    switch (kind) {
    case platform::ItemKind::regularFile: return FileKind::regularFile;
    case platform::ItemKind::folder: return FileKind::directory;
    case platform::ItemKind::link:
    case platform::ItemKind::other: break;
    }
    return FileKind::other;
}

/// Whether the file is a database by itself. A file that is gone is none.
bool isDatabaseByItself(const FileObservation& file, bool isNearJournal) {
    const bool hasItsLength = DatabaseFile::hasDatabaseLength(file.byteCount);
    if (!hasItsLength && !isNearJournal) return false; // nearly every file
    const auto folder =
        platform::FolderDescriptor::openRoot(std::string(path::parent(file.url.path())));
    if (!folder) return !platform::hasVanished(folder.error());
    const std::string name(file.url.lastComponent());
    if (isNearJournal && DatabaseFile::hasJournal(*folder, name.c_str()).value_or(true)) {
        return true;
    }
    if (!hasItsLength) return false;
    const auto seen = platform::fileMetadata(*folder, name.c_str());
    if (!seen) return !platform::hasVanished(seen.error());
    if (seen->kind != platform::ItemKind::regularFile) return false;
    return DatabaseFile::isDatabase(*folder, name.c_str(), *seen).value_or(true);
}

} // namespace

std::expected<FileObservation, SystemError> FileIdentity::observation(const FileURL& at) {
    return observation(at, platform::homeFolder(), platform::LiveVolumes());
}

std::expected<FileObservation, SystemError>
FileIdentity::observation(const FileURL& at, const FileURL& home,
                          const platform::Volumes& volumes) {
    return FileObserver(home, volumes).observation(at);
}

FileObserver::FileObserver(const FileURL& home, const platform::Volumes& volumes)
    : volumes_(volumes.mounted().value_or(std::vector<platform::Volume>{})), surroundings_(home) {}

FileObservation FileObserver::assemble(const platform::FileMetadata& seen, const FileURL& url,
                                       bool isReadable) {
    const bool isFolder = seen.kind == platform::ItemKind::folder;
    const FolderSurroundings around =
        surroundings_.surroundings(isFolder ? url.path() : std::string(path::parent(url.path())));
    const platform::Volume* volume = platform::volumeOf(seen, volumes_);
    FileObservation observation{
        .id = {.rawValue = url.text()},
        .url = url,
        .kind = kindOf(seen.kind),
        .byteCount = seen.byteCount,
        .creationDate = seen.created,
        .modificationDate = seen.modified,
        .ownerUserID = seen.ownerUserID,
        .fileResourceIdentifier =
            std::to_string(seen.identity.device) + ":" + std::to_string(seen.identity.inode),
        .isReadable = isReadable,
        .isCloudPlaceholder = seen.isDataless,
        .isInProjectRepository = around.isInProjectRepository,
        .isBackupArtifact = around.isInBackup || isBackupByName(url.lastComponent()),
        .linkCount = seen.linkCount,
    };
    if (volume != nullptr) observation.volumeIdentifier = SharedText::made(volume->identifier);
    return observation;
}

std::expected<FileObservation, SystemError> FileObserver::observation(const FileURL& at) {
    const auto seen = platform::fileMetadata(at.path());
    if (!seen) return std::unexpected(seen.error());
    return assemble(*seen, at, platform::isReadable(at.path()));
}

FileObservation FileObserver::observation(const platform::FolderDescriptor& folder,
                                          const FileURL& at, const platform::FileMetadata& seen) {
    const std::string name(at.lastComponent());
    return assemble(seen, at, platform::isReadable(folder, name.c_str()));
}

std::expected<FileObservation, SystemError>
FileObserver::observation(const platform::FolderDescriptor& folder, const FileURL& url,
                          const char* name) {
    const auto seen = platform::fileMetadata(folder, name);
    if (!seen) return std::unexpected(seen.error());
    return assemble(*seen,
                    seen->kind == platform::ItemKind::folder ? url.appendingFolder(name)
                                                             : url.appending(name),
                    platform::isReadable(folder, name));
}

PartOf FileObserver::partOf(const FileObservation& file) {
    const FolderSurroundings around =
        surroundings_.surroundings(std::string(path::parent(file.url.path())));
    if (around.isInDatabase) return PartOf::database;
    if (around.isInHistory) return PartOf::repository;
    if (around.isInEnvironment) return PartOf::environment;
    if (isDatabaseByItself(file, around.isNearJournal)) return PartOf::database;
    return around.isInToolCheckout ? PartOf::toolCheckout : PartOf::nothing;
}

} // namespace tidyro

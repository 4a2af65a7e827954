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

FileObserver::Readable readableIf(bool isReadable) {
    return isReadable ? FileObserver::Readable::yes : FileObserver::Readable::no;
}

/// Whether the file is a database by itself. A file that is gone is none.
bool isDatabaseByItself(const platform::FolderDescriptor& folder, const FileObservation& file,
                        bool isNearJournal) {
    const bool hasItsLength = DatabaseFile::hasDatabaseLength(file.byteCount);
    if (!hasItsLength && !isNearJournal) return false; // nearly every file
    const std::string name(file.url.lastComponent());
    if (isNearJournal && DatabaseFile::hasJournal(folder, name.c_str()).value_or(true)) {
        return true;
    }
    if (!hasItsLength) return false;
    const auto seen = platform::fileMetadata(folder, name.c_str());
    if (!seen) return !platform::hasVanished(seen.error());
    if (seen->kind != platform::ItemKind::regularFile) return false;
    return DatabaseFile::isDatabase(folder, name.c_str(), *seen).value_or(true);
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
    : volumes_(volumes.mounted().value_or(std::vector<platform::Volume>{})), surroundings_(home) {
    for (const platform::Volume& volume : volumes_) {
        volumeIdentifiers_.push_back(SharedText::made(volume.identifier));
    }
}

const FolderSurroundings& FileObserver::around(std::string_view folder) {
    if (folder != lastFolder_) {
        lastFolder_ = folder;
        lastAround_ = surroundings_.surroundings(lastFolder_);
    }
    return lastAround_;
}

const platform::Volume* FileObserver::volumeOf(const platform::FileMetadata& seen) {
    if (!seen.mount) return platform::volumeOf(seen, volumes_);
    if (seen.mount != lastMount_) {
        lastMount_ = seen.mount;
        lastVolume_ = platform::volumeOf(seen, volumes_);
    }
    return lastVolume_;
}

FileObservation FileObserver::observation(const FileURL& url, const platform::FileMetadata& seen,
                                          Readable readable) {
    const bool isFolder = seen.kind == platform::ItemKind::folder;
    const FolderSurroundings& above =
        around(isFolder ? std::string_view(url.path()) : path::parent(url.path()));
    const platform::Volume* volume = volumeOf(seen);
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
        .isReadable = readable == Readable::yes,
        .isCloudPlaceholder = seen.isDataless,
        .isInProjectRepository = above.isInProjectRepository,
        .isBackupArtifact = above.isInBackup || isBackupByName(url.lastComponent()),
        .linkCount = seen.linkCount,
    };
    if (volume != nullptr) {
        observation.volumeIdentifier =
            volumeIdentifiers_[static_cast<std::size_t>(volume - volumes_.data())];
    }
    return observation;
}

std::expected<FileObservation, SystemError> FileObserver::observation(const FileURL& at) {
    const auto seen = platform::fileMetadata(at.path());
    if (!seen) return std::unexpected(seen.error());
    return observation(at, *seen, readableIf(platform::isReadable(at.path())));
}

FileObservation FileObserver::observation(const platform::FolderDescriptor& folder,
                                          const FileURL& at, const platform::FileMetadata& seen) {
    const std::string name(at.lastComponent());
    return observation(at, seen, readableIf(platform::isReadable(folder, name.c_str())));
}

std::expected<FileObservation, SystemError>
FileObserver::observation(const platform::FolderDescriptor& folder, const FileURL& url,
                          const char* name) {
    const auto seen = platform::fileMetadata(folder, name);
    if (!seen) return std::unexpected(seen.error());
    return observation(seen->kind == platform::ItemKind::folder ? url.appendingFolder(name)
                                                                : url.appending(name),
                       *seen, readableIf(platform::isReadable(folder, name)));
}

PartOf FileObserver::partOf(const platform::FolderDescriptor& folder, const FileObservation& file) {
    const FolderSurroundings& above = around(path::parent(file.url.path()));
    if (above.isInDatabase) return PartOf::database;
    if (above.isInHistory) return PartOf::repository;
    if (above.isInEnvironment) return PartOf::environment;
    if (isDatabaseByItself(folder, file, above.isNearJournal)) return PartOf::database;
    return above.isInToolCheckout ? PartOf::toolCheckout : PartOf::nothing;
}

} // namespace tidyro

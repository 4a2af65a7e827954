#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>

#include "Base/FileURL.h"
#include "Base/RawValues.h"
#include "Base/Record.h"
#include "Base/SharedText.h"
#include "Base/Timestamp.h"

namespace tidyro {

/// The name by which one report, its plans and its receipts speak of one item. It is opaque: it
/// only tells whether two items are the same. The text is UTF-8, so that it survives JSON. To make
/// one from a path, take the URL's text, not the path's bytes.
struct LocalItemID {
    std::string rawValue;

    static constexpr auto fields() {
        return fieldList<LocalItemID>(field("rawValue", &LocalItemID::rawValue));
    }
    auto operator<=>(const LocalItemID&) const = default;
};

/// The kind of an item on the disk. Links are not followed: a link is `other`.
enum class FileKind { regularFile, directory, other };

constexpr RawValueTable<FileKind, 3> rawValues(RawValueTag<FileKind>) {
    return {{{{FileKind::regularFile, "regularFile"},
              {FileKind::directory, "directory"},
              {FileKind::other, "other"}}}};
}

/// What one look at a file or folder saw. It is true of that moment only. Before an item is touched
/// it is observed again and compared by its `FileFingerprint`.
struct FileObservation {
    LocalItemID id; ///< unique within a report
    FileURL url;
    FileKind kind;
    std::uint64_t byteCount;
    std::optional<Timestamp> creationDate = std::nullopt;
    std::optional<Timestamp> modificationDate = std::nullopt;
    std::optional<std::uint32_t> ownerUserID = std::nullopt;
    std::optional<SharedText> volumeIdentifier = std::nullopt; ///< one text for all of a volume
    std::optional<std::string> fileResourceIdentifier = std::nullopt; ///< "device:inode", decimal
    bool isReadable;
    bool isCloudPlaceholder; ///< its contents are not on this disk
    bool isInProjectRepository;
    bool isBackupArtifact;
    std::uint64_t linkCount; ///< hard links

    static constexpr auto fields() {
        using Self = FileObservation;
        return fieldList<Self>(field("id", &Self::id), field("url", &Self::url),
                               field("kind", &Self::kind), field("byteCount", &Self::byteCount),
                               field("creationDate", &Self::creationDate),
                               field("modificationDate", &Self::modificationDate),
                               field("ownerUserID", &Self::ownerUserID),
                               field("volumeIdentifier", &Self::volumeIdentifier),
                               field("fileResourceIdentifier", &Self::fileResourceIdentifier),
                               field("isReadable", &Self::isReadable),
                               field("isCloudPlaceholder", &Self::isCloudPlaceholder),
                               field("isInProjectRepository", &Self::isInProjectRepository),
                               field("isBackupArtifact", &Self::isBackupArtifact),
                               field("linkCount", &Self::linkCount));
    }
    bool operator==(const FileObservation&) const = default;
};

} // namespace tidyro

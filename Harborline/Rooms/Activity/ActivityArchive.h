#pragma once

#include <expected>
#include <string>
#include <variant>
#include <vector>

#include "Base/Calendar.h"
#include "Base/FileURL.h"
#include "Base/JSONCoding.h"
#include "Base/SystemError.h"
#include "Rooms/Activity/FolderSnapshot.h"

namespace tidyro {

/// Activity's snapshots on disk: one JSON file a snapshot, kept until a person removes it.
///
/// A file is named by the date and time of the scan and the snapshot's id, "2026-11-21 093012
/// 6F9619FF-....json". They are those of UTC, so that names sort by age wherever a person travels.
/// It holds the fields of FolderSnapshot under their names.
class ActivityArchive {
  public:
    /// The file could not be written or read.
    struct FileFailure {
        FileURL url;
        SystemError error;
        bool isWriting;
        bool operator==(const FileFailure&) const = default;
    };
    /// The file is there, but it holds no snapshot.
    struct Damaged {
        FileURL url;
        DecodingError error;
        bool operator==(const Damaged&) const = default;
    };
    using Error = std::variant<FileFailure, Damaged>;
    /// One sentence for people.
    [[nodiscard]] static std::string description(const Error& error);

    /// "Harborline/Activity" in the person's Application Support folder.
    [[nodiscard]] static FileURL defaultDirectory();

    explicit ActivityArchive(FileURL directory = defaultDirectory());

    /// Keeps a snapshot durably and returns its file. The folder is made when it is missing.
    [[nodiscard]] std::expected<FileURL, Error>
    save(const FolderSnapshot& snapshot, const Calendar& calendar = Calendar::utc()) const;

    /// The files of the archive, oldest first; none when the folder does not exist.
    [[nodiscard]] std::expected<std::vector<FileURL>, Error> files() const;

    [[nodiscard]] static std::expected<FolderSnapshot, Error> load(const FileURL& file);

  private:
    FileURL directory_;
};

} // namespace tidyro

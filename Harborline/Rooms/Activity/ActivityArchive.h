#pragma once

#include <expected>
#include <string>
#include <variant>
#include <vector>

#include "Base/Calendar.h"
#include "Base/FileURL.h"
#include "Base/JSONForward.h"
#include "Base/SystemError.h"
#include "Rooms/Activity/FolderSnapshot.h"

namespace tidyro {

/// Activity's snapshots on disk: one JSON file for each snapshot, kept until a person removes it.
///
///     const ActivityArchive archive(folder);
///     const auto file = archive.save(FolderSnapshot::take(tree, {}));
///     if (!file) show(ActivityArchive::description(file.error()));
///     const auto kept = archive.files();
///     for (const FileURL& each : *kept) compare(ActivityArchive::load(each));
///
/// A file is named by the date and time of the scan and the snapshot's id, "2026-11-21 093012
/// 6F9619FF-....json". The time is that of UTC, so that names sort by age wherever a person
/// travels. The file holds the fields of FolderSnapshot under their names. Any thread may use an
/// archive.
class ActivityArchive {
  public:
    /// The snapshot could not be written into the folder.
    struct Unwritable {
        FileURL folder;
        SystemError error;
        bool operator==(const Unwritable&) const = default;
    };
    struct Unreadable {
        FileURL url;
        SystemError error;
        bool operator==(const Unreadable&) const = default;
    };
    /// The file can be read, but it holds no snapshot.
    struct Damaged {
        FileURL url;
        DecodingError error;
        bool operator==(const Damaged&) const = default;
    };
    using Error = std::variant<Unwritable, Unreadable, Damaged>;
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

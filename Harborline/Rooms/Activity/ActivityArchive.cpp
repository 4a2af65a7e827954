#include "Rooms/Activity/ActivityArchive.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "Base/JSONCoding.h"
#include "Platform/Files/DurableFile.h"
#include "Platform/Folders/WellKnownFolders.h"

namespace tidyro {

namespace {

/// Far above what a snapshot of the default size takes. A larger file is none of ours.
constexpr std::size_t maxSnapshotBytes = 256UL * 1024 * 1024;

struct Describe {
    std::string operator()(const ActivityArchive::Unwritable& failure) const {
        return fmt::format("The snapshot could not be kept in {} ({}).", failure.folder.path(),
                           failure.error.description());
    }
    std::string operator()(const ActivityArchive::Unreadable& failure) const {
        return fmt::format("The snapshot {} could not be read ({}).", failure.url.path(),
                           failure.error.description());
    }
    std::string operator()(const ActivityArchive::Damaged& damaged) const {
        return fmt::format("The file {} is not a snapshot. {}", damaged.url.path(),
                           damaged.error.description());
    }
};

} // namespace

std::string ActivityArchive::description(const Error& error) {
    return std::visit(Describe{}, error);
}

FileURL ActivityArchive::defaultDirectory() {
    return platform::applicationSupportFolder().appendingFolder("Harborline/Activity");
}

ActivityArchive::ActivityArchive(FileURL directory) : directory_(std::move(directory)) {}

std::expected<FileURL, ActivityArchive::Error>
ActivityArchive::save(const FolderSnapshot& snapshot, const Calendar& calendar) const {
    const DateComponents date = calendar.components(snapshot.takenAt);
    FileURL file = directory_.appending(fmt::format("{:04}-{:02}-{:02} {:02}{:02}{:02} {}.json",
                                                    date.year, date.month, date.day, date.hour,
                                                    date.minute, date.second, snapshot.id.text()));
    if (const auto made = platform::makePrivateFolder(directory_.path()); !made) {
        return std::unexpected(Unwritable{directory_, made.error()});
    }
    if (const auto written = platform::writeDurably(file.path(), jsonText(toJSON(snapshot)));
        !written) {
        return std::unexpected(Unwritable{directory_, written.error()});
    }
    return file;
}

std::expected<std::vector<FileURL>, ActivityArchive::Error> ActivityArchive::files() const {
    std::vector<FileURL> found;
    std::error_code failed;
    std::filesystem::directory_iterator entries(directory_.path(), failed);
    while (!failed && entries != std::filesystem::directory_iterator()) {
        const std::string name = entries->path().filename().string();
        if (name.ends_with(".json") && !name.starts_with('.')) {
            found.push_back(directory_.appending(name));
        }
        entries.increment(failed);
    }
    if (failed && failed != std::errc::no_such_file_or_directory) {
        return std::unexpected(Unreadable{directory_, {failed.value()}});
    }
    std::ranges::sort(found);
    return found;
}

std::expected<FolderSnapshot, ActivityArchive::Error> ActivityArchive::load(const FileURL& file) {
    const auto text = platform::readWholeFile(file.path(), maxSnapshotBytes);
    if (!text) return std::unexpected(Unreadable{file, text.error()});
    auto snapshot = fromJSONText<FolderSnapshot>(*text);
    if (!snapshot) return std::unexpected(Damaged{file, snapshot.error()});
    return *std::move(snapshot);
}

} // namespace tidyro

#include "StorageEngine/Tools/ToolCommandLog.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <tuple>
#include <utility>

#include <fmt/format.h>

#include "Base/JSONCoding.h"
#include "Platform/Files/DurableFile.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/WellKnownFolders.h"

namespace tidyro {

namespace {

using Record = ToolCommandLog::Record;

constexpr std::string_view recordEnding = ".json";
constexpr std::size_t maxRecordBytes = 1'048'576;

/// A file of its own beside the record, locked while the command runs. The record itself cannot be
/// locked, since it is replaced. Nobody but the one who runs the command ever takes the lock, so
/// the file may be removed.
std::string lockPath(const FileURL& directory, const UUID& id) {
    return directory.appending(id.text() + ".lock").path();
}

void removeLock(const FileURL& directory, const UUID& id) {
    std::error_code unchanged;
    std::filesystem::remove(lockPath(directory, id), unchanged);
}

/// The id that a record's file is named by.
std::optional<UUID> recordIDIn(std::string_view name) {
    if (!name.ends_with(recordEnding)) return std::nullopt;
    return UUID::fromText(name.substr(0, name.size() - recordEnding.size()));
}

template <class Value>
void takeValue(const JSON& object, std::string_view key, Value& value) {
    const auto found = object.find(key);
    if (found == object.end()) return;
    if (auto read = fromJSON<Value>(*found)) value = std::move(*read);
}

/// What can be read of a record whose file was cut off: the keys that another one follows, since a
/// number without its end would be another number. Whether the command has finished stands behind
/// all that is taken.
void takeWhatIsWhole(std::string_view text, Record& record) {
    // A text in the record may end with a comma as well, and then what stands before is no
    // document. A record has fewer keys than this; other bytes have no claim to our time.
    constexpr int maxTries = 8;
    std::size_t end = text.rfind(",\"");
    for (int tries = 0; tries < maxTries && end != std::string_view::npos && end > 0; ++tries) {
        const auto object = parseJSON(std::string(text.substr(0, end)) + "}");
        if (object && object->is_object()) {
            takeValue(*object, "command", record.command);
            takeValue(*object, "executablePath", record.executablePath);
            takeValue(*object, "startedAt", record.startedAt);
            return;
        }
        end = text.rfind(",\"", end - 1);
    }
}

/// None for what is no file of a record.
std::optional<Record> readRecord(const std::string& path, const UUID& id) {
    const auto seen = platform::fileMetadata(path);
    if (!seen || seen->kind != platform::ItemKind::regularFile) return std::nullopt;
    const auto text = platform::readWholeFile(path, maxRecordBytes);
    if (text) {
        if (auto record = fromJSONText<Record>(*text); record && record->id == id) return *record;
    }
    Record damaged{.id = id,
                   .command = {},
                   .executablePath = {},
                   .startedAt = seen->modified.value_or(Timestamp())};
    if (text) takeWhatIsWhole(*text, damaged);
    return damaged;
}

} // namespace

ToolCommandLog ToolCommandLog::applicationDefault() {
    return {platform::applicationSupportFolder().appendingFolder("Harborline/ToolCommands")};
}

std::expected<void, SystemError> ToolCommandLog::write(const Record& record,
                                                       platform::ChangeGate& gate) const {
    if (auto made = platform::makePrivateFolder(directory.path(), gate); !made) return made;
    const std::string path =
        directory.appending(record.id.text() + std::string(recordEnding)).path();
    // A sibling of its own name: what a crash leaves of it, the next write of the record takes.
    auto written = platform::writeDurably(path, jsonText(toJSON(record)),
                                          {.sibling = path + ".partial", .gate = &gate});
    if (written && record.finishedAt) removeLock(directory, record.id);
    return written;
}

std::expected<ToolCommandLog::Running, SystemError>
ToolCommandLog::begin(Record record, platform::ChangeGate& gate) const {
    if (auto made = platform::makePrivateFolder(directory.path(), gate); !made) {
        return std::unexpected(made.error());
    }
    // Locked before the record is there, so that the record is never seen without its lock. Until
    // then nobody looks at the lock, so it is not waited for.
    auto lock = platform::FileLock::take(lockPath(directory, record.id), std::chrono::seconds(0));
    if (!lock) return std::unexpected(lock.error());
    if (auto written = write(record, gate); !written) {
        removeLock(directory, record.id);
        return std::unexpected(written.error());
    }
    return Running(directory, std::move(record), *std::move(lock));
}

std::expected<void, SystemError> ToolCommandLog::Running::finish(std::string result,
                                                                 platform::ChangeGate& gate) {
    record_.finishedAt = Timestamp::now();
    record_.result = std::move(result);
    return ToolCommandLog{directory_}.write(record_, gate);
}

std::vector<Record> ToolCommandLog::interrupted() const {
    std::vector<Record> records;
    std::error_code failed;
    for (std::filesystem::directory_iterator at(directory.path(), failed), end;
         !failed && at != end; at.increment(failed)) {
        const auto id = recordIDIn(at->path().filename().native());
        if (!id) continue;
        // Asked before the record is read: a command that finishes in between has then written it.
        const auto lock = platform::FileLock::state(lockPath(directory, *id));
        if (lock && lock->isHeld) continue;
        const auto record = readRecord(at->path().native(), *id);
        if (record && !record->finishedAt) records.push_back(*record);
    }
    std::ranges::sort(records, {},
                      [](const Record& record) { return std::tuple(record.startedAt, record.id); });
    return records;
}

std::string ToolCommandLog::interruptionText(const Record& record, const Calendar& calendar) {
    const DateComponents at = calendar.components(record.startedAt);
    // A damaged record may have lost its command.
    const std::string command =
        record.command.empty() ? "A command" : "The command \"" + record.command + "\"";
    return fmt::format(
        "{} that Tidyro started on {}-{:02}-{:02} at {:02}:{:02} was interrupted, so "
        "it may have done only a part of its work.",
        command, at.year, at.month, at.day, at.hour, at.minute);
}

} // namespace tidyro

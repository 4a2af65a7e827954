#include "StorageEngine/Tools/ToolCommandLog.h"

#include <algorithm>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <tuple>
#include <utility>

#include "Base/JSONCoding.h"
#include "Platform/Files/DurableFile.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/WellKnownFolders.h"

namespace tidyro {

namespace {

using Record = ToolCommandLog::Record;

constexpr std::string_view recordEnding = ".json";
constexpr std::size_t maxRecordBytes = 1'048'576;

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
    return platform::writeDurably(path, jsonText(toJSON(record)),
                                  {.sibling = path + ".partial", .gate = &gate});
}

std::vector<Record> ToolCommandLog::interrupted() const {
    std::vector<Record> records;
    std::error_code failed;
    for (std::filesystem::directory_iterator at(directory.path(), failed), end;
         !failed && at != end; at.increment(failed)) {
        const auto id = recordIDIn(at->path().filename().native());
        if (!id) continue;
        const auto record = readRecord(at->path().native(), *id);
        if (record && !record->finishedAt) records.push_back(*record);
    }
    std::ranges::sort(records, {},
                      [](const Record& record) { return std::tuple(record.startedAt, record.id); });
    return records;
}

} // namespace tidyro

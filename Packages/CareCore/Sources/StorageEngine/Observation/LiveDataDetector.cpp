#include "StorageEngine/Observation/LiveDataDetector.h"

#include <algorithm>
#include <array>

#include "Base/PathText.h"
#include "Base/StableHash.h"

namespace tidyro {

namespace {

constexpr std::array<std::string_view, 8> writeAheadLogSuffixes{
    "-wal", "-shm", "-journal", ".wal", ".shm", ".journal", ".ldb", ".log.old"};
static_assert(tableHash(writeAheadLogSuffixes) == 0x3394'27f5'1b19'3950);

constexpr std::array<std::string_view, 13> databaseExtensions{
    "sqlite",  "sqlite3", "db",    "db3",      "s3db",      "sl3",      "realm",
    "leveldb", "mdb",     "accdb", "sqlitedb", "storedata", "pages-tef"};
static_assert(tableHash(databaseExtensions) == 0x98b4'6b91'c2a8'efe8);

/// Folders in which browsers and applications built like them keep their databases.
constexpr std::array<std::string_view, 7> storeDirectories{
    "leveldb",   "indexeddb",  "local storage", "session storage",
    "databases", "webstorage", "file system"};
static_assert(tableHash(storeDirectories) == 0x5243'f96b'3b1f'a740);

template <std::size_t Count>
bool contains(const std::array<std::string_view, Count>& names, std::string_view name) {
    return std::ranges::find(names, name) != names.end();
}

} // namespace

std::string_view explanation(LiveDataSignal signal) {
    switch (signal) {
    case LiveDataSignal::database:
        return "This is a database. Removing it loses whatever the owning app stored in it.";
    case LiveDataSignal::writeAheadLog:
        return "This is a database write-ahead log. Removing it while the database exists can "
               "corrupt it.";
    case LiveDataSignal::activeGrowth:
        return "This grew while the scan was running, so something is writing to it right now.";
    }
    return {};
}

std::optional<LiveDataSignal> LiveDataDetector::signal(const FileURL& url) {
    return signal(LoweredPath(url.path()));
}

std::optional<LiveDataSignal> LiveDataDetector::signal(const LoweredPath& path) {
    const std::string_view name = path.lastComponent();
    if (std::ranges::any_of(writeAheadLogSuffixes,
                            [&](std::string_view suffix) { return name.ends_with(suffix); })) {
        return LiveDataSignal::writeAheadLog;
    }
    if (contains(databaseExtensions, path::extensionOf(name)) ||
        path.hasComponent([](std::string_view part) { return contains(storeDirectories, part); })) {
        return LiveDataSignal::database;
    }
    return std::nullopt;
}

} // namespace tidyro

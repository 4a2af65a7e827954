#include "StorageEngine/Observation/FolderSigns.h"

#include <algorithm>
#include <array>

#include "Base/LoweredPath.h"
#include "Platform/Files/FileMetadata.h"
#include "StorageEngine/Observation/FileBeginning.h"

namespace tidyro {

namespace {

/// The names by which a folder gives itself away, as bits.
enum class Sign : std::uint32_t {
    config = 1 << 0,
    data = 1 << 1,
    keys = 1 << 2,
    snapshots = 1 << 3,
    infoJSON = 1 << 4,
    localhost = 1 << 5,
    infoXML = 1 << 6,
    snapshot = 1 << 7,
    phoneManifest = 1 << 8,
    phoneStatus = 1 << 9,
    onlyOfBackups = 1 << 10,
    current = 1 << 11,
    manifest = 1 << 12,
    onlyOfDatabases = 1 << 13,
    head = 1 << 14,
    objects = 1 << 15,
    refs = 1 << 16,
    usedElsewhere = 1 << 17,
    onlyOfEnvironments = 1 << 18,
    journal = 1 << 19,
    chunks = 1 << 20,
    fileInfo = 1 << 21,
    backup = 1 << 22,
    workedIn = 1 << 23,
};

/// What an item has to be for its name to count. A link may lead to either.
enum class Needs : std::uint8_t { anything, file, folder };

struct NamedSign {
    std::string_view name;
    Sign sign;
    Needs needs = Needs::anything;
};
constexpr auto signNames = std::to_array<NamedSign>({
    {"config", Sign::config, Needs::file},
    {"data", Sign::data, Needs::folder},
    {"keys", Sign::keys, Needs::folder},
    {"snapshots", Sign::snapshots, Needs::folder},
    {"chunks", Sign::chunks, Needs::folder},
    {"fileinfo.bz2", Sign::fileInfo, Needs::file},
    {"backup", Sign::backup, Needs::folder},
    {"rdiff-backup-data", Sign::onlyOfBackups, Needs::folder},
    {"takesnapshot.log.bz2", Sign::onlyOfBackups, Needs::file},
    {"info.json", Sign::infoJSON},
    {"localhost", Sign::localhost},
    {"info.xml", Sign::infoXML},
    {"snapshot", Sign::snapshot},
    {"manifest.plist", Sign::phoneManifest},
    {"status.plist", Sign::phoneStatus},
    {"com.apple.timemachine.machineid.plist", Sign::onlyOfBackups},
    {"com.apple.timemachine.results.plist", Sign::onlyOfBackups},
    {"com.apple.timemachine.snapshothistory.plist", Sign::onlyOfBackups},
    {"backup_manifest.plist", Sign::onlyOfBackups},
    {"current", Sign::current, Needs::file},
    {"pg_version", Sign::onlyOfDatabases},
    {"ibdata1", Sign::onlyOfDatabases},
    {"wiredtiger", Sign::onlyOfDatabases},
    {"head", Sign::head},
    {"objects", Sign::objects},
    {"refs", Sign::refs},
    {"index", Sign::usedElsewhere}, // of the files that are checked out
    {"worktrees", Sign::usedElsewhere},
    {"pyvenv.cfg", Sign::onlyOfEnvironments},
    {"conda-meta", Sign::onlyOfEnvironments},
});
constexpr auto signBeginnings = std::to_array<NamedSign>({
    {"kopia.repository", Sign::onlyOfBackups, Needs::file},
    {"duplicity-full", Sign::onlyOfBackups},
    {"duplicity-inc", Sign::onlyOfBackups},
    {"duplicity-new-signatures", Sign::onlyOfBackups},
    {"manifest-", Sign::manifest, Needs::file},
});
constexpr auto signEndings = std::to_array<NamedSign>({
    {"-wal", Sign::journal},
    {"-shm", Sign::journal},
    {"-journal", Sign::journal},
});

/// In the top of a tree that somebody works in, in the order of how many use them.
constexpr auto historyNames = std::to_array<std::string_view>(
    {".git", ".svn", ".hg", ".jj", ".bzr", "_darcs", ".pijul", ".sl", ".fslckout", "_fossil_"});

/// rsnapshot numbers the folders of each of these intervals, the latest one with 0.
constexpr auto intervals = std::to_array<std::string_view>(
    {"hourly", "daily", "weekly", "monthly", "yearly", "alpha", "beta", "gamma", "delta"});

bool isAsNeeded(Needs needs, std::optional<platform::ItemKind> kind) {
    using enum platform::ItemKind;
    if (needs == Needs::anything || !kind || *kind == link) return true;
    return *kind == (needs == Needs::file ? regularFile : folder);
}

/// Whether a name ends like the manifests of a database: "MANIFEST-000004". Builds write
/// "manifest-3fa9.json".
bool endsInDigits(std::string_view name) {
    const std::string_view digits = name.substr(name.rfind('-') + 1);
    return !digits.empty() && digits.find_first_not_of("0123456789") == std::string_view::npos;
}

/// One of the archives that Duplicati writes: "duplicati-20260101T000000Z.dlist.zip.aes".
bool isDuplicatiArchive(std::string_view name) {
    return name.starts_with("duplicati-") &&
           (name.find(".dlist.") != name.npos || name.find(".dblock.") != name.npos ||
            name.find(".dindex.") != name.npos);
}

bool isNumberedInterval(std::string_view name) {
    return name.ends_with(".0") &&
           std::ranges::find(intervals, name.substr(0, name.size() - 2)) != intervals.end();
}

} // namespace

bool isHistoryName(std::string_view loweredName) {
    return !loweredName.empty() && (loweredName[0] == '.' || loweredName[0] == '_') &&
           std::ranges::find(historyNames, loweredName) != historyNames.end();
}

void FolderSigns::add(std::string_view loweredName, std::optional<platform::ItemKind> kind) {
    const auto note = [&](Sign sign) { bits_ |= static_cast<std::uint32_t>(sign); };
    if (isHistoryName(loweredName)) note(Sign::workedIn);
    for (const NamedSign& sign : signNames) {
        if (loweredName == sign.name && isAsNeeded(sign.needs, kind)) note(sign.sign);
    }
    for (const NamedSign& sign : signBeginnings) {
        if (!loweredName.starts_with(sign.name) || !isAsNeeded(sign.needs, kind)) continue;
        if (sign.sign != Sign::manifest || endsInDigits(loweredName)) note(sign.sign);
    }
    for (const NamedSign& sign : signEndings) {
        if (loweredName.ends_with(sign.name)) note(sign.sign);
    }
    const bool isOfBackup = (isNumberedInterval(loweredName) && isAsNeeded(Needs::folder, kind)) ||
                            (isDuplicatiArchive(loweredName) && isAsNeeded(Needs::file, kind));
    if (isOfBackup) note(Sign::onlyOfBackups);
}

void FolderSigns::add(const platform::FolderEntry& entry) {
    // What is no folder and no link may well be a file.
    platform::ItemKind kind = platform::ItemKind::regularFile;
    if (entry.type == platform::EntryType::folder) kind = platform::ItemKind::folder;
    if (entry.type == platform::EntryType::link) kind = platform::ItemKind::link;
    add(LoweredPath(entry.name).text(), kind);
}

bool FolderSigns::isBackup() const {
    const bool isRestic = hasAll(Sign::config, Sign::data, Sign::keys, Sign::snapshots);
    const bool isTimeshift = hasAll(Sign::infoJSON, Sign::localhost);
    const bool isSnapper = hasAll(Sign::infoXML, Sign::snapshot);
    const bool isPhone = hasAll(Sign::phoneManifest, Sign::phoneStatus);
    const bool isDuplicacy = hasAll(Sign::config, Sign::chunks, Sign::snapshots);
    const bool isBackInTime = hasAll(Sign::fileInfo, Sign::backup);
    return hasAll(Sign::onlyOfBackups) || isRestic || isTimeshift || isSnapper || isPhone ||
           isDuplicacy || isBackInTime;
}

bool FolderSigns::mayBeBorg() const { return hasAll(Sign::config, Sign::data); }

bool FolderSigns::isDatabase() const {
    return hasAll(Sign::onlyOfDatabases) || hasAll(Sign::current, Sign::manifest);
}

bool FolderSigns::hasJournal() const { return hasAll(Sign::journal); }

bool FolderSigns::isEnvironment() const { return hasAll(Sign::onlyOfEnvironments); }

bool FolderSigns::isWorkTree() const { return hasAll(Sign::workedIn); }

bool FolderSigns::isRepository() const { return hasAll(Sign::head, Sign::objects, Sign::refs); }

bool FolderSigns::isRepositoryOfOtherFolder() const {
    return isRepository() && hasAll(Sign::usedElsewhere);
}

bool isBorgRepository(const platform::FolderDescriptor& folder) {
    const auto seen = platform::fileMetadata(folder, "config");
    if (!seen) return !platform::hasVanished(seen.error());
    if (seen->kind != platform::ItemKind::regularFile) {
        return seen->kind == platform::ItemKind::link; // nobody knows what it leads to
    }
    return fileBeginsWith(folder, "config", *seen, "[repository]").value_or(true);
}

} // namespace tidyro

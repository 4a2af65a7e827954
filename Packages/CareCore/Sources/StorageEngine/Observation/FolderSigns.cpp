#include "StorageEngine/Observation/FolderSigns.h"

#include <array>

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
};

struct NamedSign {
    std::string_view name;
    Sign sign;
};
constexpr std::array<NamedSign, 25> signNames{{
    {"config", Sign::config},
    {"data", Sign::data},
    {"keys", Sign::keys},
    {"snapshots", Sign::snapshots},
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
    {"current", Sign::current},
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
}};
constexpr std::array<NamedSign, 4> signBeginnings{{
    {"duplicity-full", Sign::onlyOfBackups},
    {"duplicity-inc", Sign::onlyOfBackups},
    {"duplicity-new-signatures", Sign::onlyOfBackups},
    {"manifest-", Sign::manifest},
}};
constexpr std::array<NamedSign, 3> signEndings{{
    {"-wal", Sign::journal},
    {"-shm", Sign::journal},
    {"-journal", Sign::journal},
}};

} // namespace

void FolderSigns::add(std::string_view loweredName) {
    for (const NamedSign& sign : signNames) {
        if (loweredName == sign.name) bits_ |= static_cast<std::uint32_t>(sign.sign);
    }
    for (const NamedSign& sign : signBeginnings) {
        if (loweredName.starts_with(sign.name)) bits_ |= static_cast<std::uint32_t>(sign.sign);
    }
    for (const NamedSign& sign : signEndings) {
        if (loweredName.ends_with(sign.name)) bits_ |= static_cast<std::uint32_t>(sign.sign);
    }
}

bool FolderSigns::isBackup() const {
    const bool isRestic = hasAll(Sign::config, Sign::data, Sign::keys, Sign::snapshots);
    const bool isTimeshift = hasAll(Sign::infoJSON, Sign::localhost);
    const bool isSnapper = hasAll(Sign::infoXML, Sign::snapshot);
    const bool isPhone = hasAll(Sign::phoneManifest, Sign::phoneStatus);
    return hasAll(Sign::onlyOfBackups) || isRestic || isTimeshift || isSnapper || isPhone;
}

bool FolderSigns::mayBeBorg() const { return hasAll(Sign::config, Sign::data); }

bool FolderSigns::isDatabase() const {
    return hasAll(Sign::onlyOfDatabases) || hasAll(Sign::current, Sign::manifest);
}

bool FolderSigns::hasJournal() const { return hasAll(Sign::journal); }

bool FolderSigns::isEnvironment() const { return hasAll(Sign::onlyOfEnvironments); }

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

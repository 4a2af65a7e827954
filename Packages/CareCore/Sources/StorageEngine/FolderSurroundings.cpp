#include "StorageEngine/FolderSurroundings.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <system_error>
#include <vector>

#include "Base/PathText.h"
#include "Base/UnicodeText.h"
#include "Platform/DurableFile.h"
#include "Platform/FileMetadata.h"

namespace tidyro {

namespace {

constexpr FolderSurroundings inDoubt{.isInProjectRepository = true, .isInBackup = true};

/// Scans of very many folders must not remember them all.
constexpr std::size_t mostRemembered = 100'000;

/// The files by which a folder gives itself away as a backup, as bits.
enum class Sign : std::uint32_t {
    config = 1,
    data = 2,
    keys = 4,
    snapshots = 8,
    infoJSON = 32,
    localhost = 64,
    infoXML = 128,
    snapshot = 256,
    phoneManifest = 512,
    phoneStatus = 1'024,
    certain = 2'048, ///< a file that only a backup has
};

struct NamedSign {
    std::string_view name;
    Sign sign;
};
constexpr std::array<NamedSign, 14> signs{{
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
    {"com.apple.timemachine.machineid.plist", Sign::certain},
    {"com.apple.timemachine.results.plist", Sign::certain},
    {"com.apple.timemachine.snapshothistory.plist", Sign::certain},
    {"backup_manifest.plist", Sign::certain},
}};
constexpr std::array<std::string_view, 3> duplicityFiles{"duplicity-full", "duplicity-inc",
                                                         "duplicity-new-signatures"};

class Signs {
  public:
    void add(std::string_view name) {
        for (const NamedSign& sign : signs) {
            if (sign.name == name) bits_ |= static_cast<std::uint32_t>(sign.sign);
        }
        const auto begins = [&](std::string_view beginning) { return name.starts_with(beginning); };
        if (std::ranges::any_of(duplicityFiles, begins)) {
            bits_ |= static_cast<std::uint32_t>(Sign::certain);
        }
    }
    template <class... Wanted>
    [[nodiscard]] bool have(Wanted... wanted) const {
        return ((bits_ & static_cast<std::uint32_t>(wanted)) && ...);
    }

  private:
    std::uint32_t bits_ = 0;
};

/// Whether the folder's "config" is that of a borg repository, or cannot be read.
bool isBorgConfig(const std::string& folder) {
    constexpr std::size_t most = 1'000'000; // a thousand times as much as one has
    const auto config = platform::readWholeFile(folder + "/config", most);
    if (!config) return config.error().code != EFBIG && config.error().code != EINVAL;
    return config->starts_with("[repository]");
}

/// Whether a folder is the top of a backup by the files in it.
bool isBackupByFiles(const std::string& folder) {
    Signs found;
    std::error_code failed;
    for (std::filesystem::directory_iterator at(folder, failed), end; !failed && at != end;
         at.increment(failed)) {
        found.add(lowercased(at->path().filename().native()));
    }
    if (failed) return true;
    const bool isRestic = found.have(Sign::config, Sign::data, Sign::keys, Sign::snapshots);
    const bool isTimeshift = found.have(Sign::infoJSON, Sign::localhost);
    const bool isSnapper = found.have(Sign::infoXML, Sign::snapshot);
    const bool isPhone = found.have(Sign::phoneManifest, Sign::phoneStatus);
    if (found.have(Sign::certain) || isRestic || isTimeshift || isSnapper || isPhone) return true;
    return found.have(Sign::config, Sign::data) && isBorgConfig(folder);
}

bool hasRepository(const std::string& folder) {
    const auto seen = platform::fileMetadata(path::joined(folder, ".git"));
    return seen || seen.error().code != ENOENT;
}

std::optional<std::string> realPath(const std::string& path) {
    std::error_code failed;
    const std::filesystem::path real = std::filesystem::canonical(path, failed);
    if (failed) return std::nullopt;
    return real.string();
}

FolderSurroundings either(FolderSurroundings a, FolderSurroundings b) {
    return {.isInProjectRepository = a.isInProjectRepository || b.isInProjectRepository,
            .isInBackup = a.isInBackup || b.isInBackup};
}

} // namespace

bool isBackupByName(std::string_view path) {
    constexpr std::array<std::string_view, 3> stores{".timemachine", ".mobilebackups",
                                                     "com.apple.timemachine.localsnapshots"};
    const std::string lowered = lowercased(path);
    std::string_view before;
    for (const std::string_view component : path::components(lowered)) {
        if (component == ".backupdb" || component.ends_with(".backupdb")) return true;
        if (component == ".snapshots") return true; // snapper's
        if (std::ranges::find(stores, component) != stores.end()) return true;
        if (before == "mobilesync" && component == "backup") return true;
        // Timeshift also keeps lists of its snapshots by their occasion: "snapshots-daily".
        if ((before == "timeshift" || before == "timeshift-btrfs") &&
            component.starts_with("snapshots")) {
            return true;
        }
        before = component;
    }
    return false;
}

FolderSurroundingsJudge::FolderSurroundingsJudge(const FileURL& home)
    : home_(home.path()), realHome_(realPath(home_).value_or(home_)) {}

/// Goes up to the nearest folder that is known, and down again.
FolderSurroundings FolderSurroundingsJudge::byDisk(std::string_view folder) {
    const bool isInHome =
        path::isInsideOrEqual(folder, home_) || path::isInsideOrEqual(folder, realHome_);
    const auto isHome = [&](std::string_view at) { return at == home_ || at == realHome_; };
    FolderSurroundings found{.isInProjectRepository = false, .isInBackup = false};
    std::vector<std::string> unknown;
    for (std::string_view at = folder;; at = path::parent(at)) {
        std::string one(at);
        if (const auto known = read_.find(one); known != read_.end()) {
            found = known->second;
            break;
        }
        unknown.push_back(std::move(one));
        if (at == "/" || (isInHome && isHome(at))) break;
    }
    for (auto at = unknown.rbegin(); at != unknown.rend(); ++at) {
        found = either(found, {.isInProjectRepository = !isHome(*at) && hasRepository(*at),
                               .isInBackup = isBackupByFiles(*at)});
        read_.emplace(*at, found);
    }
    return found;
}

FolderSurroundings FolderSurroundingsJudge::surroundings(const std::string& folder) {
    if (const auto known = answers_.find(folder); known != answers_.end()) return known->second;
    if (answers_.size() >= mostRemembered || read_.size() >= mostRemembered) {
        answers_.clear();
        read_.clear();
    }
    FolderSurroundings found = inDoubt;
    if (const auto real = realPath(folder)) {
        found = byDisk(folder);
        if (*real != folder) found = either(found, byDisk(*real));
        found.isInBackup = found.isInBackup || isBackupByName(folder) || isBackupByName(*real);
    }
    answers_.emplace(folder, found);
    return found;
}

} // namespace tidyro

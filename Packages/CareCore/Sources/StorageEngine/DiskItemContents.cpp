#include "StorageEngine/DiskItemContents.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Base/PathText.h"
#include "Platform/MountPoints.h"
#include "StorageEngine/FolderSurroundings.h"
#include "StorageEngine/LiveDataDetection.h"

namespace tidyro {

namespace {

using platform::FolderDescriptor;
using platform::ItemKind;

constexpr Timestamp never = Timestamp::sinceReference(std::numeric_limits<double>::infinity());

class Walk {
  public:
    explicit Walk(const DiskItemContents::Options& options)
        : options_(options), latest_(options.seen.modified.value_or(never)) {}

    [[nodiscard]] std::expected<Timestamp, DiskItemRefusal> run() {
        std::vector<std::string> first;
        if (const auto found = list(options_.folder, "", first)) return std::unexpected(*found);
        // Folders are open from the top down to the one that is read: as many as the tree is deep.
        std::vector<Level> levels;
        const FolderDescriptor* folder = &options_.folder;
        std::vector<std::string>* rest = &first;
        for (;;) {
            if (rest->empty()) {
                if (levels.empty()) return latest_;
                levels.pop_back();
            } else {
                const std::string name = std::move(rest->back());
                rest->pop_back();
                if (const auto found = enter(*folder, name, levels)) return std::unexpected(*found);
            }
            folder = levels.empty() ? &options_.folder : &levels.back().folder;
            rest = levels.empty() ? &first : &levels.back().rest;
        }
    }

  private:
    struct Level {
        FolderDescriptor folder;
        std::vector<std::string> rest; ///< folders in it that were not entered yet
    };

    std::optional<DiskItemRefusal> enter(const FolderDescriptor& parent, const std::string& name,
                                         std::vector<Level>& levels) {
        auto folder = parent.open(name.c_str());
        if (!folder) {
            if (platform::meansVanished(folder.error())) return std::nullopt;
            return DiskItemRefusal::unreadableInside;
        }
        Level level{.folder = *std::move(folder), .rest = {}};
        if (const auto found = list(level.folder, name, level.rest)) return found;
        levels.push_back(std::move(level));
        return std::nullopt;
    }

    std::optional<DiskItemRefusal> list(const FolderDescriptor& folder, const std::string& name,
                                        std::vector<std::string>& folders) {
        lister_.begin(folder);
        while (const platform::FolderEntry* entry = lister_.next()) {
            if (options_.cancel.stop_requested()) return DiskItemRefusal::cancelled;
            // Not even looked at: behind a mount point there may be a server that is gone.
            if (entry->traits.has(platform::EntryTrait::mountPoint)) {
                return DiskItemRefusal::mountPointInside;
            }
            std::string entryName(entry->name);
            // The lister does not tell owners. Asking again is a call an item, once a decision.
            const auto seen = platform::fileMetadata(folder, entryName.c_str());
            if (!seen) {
                if (platform::meansVanished(seen.error())) continue;
                return DiskItemRefusal::unreadableInside;
            }
            if (const auto found = judge(*seen, name, entryName)) return found;
            latest_ = std::max(latest_, seen->modified.value_or(never));
            if (seen->kind == ItemKind::folder) folders.push_back(std::move(entryName));
        }
        if (lister_.error().code != 0 && !platform::meansVanished(lister_.error())) {
            return DiskItemRefusal::unreadableInside;
        }
        return std::nullopt;
    }

    [[nodiscard]] std::optional<DiskItemRefusal> judge(const platform::FileMetadata& seen,
                                                       const std::string& folder,
                                                       const std::string& name) const {
        if (!platform::areOnOneMount(seen, options_.seen)) return DiskItemRefusal::mountPointInside;
        if (seen.ownerUserID != options_.owner) return DiskItemRefusal::otherOwnerInside;
        if (seen.isDataless) return DiskItemRefusal::placeholderInside;
        if (seen.kind == ItemKind::link) return std::nullopt;
        // Some backups are told by two names, one in the other.
        if (seen.kind == ItemKind::folder && isBackupByName(path::joined(folder, name))) {
            return DiskItemRefusal::backupInside;
        }
        if (LiveDataDetector::signal(LoweredPath(name))) return DiskItemRefusal::databaseInside;
        return std::nullopt;
    }

    const DiskItemContents::Options& options_;
    platform::FolderLister lister_{{}};
    Timestamp latest_;
};

} // namespace

std::expected<Timestamp, DiskItemRefusal>
DiskItemContents::lastModification(const Options& options) {
    if (!platform::mountPointsBelow(options.folder).empty()) {
        return std::unexpected(DiskItemRefusal::mountPointInside);
    }
    return Walk(options).run();
}

} // namespace tidyro

#include "StorageEngine/PickedItems/DiskItemContents.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "Base/PathText.h"
#include "Platform/Files/FileLease.h"
#include "Platform/Folders/FolderChanges.h"
#include "Platform/Mounts/MountPoints.h"
#include "StorageEngine/Observation/DatabaseFile.h"
#include "StorageEngine/Observation/FolderSigns.h"
#include "StorageEngine/Observation/FolderSurroundings.h"
#include "StorageEngine/Observation/LiveDataDetector.h"
#include "StorageEngine/PickedItems/DiskItemFolders.h"
#include "StorageEngine/Places/KeptPlaces.h"

namespace tidyro {

namespace {

using enum DiskItemRefusal;
using platform::FolderDescriptor;
using platform::ItemKind;
using Verdict = std::optional<DiskItemRefusal>; ///< none: nothing was found against it

constexpr Timestamp never = Timestamp::sinceReference(std::numeric_limits<double>::infinity());

/// So many folders are opened one in the other even when the process has room for fewer.
constexpr std::size_t minLevels = 16;

/// An item that was not opened for lack of descriptors need not be unreadable.
bool meansNoRoom(SystemError error) { return error.code == EMFILE || error.code == ENFILE; }

/// Judges an item that could not be looked at. One that is gone does not count against the folder.
Verdict unlessVanished(SystemError error) {
    if (platform::hasVanished(error)) return std::nullopt;
    return meansNoRoom(error) ? tooDeepInside : unreadableInside;
}

class Walk {
  public:
    Walk(const DiskItemContents::Options& options, const FolderDescriptor& top)
        : options_(options),
          top_(top),
          maxLevels_(std::max(platform::openFolderBudget(), minLevels)),
          latest_(options.seen.modified.value_or(never)) {}

    [[nodiscard]] std::expected<Timestamp, DiskItemRefusal> run() {
        std::vector<std::string> first;
        if (const Verdict found = list(top_, options_.name, options_.path, first)) {
            return std::unexpected(*found);
        }
        // Only those folders on the way stay open in which others still wait.
        std::vector<Level> levels;
        const FolderDescriptor* folder = &top_;
        const std::string* path = &options_.path;
        std::vector<std::string>* rest = &first;
        for (;;) {
            if (rest->empty()) {
                if (levels.empty()) return latest_;
                levels.pop_back();
            } else {
                const std::string name = std::move(rest->back());
                rest->pop_back();
                if (const Verdict found = enter(*folder, path::joined(*path, name), levels)) {
                    return std::unexpected(*found);
                }
            }
            folder = levels.empty() ? &top_ : &levels.back().folder;
            path = levels.empty() ? &options_.path : &levels.back().path;
            rest = levels.empty() ? &first : &levels.back().rest;
        }
    }

  private:
    struct Level {
        FolderDescriptor folder;
        std::string path;
        std::vector<std::string> rest; ///< folders in it that were not entered yet
    };

    Verdict enter(const FolderDescriptor& parent, std::string path, std::vector<Level>& levels) {
        if (levels.size() >= maxLevels_) return tooDeepInside;
        const std::string name(path::lastComponent(path));
        auto folder = parent.open(name.c_str());
        if (!folder) return unlessVanished(folder.error());
        Level level{.folder = *std::move(folder), .path = std::move(path), .rest = {}};
        if (const Verdict found = list(level.folder, name, level.path, level.rest)) return found;
        if (!levels.empty() && levels.back().rest.empty()) levels.pop_back(); // the parent
        if (!level.rest.empty()) levels.push_back(std::move(level));
        return std::nullopt;
    }

    Verdict list(const FolderDescriptor& folder, const std::string& name, const std::string& path,
                 std::vector<std::string>& folders) {
        FolderSigns signs;
        lister_.begin(folder);
        while (const platform::FolderEntry* entry = lister_.next()) {
            if (options_.cancel.stop_requested()) return cancelled;
            // Not even looked at, since a server that is gone may lie behind a mount point.
            if (entry->traits.has(platform::EntryTrait::mountPoint)) return mountPointInside;
            std::string entryName(entry->name);
            // The lister does not know owners, which costs a further call for each item.
            const auto seen = platform::fileMetadata(folder, entryName.c_str());
            if (!seen) {
                if (const Verdict found = unlessVanished(seen.error())) return found;
                continue;
            }
            const LoweredPath lowered(entryName);
            signs.add(lowered.text(), seen->kind);
            if (const Verdict found = judge(*seen, name, entryName, lowered)) return found;
            if (options_.isKept && options_.isKept(path::joined(path, entryName), seen->kind)) {
                return holdsProtectedPlace;
            }
            if (const Verdict found = byBeginning(folder, entryName, *seen)) return found;
            if (seen->kind == ItemKind::regularFile &&
                platform::fileUse(folder, entryName.c_str()) == platform::FileUse::inUse) {
                return openByProcess;
            }
            latest_ = std::max(latest_, seen->modified.value_or(never));
            if (seen->kind == ItemKind::folder) folders.push_back(std::move(entryName));
        }
        if (lister_.error().code != 0) {
            if (const Verdict found = unlessVanished(lister_.error())) return found;
        }
        return bySigns(folder, signs);
    }

    [[nodiscard]] Verdict judge(const platform::FileMetadata& seen, const std::string& folder,
                                const std::string& name, const LoweredPath& lowered) const {
        if (!platform::areOnOneMount(seen, options_.seen)) return mountPointInside;
        if (seen.ownerUserID != options_.owner) return otherOwnerInside;
        if (seen.isLocked) return lockedInside;
        if (seen.isDataless) return placeholderInside;
        if (seen.kind == ItemKind::link) return std::nullopt;
        if (seen.kind == ItemKind::other) return specialFileInside;
        if (seen.kind == ItemKind::folder) {
            // Some backups are recognised by the names of two folders, one in the other.
            if (isBackupByName(path::joined(folder, name))) return backupInside;
            if (const auto reason = options_.kept.reason(seen.identity)) {
                return refusalForHolderOf(*reason);
            }
        }
        if (KeptPlaces::isKeptName(lowered.text()) ||
            platform::PrivateFolder::isName(lowered.text())) {
            return holdsProtectedPlace;
        }
        if (LiveDataDetector::signal(lowered)) return databaseInside;
        return std::nullopt;
    }

    static Verdict byBeginning(const FolderDescriptor& folder, const std::string& name,
                               const platform::FileMetadata& seen) {
        if (seen.kind != ItemKind::regularFile ||
            !DatabaseFile::hasDatabaseLength(seen.byteCount)) {
            return std::nullopt;
        }
        const auto is = DatabaseFile::isDatabase(folder, name.c_str(), seen);
        if (!is) return unlessVanished(is.error());
        return *is ? Verdict(databaseInside) : std::nullopt;
    }

    Verdict bySigns(const FolderDescriptor& folder, const FolderSigns& signs) const {
        if (signs.isBackup() || (signs.mayBeBorg() && isBorgRepository(folder))) {
            return backupInside;
        }
        if (signs.isDatabase()) return databaseInside;
        // A whole repository may go, picked or somewhere inside. A picked folder stays when it is
        // nothing but the history of a project that lies elsewhere.
        if (&folder == &top_ && signs.isRepositoryOfOtherFolder()) return repositoryData;
        return std::nullopt;
    }

    const DiskItemContents::Options& options_;
    const FolderDescriptor& top_;
    platform::FolderLister lister_{{}};
    std::size_t maxLevels_;
    Timestamp latest_;
};

} // namespace

std::expected<Timestamp, DiskItemRefusal>
DiskItemContents::lastModification(const Options& options) {
    const auto top = options.parent.open(options.name.c_str());
    if (!top) {
        return std::unexpected(platform::hasVanished(top.error()) ? vanished : unreadableFolder);
    }
    const auto facts = top->facts();
    if (!facts || facts->identity != options.seen.identity) return std::unexpected(vanished);
    if (!platform::mountPointsBelow(*top).empty()) return std::unexpected(mountPointInside);
    const auto latest = Walk(options, *top).run();
    if (!latest) return latest;
    const auto again = platform::fileMetadata(options.parent, options.name.c_str());
    if (!again || again->identity != options.seen.identity) return std::unexpected(vanished);
    if (again->modified != options.seen.modified) return std::unexpected(growing);
    return latest;
}

} // namespace tidyro

#include "StorageEngine/AITools/AIToolWalker.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

#include "Base/PathText.h"
#include "Platform/Folders/FolderReading.h"

namespace tidyro {

namespace {

using platform::EntryType;
using platform::FileMetadata;
using platform::FolderDescriptor;
using platform::ItemIdentity;
using platform::ItemKind;

/// Enough for any tool's home; a deeper tree has its folders opened again on the way back.
constexpr std::size_t maxOpenFolders = 64;

AIToolWalkEntry::Kind walkKind(ItemKind kind) {
    switch (kind) {
        using enum AIToolWalkEntry::Kind;
    case ItemKind::regularFile: return regularFile;
    case ItemKind::folder: return directory;
    case ItemKind::link: return symbolicLink;
    case ItemKind::other: break;
    }
    return AIToolWalkEntry::Kind::other;
}

AIToolWalkEntry::Kind walkKind(EntryType type) {
    switch (type) {
        using enum AIToolWalkEntry::Kind;
    case EntryType::file: return regularFile;
    case EntryType::folder: return directory;
    case EntryType::link: break;
    }
    return AIToolWalkEntry::Kind::symbolicLink;
}

/// Opens the walk's root by its name in the folder above it, so that a link there is not followed.
std::expected<FolderDescriptor, SystemError> openWalkRoot(const FileURL& root) {
    auto above = FolderDescriptor::openRoot(root.parent().path());
    if (!above || root.path() == "/") return above;
    return above->open(std::string(root.lastComponent()).c_str());
}

class AIToolWalk {
  public:
    AIToolWalk(FolderDescriptor folder, const FileMetadata& seen,
               const std::function<void(const AIToolWalkEntry&)>& visit,
               const AIToolWalker::Options& options)
        : root_(seen), visit_(visit), options_(options), lister_({.isAskedForFacts = false}) {
        levels_.push_back({.folder = std::move(folder), .identity = seen.identity});
    }

    [[nodiscard]] std::expected<AIToolWalker::Coverage, AIToolWalker::Error>
    run(const FileURL& root) {
        levels_.back().url = root;
        if (const SystemError error = read(); error.code != 0) return std::unexpected(error);
        while (!levels_.empty() && !isOver_) {
            Level& level = levels_.back();
            if (level.folders.empty()) {
                leave();
                continue;
            }
            const std::string name = std::move(level.folders.back());
            level.folders.pop_back();
            meetFolder(level, name);
        }
        if (options_.cancel.stop_requested()) return std::unexpected(CancellationError{});
        return std::move(coverage_);
    }

  private:
    struct Level {
        FolderDescriptor folder; ///< not open while deeper levels need its descriptor
        ItemIdentity identity;
        FileURL url = {};
        std::vector<std::string> folders = {}; ///< that are still to be visited, the next last
    };

    void addGap(const FileURL& url, CoverageGapReason reason, std::string detail) {
        coverage_.gaps.push_back({.url = url, .reason = reason, .detail = std::move(detail)});
    }
    void truncate(const FileURL& at, std::string_view why) {
        addGap(at, CoverageGapReason::scanBudgetExceeded, std::string(why));
        coverage_.isTruncated = true;
    }
    [[nodiscard]] bool isElsewhere(const FileMetadata& seen) const {
        return seen.identity.device != root_.identity.device ||
               !platform::areOnOneMount(seen, root_);
    }
    [[nodiscard]] bool isToEnd() {
        isOver_ = isOver_ || options_.cancel.stop_requested();
        return isOver_;
    }

    SystemError read();
    void meet(const Level& level, const char* name, EntryType type);
    void meetFolder(const Level& level, const std::string& name);
    void visit(const Level& level, std::string_view name, const FileMetadata& seen,
               const FolderDescriptor* opened);
    void visitUnknown(const Level& level, std::string_view name, EntryType type);
    void handOver();
    void leave();
    [[nodiscard]] FolderDescriptor reopened(const FolderDescriptor& below) const;

    const FileMetadata& root_;
    const std::function<void(const AIToolWalkEntry&)>& visit_;
    const AIToolWalker::Options& options_;
    platform::FolderLister lister_;
    std::uint32_t user_ = platform::currentUserID();
    AIToolWalker::Coverage coverage_;
    bool isOver_ = false;
    bool hasUnknown_ = false; ///< in the folder being read
    std::vector<Level> levels_;
    /// Of the folder being read: names with a zero behind each, and their types. The names are read
    /// first, since they say what kind of folder it is.
    std::string names_;
    std::vector<EntryType> types_;
    AIToolWalkEntry entry_{.components = {},
                           .url = {},
                           .kind = AIToolWalkEntry::Kind::other,
                           .deviceID = 0,
                           .inode = 0,
                           .ownerUserID = 0,
                           .byteCount = 0,
                           .allocatedByteCount = 0,
                           .linkCount = 0,
                           .isReadable = false,
                           .isDataless = false};
};

/// Reads the last level's folder and visits all of it but the folders in it. An error only when not
/// even its names could be read.
SystemError AIToolWalk::read() {
    Level& level = levels_.back();
    names_.clear();
    types_.clear();
    FolderSigns signs;
    bool isWhole = true;
    lister_.begin(level.folder);
    while (const platform::FolderEntry* entry = lister_.next()) {
        if (isToEnd()) return {};
        if (coverage_.entryCount + types_.size() == options_.maxEntries) {
            isWhole = false;
            break;
        }
        names_.append(entry->name).push_back('\0');
        types_.push_back(entry->type);
        if (options_.enter) signs.add(*entry);
    }
    const SystemError error = lister_.error();
    if (error.code != 0) {
        if (levels_.size() == 1) return error;
        if (!platform::hasVanished(error)) {
            addGap(level.url, CoverageGapReason::inaccessible, error.description());
        }
    }
    if (options_.enter) {
        options_.enter({.url = level.url,
                        .components = entry_.components,
                        .signs = isWhole && error.code == 0 ? std::optional(signs) : std::nullopt});
    }
    entry_.components.emplace_back();
    const char* name = names_.c_str();
    for (const EntryType type : types_) {
        const std::string_view text(name);
        if (isToEnd()) break;
        if (type == EntryType::folder) {
            level.folders.emplace_back(text);
        } else {
            meet(level, name, type);
        }
        name += text.size() + 1;
    }
    entry_.components.pop_back();
    if (std::exchange(hasUnknown_, false)) {
        addGap(level.url, CoverageGapReason::metadataUnavailable,
               "The system does not tell of the items in this folder.");
    }
    // A file system lists in any order. A limit leaves out the same folders each time.
    std::ranges::sort(level.folders, std::greater<>());
    if (!isWhole) truncate(level.url, "There are more items than one audit visits.");
    return {};
}

/// An entry that was no folder when it was listed.
void AIToolWalk::meet(const Level& level, const char* name, EntryType type) {
    const auto seen = platform::fileMetadata(level.folder, name);
    if (!seen) {
        if (!platform::hasVanished(seen.error())) visitUnknown(level, name, type);
    } else if (isElsewhere(*seen)) {
        addGap(level.url.appending(name), CoverageGapReason::mountBoundaryExcluded,
               "Something else is mounted here.");
    } else if (seen->kind == ItemKind::folder) {
        levels_.back().folders.emplace_back(name);
    } else {
        visit(level, name, *seen, nullptr);
    }
}

void AIToolWalk::meetFolder(const Level& level, const std::string& name) {
    entry_.components.push_back(name);
    auto seen = platform::fileMetadata(level.folder, name.c_str());
    // Asked before it is opened: opening what is mounted may wait for a server that is gone.
    if (seen && isElsewhere(*seen)) {
        addGap(level.url.appendingFolder(name), CoverageGapReason::mountBoundaryExcluded,
               "Something else is mounted here.");
    } else if (seen && std::ranges::find(options_.passedOver, seen->identity) !=
                           options_.passedOver.end()) {
        // It belongs to another walk.
    } else if (seen && seen->isDataless) {
        // Reading it would make its cloud fetch what is in it.
        addGap(level.url.appendingFolder(name), CoverageGapReason::cloudPlaceholderExcluded,
               "The folder's contents are kept by a cloud.");
    } else if (coverage_.entryCount == options_.maxEntries) {
        if (!coverage_.isTruncated)
            truncate(level.url, "There are more items than one audit visits.");
        isOver_ = true;
    } else if (!seen || seen->kind == ItemKind::folder) {
        // Something else that took the folder's place since is met by the next audit.
        auto folder = seen ? level.folder.open(name.c_str()) : std::unexpected(seen.error());
        if (folder) {
            const auto opened = platform::fileMetadata(folder->fd());
            if (opened && opened->identity == seen->identity) {
                visit(level, name, *opened, &*folder);
                FileURL url = entry_.url;
                const bool isTooDeep = url.path().size() > AIToolWalker::maxPathBytes;
                if (isTooDeep) {
                    truncate(url, "The folders go deeper than an audit reads.");
                } else {
                    levels_.push_back({.folder = *std::move(folder),
                                       .identity = opened->identity,
                                       .url = std::move(url)});
                    if (levels_.size() > maxOpenFolders + 1) {
                        levels_[levels_.size() - maxOpenFolders - 1].folder = FolderDescriptor();
                    }
                    read();
                    return; // its name stays until it is left
                }
            }
        } else if (!platform::hasVanished(folder.error())) {
            addGap(level.url.appendingFolder(name), CoverageGapReason::inaccessible,
                   folder.error().description());
            if (seen) {
                visit(level, name, *seen, nullptr);
            } else {
                visitUnknown(level, name, EntryType::folder);
            }
        }
    }
    entry_.components.pop_back();
}

/// The entry's last component has its place already; a folder's is set.
void AIToolWalk::visit(const Level& level, std::string_view name, const FileMetadata& seen,
                       const FolderDescriptor* opened) {
    const bool isFolder = seen.kind == ItemKind::folder;
    entry_.components.back().assign(name);
    entry_.url = isFolder ? level.url.appendingFolder(name) : level.url.appending(name);
    entry_.kind = walkKind(seen.kind);
    entry_.deviceID = seen.identity.device;
    entry_.inode = seen.identity.inode;
    entry_.ownerUserID = seen.ownerUserID;
    entry_.byteCount = seen.byteCount;
    entry_.allocatedByteCount = seen.allocatedBytes;
    entry_.modificationDate = seen.modified;
    entry_.creationDate = seen.created;
    entry_.statusChangeDate = seen.changed;
    entry_.linkCount = seen.linkCount;
    entry_.isDataless = seen.isDataless;
    entry_.isInaccessible = isFolder && opened == nullptr;
    // What its owner's permissions allow the owner, nothing takes away. The system is asked of the
    // few others.
    entry_.isReadable =
        opened != nullptr || (seen.ownerUserID == user_ && seen.isReadableByOwner && !isFolder) ||
        (!isFolder && platform::isReadable(level.folder, entry_.components.back().c_str()));
    handOver();
}

/// An entry of a folder that may be listed, though nothing in it may be looked at.
void AIToolWalk::visitUnknown(const Level& level, std::string_view name, EntryType type) {
    const bool isFolder = type == EntryType::folder;
    entry_.components.back().assign(name);
    entry_.url = isFolder ? level.url.appendingFolder(name) : level.url.appending(name);
    entry_.kind = walkKind(type);
    entry_.deviceID = level.identity.device;
    entry_.inode = entry_.byteCount = entry_.allocatedByteCount = entry_.linkCount = 0;
    entry_.ownerUserID = 0;
    entry_.modificationDate = entry_.creationDate = entry_.statusChangeDate = std::nullopt;
    entry_.isReadable = entry_.isDataless = false;
    entry_.isInaccessible = isFolder;
    hasUnknown_ = hasUnknown_ || !isFolder;
    handOver();
}

void AIToolWalk::handOver() {
    ++coverage_.entryCount;
    visit_(entry_);
}

/// Goes back to the folder above.
void AIToolWalk::leave() {
    const Level done = std::move(levels_.back());
    levels_.pop_back();
    if (levels_.empty()) return;
    entry_.components.pop_back();
    Level& above = levels_.back();
    if (above.folder.isOpen()) return;
    above.folder = reopened(done.folder);
    if (above.folder.isOpen() || above.folders.empty()) return;
    above.folders.clear();
    addGap(above.url, CoverageGapReason::unavailable, "The folder was moved while it was read.");
}

/// The last level's folder, which was closed: from the folder below it or, where that was moved
/// meanwhile, by its names from the root.
FolderDescriptor AIToolWalk::reopened(const FolderDescriptor& below) const {
    const auto isIt = [&](const FolderDescriptor& folder) {
        const auto seen = platform::fileMetadata(folder.fd());
        return seen && seen->identity == levels_.back().identity;
    };
    if (below.isOpen()) {
        auto above = below.open("..");
        if (above && isIt(*above)) return *std::move(above);
    }
    auto at = levels_.front().folder.open(".");
    for (const std::string& name : entry_.components) {
        if (!at) break;
        at = at->open(name.c_str());
    }
    return at && isIt(*at) ? *std::move(at) : FolderDescriptor();
}

} // namespace

FileObservation AIToolWalkEntry::observation(const Around& around) const {
    FileKind observed = FileKind::other;
    if (kind == Kind::regularFile) observed = FileKind::regularFile;
    if (kind == Kind::directory) observed = FileKind::directory;
    return {.id = {.rawValue = url.text()},
            .url = url,
            .kind = observed,
            .byteCount = byteCount,
            .creationDate = creationDate,
            .modificationDate = modificationDate,
            .ownerUserID = ownerUserID,
            .volumeIdentifier = around.volumeIdentifier,
            .fileResourceIdentifier = std::to_string(deviceID) + ":" + std::to_string(inode),
            .isReadable = isReadable,
            .isCloudPlaceholder = isDataless,
            .isInProjectRepository = around.folders.isInProjectRepository,
            .isBackupArtifact = around.folders.isInBackup || isBackupByName(url.lastComponent()),
            .linkCount = linkCount};
}

std::expected<AIToolWalker::Coverage, AIToolWalker::Error>
AIToolWalker::walk(const FileURL& root, const std::function<void(const AIToolWalkEntry&)>& visit,
                   const Options& options) {
    auto folder = openWalkRoot(root);
    if (!folder) return std::unexpected(folder.error());
    const auto seen = platform::fileMetadata(folder->fd());
    if (!seen) return std::unexpected(seen.error());
    if (options.identity && seen->identity != *options.identity) {
        return std::unexpected(SystemError{ESTALE});
    }
    return AIToolWalk(*std::move(folder), *seen, visit, options).run(root);
}

std::optional<platform::FileMetadata> AIToolWalker::lstat(const std::string& path) {
    auto seen = platform::fileMetadata(path);
    return seen ? std::optional(*std::move(seen)) : std::nullopt;
}

} // namespace tidyro

// Removing the folders that a run emptied.
#include "StorageEngine/AITools/Cleanup/AIToolCleanupRunner.h"

#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "Base/PathText.h"
#include "Base/StringTable.h"
#include "StorageEngine/Places/FolderResolver.h"

namespace tidyro {

namespace {

using FoldersByRoot = std::map<std::string, std::set<std::string, std::greater<>>>;

/// The folders that held the items, those inside others first, by the roots of their rules.
FoldersByRoot foldersOf(const AIToolCleanupManifest& manifest,
                        std::span<const CleanupReceiptEntry> reached) {
    StringMap<FileURL> rootOf; ///< of each item
    for (const AIToolCleanupManifest::Operation& operation : manifest.operations) {
        for (const CleanupCandidate& candidate : operation.candidates) {
            if (!candidate.authorization) continue;
            rootOf.emplace(candidate.observation.url.path(), candidate.authorization->rootURL());
        }
    }
    FoldersByRoot folders;
    for (const CleanupReceiptEntry& entry : reached) {
        const auto root = rootOf.find(entry.originalURL.path());
        const bool isGone = entry.disposition == CleanupMoveDisposition::movedToTrash ||
                            entry.disposition == CleanupMoveDisposition::permanentlyRemoved;
        if (root == rootOf.end() || !isGone) continue;
        const std::string& top = root->second.path();
        for (std::string_view folder = path::parent(entry.originalURL.path());
             folder != top && path::isInsideOrEqual(folder, top); folder = path::parent(folder)) {
            folders[top].emplace(folder);
        }
    }
    return folders;
}

/// The home or store that a rule's root lies in.
struct Anchor {
    std::string path; ///< as it is written
    std::string realPath;
    platform::FoldersBeneath beneath;
};

/// None when it is a link itself, or another folder by now.
std::optional<Anchor> anchorOf(const AIToolHome& home, const std::string& root) {
    const bool isInHome = path::isInsideOrEqual(root, home.url.path());
    std::string anchor = isInHome ? home.url.path() : root;
    // The person's home may be reached through a link; the tool's own may not be one.
    const auto above = FolderResolver::resolved(std::string(path::parent(anchor)));
    if (!above) return std::nullopt;
    std::string real = path::joined(*above, path::lastComponent(anchor));
    auto beneath = platform::FoldersBeneath::openRoot(real);
    if (!beneath) return std::nullopt;
    if (isInHome) {
        const auto seen = beneath->root().facts();
        const platform::ItemIdentity identity{home.deviceID, home.inode};
        if (!seen || seen->identity != identity) return std::nullopt;
    }
    return Anchor{std::move(anchor), std::move(real), *std::move(beneath)};
}

} // namespace

std::size_t
AIToolCleanupRunner::removeEmptiedFolders(const AIToolCleanupManifest& manifest,
                                          std::span<const CleanupReceiptEntry> reached) {
    if (reached.empty() || !manifest.home.stillIdentified()) return 0;
    const ToolActivitySnapshot* activity = options_.checks.activity();
    if (activity == nullptr || activity->isIncomplete) return 0;
    platform::LiveFolderChanges live;
    platform::FolderChanges& changes = options_.changes != nullptr ? *options_.changes : live;
    std::size_t removed = 0;
    for (const auto& [root, folders] : foldersOf(manifest, reached)) {
        const auto anchor = anchorOf(manifest.home, root);
        if (!anchor) continue;
        for (const std::string& folder : folders) {
            const std::string below(path::below(folder, anchor->path));
            if (activity->isActive(folder) ||
                activity->isActive(path::joined(anchor->realPath, below))) {
                continue;
            }
            const std::size_t slash = below.rfind('/');
            const auto parent = anchor->beneath.open(
                slash != std::string::npos ? below.substr(0, slash) : std::string());
            const std::string name(path::lastComponent(below));
            // One that is not empty is refused by the system, so nobody's item can go with it. Not
            // flushed: a folder that is back after a crash is only an empty folder.
            if (parent && changes.removeFolder({.folder = *parent, .name = name})) ++removed;
        }
    }
    return removed;
}

} // namespace tidyro

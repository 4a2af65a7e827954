#include "StorageEngine/Suggestions/CleanupPlaceWalk.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Base/PathText.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Mounts/MountPoints.h"
#include "StorageEngine/DiskTree/ContentKind.h"
#include "StorageEngine/Observation/FolderSigns.h"

namespace tidyro {

using platform::EntryTrait;
using platform::FolderDescriptor;

namespace {

constexpr std::string_view guarded = "This folder is protected.";
constexpr std::string_view mounted = "Something else is mounted here.";

CoverageGap closed(const FileURL& url, SystemError error) {
    // EPERM means that the system guards the folder from programs that the person did not admit;
    // EACCES means that the folder's own permissions close it.
    const bool isGuarded = error.code == EPERM;
    return {.url = url,
            .reason = isGuarded ? CoverageGapReason::privacyProtectedExcluded
                                : CoverageGapReason::inaccessible,
            .detail = error.description()};
}

bool isLink(const FolderDescriptor& folder, const char* name) {
    const auto seen = platform::fileMetadata(folder, name);
    return seen && seen->kind == platform::ItemKind::link;
}

} // namespace

std::expected<CleanupPlace, std::optional<CoverageGap>> CleanupPlace::open(const CleanupRule& rule,
                                                                           const FileURL& home) {
    auto folder = FolderDescriptor::openRoot(home.path());
    if (!folder) return std::unexpected(closed(home, folder.error()));
    FileURL at = home;
    for (const std::string_view component :
         path::components(path::below(rule.rootPath(), home.path()))) {
        const std::string name(component);
        at = at.appendingFolder(name);
        auto next = folder->open(name.c_str());
        if (!next && isLink(*folder, name.c_str())) {
            return std::unexpected(CoverageGap{
                .url = at,
                .reason = CoverageGapReason::symbolicLinkExcluded,
                .detail = "The folder is a link, and what lies behind a link is left alone."});
        }
        if (!next && platform::hasVanished(next.error())) return std::unexpected(std::nullopt);
        if (!next) return std::unexpected(closed(at, next.error()));
        folder = std::move(next);
    }
    const auto facts = folder->facts();
    if (!facts) return std::unexpected(closed(at, facts.error()));
    return CleanupPlace{.rule = &rule, .folder = *std::move(folder), .identity = facts->identity};
}

CleanupPlaceWalk::CleanupPlaceWalk(const CleanupPlace& place, Options options)
    : place_(place),
      options_(std::move(options)),
      lister_({.isAskedForFacts = false}),
      realRoot_(platform::realPath(place.rule->rootPath())),
      mountPoints_(platform::mountPointsBelow(place.folder)) {}

void CleanupPlaceWalk::gap(const FileURL& url, CoverageGapReason reason,
                           std::string_view what) const {
    options_.addGap({.url = url, .reason = reason, .detail = std::string(what)});
}

void CleanupPlaceWalk::run() {
    if (options_.protectedRoots.contains(place_.rule->rootPath())) {
        gap(place_.rule->rootURL(), CoverageGapReason::privacyProtectedExcluded, guarded);
        return;
    }
    // Opened anew: the place's own descriptor is shared by all walks.
    auto root = place_.folder.open(".");
    if (!root) {
        options_.addGap(closed(place_.rule->rootURL(), root.error()));
        return;
    }
    const auto facts = root->facts();
    if (!facts) {
        options_.addGap(closed(place_.rule->rootURL(), facts.error()));
        return;
    }
    levels_.push_back({.folder = std::make_shared<const FolderDescriptor>(*std::move(root)),
                       .url = place_.rule->rootURL(),
                       .facts = *facts,
                       .folders = {}});
    if (!list(levels_.back())) return;
    while (!levels_.empty()) {
        if (options_.cancel.stop_requested()) return;
        if (levels_.back().folders.empty()) {
            levels_.pop_back();
            continue;
        }
        const std::string name = std::move(levels_.back().folders.back());
        levels_.back().folders.pop_back();
        auto level = opened(levels_.back(), name);
        if (!level) continue;
        levels_.push_back(*std::move(level));
        if (!list(levels_.back())) return;
    }
}

/// False when the walk is to end here.
bool CleanupPlaceWalk::list(Level& level) {
    const std::string& path = level.url.path();
    options_.enterFolder(path);
    Folder found{.folder = level.folder,
                 .facts = level.facts,
                 .url = level.url,
                 .listed = std::nullopt,
                 .names = {}};
    FolderSigns signs;
    bool isCutShort = false;
    const std::string prefix = path::joined(path, "");
    const auto nextRoot = options_.roots.lower_bound(prefix);
    const bool holdsRoots = nextRoot != options_.roots.end() && nextRoot->starts_with(prefix);
    lister_.begin(*level.folder);
    while (const platform::FolderEntry* entry = lister_.next()) {
        if (options_.cancel.stop_requested()) return false;
        if (entriesRead_ == options_.maxEntries) {
            gap(level.url, CoverageGapReason::scanBudgetExceeded,
                "The place holds more files than one scan reads, and the rest was left out.");
            isCutShort = true;
            break;
        }
        ++entriesRead_;
        signs.add(*entry);
        if (!holdsRoots || !options_.roots.contains(prefix + std::string(entry->name))) {
            sort(level, *entry, found);
        }
    }
    const bool isWhole = !isCutShort && lister_.error().code == 0;
    if (lister_.error().code != 0) options_.addGap(closed(level.url, lister_.error()));
    if (isWhole && realRoot_) {
        // No link was followed on the way down from the root.
        found.listed = {.folder = path,
                        .real = *realRoot_ + path.substr(place_.rule->rootPath().size()),
                        .signs = signs};
    }
    // A file system lists in any order. Sorting makes a budget leave out the same folders each
    // time.
    std::ranges::sort(level.folders, std::greater<>());
    return (found.count == 0 || options_.take(std::move(found))) && !isCutShort;
}

void CleanupPlaceWalk::sort(Level& level, const platform::FolderEntry& entry, Folder& found) const {
    switch (entry.type) {
    case platform::EntryType::folder: level.folders.emplace_back(entry.name); return;
    case platform::EntryType::link:
        gap(level.url.appending(entry.name), CoverageGapReason::symbolicLinkExcluded,
            "A link is left alone, and what it leads to as well.");
        return;
    case platform::EntryType::file:
        found.names.append(entry.name).push_back('\0');
        ++found.count;
        return;
    }
}

bool CleanupPlaceWalk::isPlaceOfAnother(const platform::ItemIdentity& identity) const {
    return std::ranges::any_of(
        options_.places, [&](const CleanupPlace& place) { return place.identity == identity; });
}

/// None for a folder that is not entered.
std::optional<CleanupPlaceWalk::Level> CleanupPlaceWalk::opened(const Level& level,
                                                                const std::string& name) {
    const FileURL url = level.url.appendingFolder(name);
    const auto leave = [&](CoverageGapReason reason, std::string_view what) {
        gap(url, reason, what);
        return std::nullopt;
    };
    if (isPackageFolder(name)) {
        return leave(CoverageGapReason::packageBoundaryExcluded,
                     "An app or library breaks when parts of it are removed.");
    }
    if (options_.protectedRoots.contains(url.path())) {
        return leave(CoverageGapReason::privacyProtectedExcluded, guarded);
    }
    const std::string below(path::below(url.path(), place_.rule->rootPath()));
    if (mountPoints_.contains(below)) {
        return leave(CoverageGapReason::mountBoundaryExcluded, mounted);
    }
    if (levels_.size() >= options_.maxDepth) {
        return leave(CoverageGapReason::scanBudgetExceeded,
                     "The folders go deeper than a cleanup reads.");
    }
    auto folder = level.folder->open(name.c_str());
    if (!folder && platform::hasVanished(folder.error())) return std::nullopt;
    if (!folder) {
        options_.addGap(closed(url, folder.error()));
        return std::nullopt;
    }
    const auto facts = folder->facts();
    if (!facts) {
        options_.addGap(closed(url, facts.error()));
        return std::nullopt;
    }
    if (isPlaceOfAnother(facts->identity)) return std::nullopt;
    if (facts->identity.device != place_.identity.device ||
        facts->traits.has(EntryTrait::mountPoint)) {
        return leave(CoverageGapReason::mountBoundaryExcluded, mounted);
    }
    if (facts->traits.has(EntryTrait::dataless)) {
        return leave(CoverageGapReason::cloudPlaceholderExcluded,
                     "The folder's contents are kept by a cloud.");
    }
    return Level{.folder = std::make_shared<const FolderDescriptor>(*std::move(folder)),
                 .url = url,
                 .facts = *facts,
                 .folders = {}};
}

} // namespace tidyro

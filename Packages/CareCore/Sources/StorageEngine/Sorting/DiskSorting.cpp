#include "StorageEngine/Sorting/DiskSorting.h"

#include <algorithm>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "Base/LowercaseTable.h"
#include "Base/PathText.h"
#include "Base/Saturating.h"
#include "StorageEngine/Places/BaseFolders.h"
#include "StorageEngine/Sorting/KnownPlaces.h"
#include "StorageEngine/Sorting/PlacePatterns.h"

namespace tidyro {

namespace {

constexpr double oldDownloadAge = 90 * 86'400.0; // seconds
constexpr double unusedAge = 365 * 86'400.0;
constexpr std::uint64_t largeFileBytes = 1'000'000'000;

/// Packages that install something, beside the disk images.
constexpr auto installerExtensions =
    lowercaseSet<9>("pkg mpkg deb rpm msi exe appimage flatpak snap");

std::uint32_t secondsBefore(Timestamp now, double age) {
    return compactSeconds(static_cast<std::int64_t>(now.secondsSince1970() - age));
}

/// One sorting while it goes on.
class Placing {
  public:
    Placing(const DiskTree& tree, const ProjectFolderJudge& judge,
            const DiskSorting::Options& options)
        : tree_(tree),
          judge_(judge),
          options_(options),
          unusedSince_(secondsBefore(options.now, unusedAge)) {
        findPlaces();
        findDownloads();
    }

    /// Calls `found` with each item and its group.
    template <class Found>
    void run(Found found) const {
        std::vector<Visit> folders;
        const auto place = [&](const Visit& visit) {
            const DiskTree::Flags flags = tree_.flags(visit.node);
            if (flags.contains(DiskTree::Flags::movedAway)) return;
            if (const auto group = groupOf(visit, flags)) {
                found(*group, visit.node);
            } else if (tree_.children(visit.node).begin() != tree_.children(visit.node).end()) {
                folders.push_back(visit);
            }
        };
        place({.node = DiskTree::root, .isInDownloads = isRootInDownloads_, .mayBeExpected = true});
        while (!folders.empty()) {
            const Visit folder = folders.back();
            folders.pop_back();
            const bool isInDownloads = folder.isInDownloads || folder.node == downloads_;
            const bool mayBeExpected = expectingFolders_.contains(folder.node);
            for (const NodeNumber child : tree_.children(folder.node)) {
                place({child, isInDownloads, mayBeExpected});
            }
        }
    }

  private:
    struct Visit {
        NodeNumber node;
        bool isInDownloads;
        bool mayBeExpected; ///< its folder holds items of known places, so look it up
    };

    [[nodiscard]] std::optional<DiskGroup> groupOf(const Visit& visit,
                                                   DiskTree::Flags flags) const {
        const NodeNumber node = visit.node;
        const bool isFolder = flags.contains(DiskTree::Flags::directory);
        const auto known = visit.mayBeExpected ? expected_.find(node) : expected_.end();
        if (known != expected_.end() && known->second == DiskGroup::trash) return DiskGroup::trash;
        if (isFolder && ProjectFolderJudge::mayBeGenerated(tree_.nameBytes(node)) &&
            judge_.isGenerated(tree_, node)) {
            return DiskGroup::projectFolders;
        }
        if (known != expected_.end()) return known->second;
        if (visit.isInDownloads && isInstaller(node, flags)) return DiskGroup::installers;
        if (!isFolder && isLargeAndUnused(node, flags)) return DiskGroup::largeFiles;
        return std::nullopt;
    }

    [[nodiscard]] bool isInstaller(NodeNumber node, DiskTree::Flags flags) const {
        if (flags.contains(DiskTree::Flags::symlink)) return false;
        // "Foo.pkg" may be a folder that people see as one file.
        if (flags.contains(DiskTree::Flags::directory) &&
            !flags.contains(DiskTree::Flags::package)) {
            return false;
        }
        return contentKindForFile(tree_.nameBytes(node)) == ContentKind::diskImage ||
               installerExtensions.contains(path::extensionOf(tree_.nameBytes(node)));
    }

    [[nodiscard]] bool isLargeAndUnused(NodeNumber node, DiskTree::Flags flags) const {
        return tree_.size(node, {.onDisk = true}) >= largeFileBytes &&
               !flags.contains(DiskTree::Flags::symlink) &&
               tree_.lastUsedSeconds(node) <= unusedSince_;
    }

    void expect(NodeNumber node, DiskGroup group) {
        if (!expected_.emplace(node, group).second) return; // a more specific place has it
        if (node != DiskTree::root) expectingFolders_.insert(tree_.parent(node));
    }

    void findPlaces() {
        const auto asTrash = [&](NodeNumber node) { expect(node, DiskGroup::trash); };
        PlacePatterns(tree_, options_.trash.home.path())
            .forEachItem("", KnownPlace::Unit::eachChild, asTrash);
        // A scan stays on one volume: if the root is a volume's top, its Trash is in the tree.
        const PlacePatterns belowVolume(tree_, tree_.rootURL().path());
        for (const std::string& place : options_.trash.belowVolume) {
            belowVolume.forEachItem(place, KnownPlace::Unit::eachChild, asTrash);
        }
        const PlacePatterns belowHome(tree_, options_.home.path());
        const BaseFolders bases = BaseFolders::find(options_.home);
        for (const KnownPlace* place : KnownPlaces::mostSpecificFirst()) {
            belowHome.forEachItem(bases.moved(place->pattern), place->unit, [&](NodeNumber node) {
                if (place->unit == KnownPlace::Unit::wholePlace ||
                    !isExcludedChild(*place, tree_.nameBytes(node))) {
                    expect(node, place->group);
                }
            });
        }
    }

    void findDownloads() {
        const std::string path = options_.home.appendingFolder("Downloads").path();
        downloads_ = tree_.index(path).value_or(-1);
        isRootInDownloads_ = downloads_ < 0 && path::isInsideOrEqual(tree_.rootURL().path(), path);
        const std::uint32_t oldSince = secondsBefore(options_.now, oldDownloadAge);
        PlacePatterns(tree_, options_.home.path())
            .forEachItem("Downloads", KnownPlace::Unit::eachChild, [&](NodeNumber child) {
                const DiskTree::Flags flags = tree_.flags(child);
                // Nobody knows when the contents of an unreadable folder were used.
                const bool isKnown = !flags.contains(DiskTree::Flags::denied) &&
                                     !flags.contains(DiskTree::Flags::mountPoint);
                if (isKnown && !flags.contains(DiskTree::Flags::hidden) &&
                    lastUsedInside(child) <= oldSince) {
                    expect(child, DiskGroup::oldDownloads);
                }
            });
    }

    /// The last use of anything in a subtree. Reading a folder is a use of it, and scans read
    /// folders: of folders only the modification counts.
    [[nodiscard]] std::uint32_t lastUsedInside(NodeNumber node) const {
        std::uint32_t latest = 0;
        tree_.forEachDescendant(node, {.includingSelf = true}, [&](NodeNumber inside) {
            const std::uint32_t used =
                tree_.isDirectory(inside)
                    ? tree_.columns().modified[static_cast<std::size_t>(inside)]
                    : tree_.lastUsedSeconds(inside);
            latest = std::max(latest, used);
        });
        return latest;
    }

    const DiskTree& tree_;
    const ProjectFolderJudge& judge_;
    const DiskSorting::Options& options_;
    std::uint32_t unusedSince_;
    std::unordered_map<NodeNumber, DiskGroup> expected_;
    std::unordered_set<NodeNumber> expectingFolders_;
    NodeNumber downloads_ = -1;
    bool isRootInDownloads_ = false;
};

} // namespace

DiskSorting::Options DiskSorting::Options::current() {
    return {
        .home = platform::homeFolder(), .now = Timestamp::now(), .trash = platform::trashPlaces()};
}

DiskSorting::DiskSorting(const DiskTree& tree, const ProjectFolderJudge& judge,
                         const Options& options) {
    Placing(tree, judge, options).run([&](DiskGroup group, NodeNumber node) {
        const auto i = static_cast<std::size_t>(group);
        items_[i].push_back(node);
        bytes_[i] = saturatingAdd(bytes_[i], tree.size(node, {.onDisk = true}));
    });
}

} // namespace tidyro

#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "Base/Cancellation.h"
#include "Base/FileURL.h"
#include "CareDomain/CoverageGap.h"
#include "CareDomain/FileObservation.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderReading.h"
#include "StorageEngine/Observation/FileObserver.h"
#include "StorageEngine/Places/FolderResolver.h"
#include "StorageEngine/Places/RootPathIndex.h"
#include "StorageEngine/Rules/CleanupRule.h"

namespace tidyro {

/// The folder of a cleanup rule, open. It was reached from the home name by name, and no link was
/// followed.
struct CleanupPlace {
    const CleanupRule* rule;
    platform::FolderDescriptor folder;
    platform::ItemIdentity identity;

    /// The error is a gap where the folder may not be opened, or lies behind a link: what a link
    /// leads to may be anybody's. The error is empty where the folder is gone.
    [[nodiscard]] static std::expected<CleanupPlace, std::optional<CoverageGap>>
    open(const CleanupRule& rule, const FileURL& home);
};

/// Goes through one place and hands out each folder in it, with the names of its files.
///
/// It leaves out packages, mounted folders, folders that a cloud keeps and protected folders: no
/// cleanup may take these apart file by file. It also leaves out the places of other rules, which
/// are walked on their own.
///
/// Folders are held open on the way down and nothing is opened by its full path. A folder that is
/// moved or replaced by a link meanwhile therefore leads nowhere else. Used by one thread.
class CleanupPlaceWalk {
  public:
    /// A folder that was listed.
    struct Folder {
        std::shared_ptr<const platform::FolderDescriptor> folder;
        platform::FolderFacts facts;
        FileURL url;
        /// What the listing says of the folder; none when it could not be read to its end, or when
        /// nobody knows where the place really lies.
        std::optional<FolderSurroundingsFinder::Listed> listed;
        std::string
            names; ///< of its files and of what else is no folder, each with a zero behind it
        std::size_t count = 0; ///< of the names
    };
    struct Options {
        /// All places of the scan. The walk passes over the other ones, under whatever path it
        /// meets them.
        std::span<const CleanupPlace> places;
        /// The paths of all rules' roots, also of those that were not opened. They are passed over
        /// as well.
        const std::set<std::string, std::less<>>& roots;
        const RootPathIndex& protectedRoots;
        std::uint64_t maxEntries;         ///< that may be read
        std::size_t maxDepth;             ///< of folders, one inside the other
        std::function<bool(Folder)> take; ///< false ends the walk
        std::function<void(CoverageGap)> addGap;
        std::function<void(const std::string& folder)> enterFolder; ///< before each is read
        CancelToken cancel;
    };

    CleanupPlaceWalk(const CleanupPlace& place, Options options);

    /// To be called once. Ends early when it is cancelled or when the budget is used up.
    void run();
    [[nodiscard]] std::uint64_t entriesRead() const { return entriesRead_; }

  private:
    struct Level {
        std::shared_ptr<const platform::FolderDescriptor> folder;
        FileURL url;
        platform::FolderFacts facts;
        std::vector<std::string> folders; ///< names that are still to be visited, the next last
    };

    [[nodiscard]] bool list(Level& level);
    void sort(Level& level, const platform::FolderEntry& entry, Folder& found) const;
    [[nodiscard]] std::optional<Level> opened(const Level& level, const std::string& name);
    [[nodiscard]] bool isPlaceOfAnother(const platform::ItemIdentity& identity) const;
    void gap(const FileURL& url, CoverageGapReason reason, std::string_view what) const;

    const CleanupPlace& place_;
    const Options options_;
    platform::FolderLister lister_;
    std::expected<std::string, SystemError> realRoot_;
    std::set<std::string> mountPoints_; ///< relative to the place
    std::vector<Level> levels_;
    std::uint64_t entriesRead_ = 0;
};

} // namespace tidyro

#pragma once

#include <cstdint>
#include <expected>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Base/Cancellation.h"
#include "Base/FileURL.h"
#include "Base/Timestamp.h"
#include "CareDomain/CleanupPlan.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderReading.h"
#include "Platform/Mounts/Volumes.h"
#include "StorageEngine/Observation/FileObserver.h"
#include "StorageEngine/PickedItems/DiskItemFolders.h"
#include "StorageEngine/PickedItems/DiskItemPlaces.h"
#include "StorageEngine/PickedItems/DiskItemRefusal.h"
#include "StorageEngine/Safety/SafetyPolicyContext.h"
#include "StorageEngine/Sorting/DiskGroup.h"
#include "StorageEngine/Sorting/KnownPlaces.h"

namespace tidyro {

/// Whether a whole file or folder that a person picked may go to the Trash.
///
///     DiskItemRemovalPolicy policy({.home = home,
///                                   .openedFolders = opened,
///                                   .context = provider.context(),
///                                   .volumes = volumes});
///     const auto entry = policy.planEntry({.item = url, .measuredBytes = size, .at = now});
///     if (!entry) show(explanation(entry.error()));
///
/// The checks come in the order in which `DiskItemRefusal` lists the refusals; every doubt is one.
/// An item that its path alone refuses costs no look at the disk, a file that may go about a dozen
/// system calls, a folder a look through all that it holds.
///
/// What decides over an item is asked through the open folder that it lies in, which was opened
/// without following a link: a folder on the way that is exchanged meanwhile leads nowhere else.
/// Whole projects and whole repositories may go when a person picks them, parts of a repository
/// may not.
///
/// What it finds out about the folders that items lie in it remembers, and it asks what is mounted
/// and where the links in the home lead only once: a new one is made for each search or selection,
/// and by whoever is about to touch something. It belongs to one thread.
class DiskItemRemovalPolicy {
  public:
    struct Options {
        FileURL home;
        std::vector<FileURL> openedFolders = {}; ///< that the person has opened since the start
        /// What runs and what is kept; null when it is not known, and everything is refused.
        std::shared_ptr<const SafetyPolicyContext> context;
        const platform::Volumes& volumes; ///< asked by the constructor only
    };
    explicit DiskItemRemovalPolicy(Options options);

    struct Question {
        FileURL item;
        /// The known place that the item was found in; absent for one from a chosen folder.
        std::optional<std::string> placeID = std::nullopt;
        std::uint64_t measuredBytes;
        std::optional<DiskGroup> group = std::nullopt; ///< that the item was sorted into
        /// When the measurement of the item began; absent when unknown. An item that was modified
        /// since is not the one that was measured.
        std::optional<Timestamp> built = std::nullopt;
        Timestamp at; ///< now
        CancelToken cancel = {};
    };
    /// The entry of a plan, for the person to approve by itself, or why the item has to stay.
    [[nodiscard]] std::expected<CleanupPlanEntry, DiskItemRefusal>
    planEntry(const Question& question);

  private:
    /// An item, looked at through the open folder that it lies in.
    struct Look {
        const Question& question;
        const DiskItemPlaces& places;
        const DiskItemFolders::Folder& folder;
        const platform::FolderDescriptor& parent;
        std::string name;
        std::string real;
        platform::FileMetadata seen;
        const KnownPlace* place;     ///< by its written path
        const KnownPlace* realPlace; ///< by its real one
        bool isInternal = false;     ///< on a disk inside the machine
    };
    using Verdict = std::optional<DiskItemRefusal>; ///< none: nothing was found against it

    [[nodiscard]] static Verdict byMoments(const Question& question);
    [[nodiscard]] static Verdict byKind(const platform::FileMetadata& seen);
    [[nodiscard]] Verdict byOrigin(Look& look, const FileObservation& observation);
    [[nodiscard]] Verdict byPermissions(const Look& look, const FileObservation& observation) const;
    [[nodiscard]] Verdict bySurroundings(const Look& look);
    [[nodiscard]] Verdict byUse(const Look& look) const;
    [[nodiscard]] static Verdict byDatabase(const Look& look);
    [[nodiscard]] Verdict byPlace(const Look& look);
    [[nodiscard]] Verdict byTime(const Look& look) const;
    [[nodiscard]] bool isVouchedFor(const Look& look, const FileObservation& observation);
    [[nodiscard]] static CleanupPlanEntry entry(const Look& look,
                                                const FileObservation& observation);

    std::shared_ptr<const SafetyPolicyContext> context_;
    FileURL home_;
    FileObserver observer_;
    DiskItemRefusal unknown_ = DiskItemRefusal::nothingKnown; ///< why there are no places
    std::optional<DiskItemPlaces> places_;
    FileURL realHome_;
    DiskItemFolders folders_{{}};
    std::map<std::string, std::optional<std::string>>
        openedVolumes_; ///< volumes of opened folders, by their real paths
};

} // namespace tidyro

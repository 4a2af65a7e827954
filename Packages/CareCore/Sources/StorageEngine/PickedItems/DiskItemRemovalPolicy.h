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
#include "StorageEngine/Places/BaseFolders.h"
#include "StorageEngine/Places/RootPathIndex.h"
#include "StorageEngine/Rules/CleanupRule.h"
#include "StorageEngine/Safety/SafetyPolicyContext.h"
#include "StorageEngine/Sorting/DiskGroup.h"
#include "StorageEngine/Sorting/KnownPlaces.h"

namespace tidyro {

/// Decides whether a whole file or folder that a person picked may go to the Trash.
///
///     DiskItemRemovalPolicy policy({.home = home,
///                                   .openedFolders = opened,
///                                   .context = provider.context(),
///                                   .volumes = volumes});
///     const auto entry = policy.planEntry(
///         {.item = url, .measuredBytes = bytes, .at = Timestamp::now()});
///     if (!entry) show(explanation(entry.error()));
///
/// The checks come in the order in which `DiskItemRefusal` lists the refusals, and every doubt is a
/// refusal. An item that is refused by its path costs no look at the disk, a file that may go some
/// twenty system calls, and a folder a look through all that it holds.
///
/// The folder that an item lies in is opened without following a link, and everything about the
/// item is asked through that open folder. A folder on the way that is exchanged meanwhile
/// therefore leads nowhere else. Whole projects and whole repositories may go when a person picks
/// them; parts of a repository may not.
///
/// A policy remembers what it finds out about folders, and asks only once what is mounted and where
/// the links in the home lead. So it is soon out of date: make a new one for each search or
/// selection, and before something is touched. It belongs to one thread.
class DiskItemRemovalPolicy {
  public:
    struct Options {
        FileURL home;
        std::vector<FileURL> openedFolders = {}; ///< by the person, since the program started
        /// What runs and what is kept. Null when it is not known; then everything is refused.
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
        /// after it is refused.
        std::optional<Timestamp> built = std::nullopt;
        /// Seconds for which the item must have been unchanged, also where its place asks for less.
        double quietPeriod = 0;
        Timestamp at; ///< now
        CancelToken cancel = {};
    };
    /// The entry of a plan, which the person approves by itself, or why the item has to stay.
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
        /// The known place of the written path leads to a folder that lies elsewhere as well, which
        /// may be anybody's: a link does, and so does something that is mounted there once more.
        bool isElsewhere = false;
    };
    using Verdict = std::optional<DiskItemRefusal>; ///< none: nothing was found against it

    [[nodiscard]] static Verdict byMoments(const Question& question);
    [[nodiscard]] static Verdict byKind(const platform::FileMetadata& seen);
    [[nodiscard]] Verdict byToolState(const Look& look) const;
    [[nodiscard]] bool mayHoldToolState(const Look& look) const;
    [[nodiscard]] Verdict byOrigin(Look& look, const FileObservation& observation);
    [[nodiscard]] Verdict byPermissions(const Look& look, const FileObservation& observation) const;
    [[nodiscard]] Verdict bySurroundings(const Look& look);
    [[nodiscard]] Verdict byUse(const Look& look) const;
    [[nodiscard]] static Verdict byDatabase(const Look& look);
    [[nodiscard]] Verdict byPlace(const Look& look);
    [[nodiscard]] Verdict byTime(const Look& look) const;
    [[nodiscard]] bool isVouchedFor(const Look& look, const FileObservation& observation);
    [[nodiscard]] bool isElsewhere(const Look& look) const;
    [[nodiscard]] const CleanupRule* ruleOf(const Look& look);
    [[nodiscard]] static Verdict byStore(const Look& look, const CleanupRule* rule);
    [[nodiscard]] static CleanupPlanEntry entry(const Look& look, const CleanupRule* rule,
                                                const FileObservation& observation);

    std::shared_ptr<const SafetyPolicyContext> context_;
    FileURL home_;
    FileObserver observer_;
    DiskItemRefusal unknown_ = DiskItemRefusal::nothingKnown; ///< why there are no places
    std::optional<DiskItemPlaces> places_;
    FileURL realHome_;
    RootPathIndex mountedTwice_; ///< and the person's own folders
    DiskItemFolders folders_{{}};
    BaseFolders bases_;
    std::optional<std::vector<CleanupRule>> rules_; ///< once they were needed
    std::map<std::string, std::optional<SharedText>>
        openedVolumes_; ///< volumes of opened folders, by their real paths
};

} // namespace tidyro

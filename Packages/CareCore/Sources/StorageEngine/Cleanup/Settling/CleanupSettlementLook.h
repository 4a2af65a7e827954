#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "Base/StringTable.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderChanges.h"
#include "Platform/Folders/TrashListing.h"
#include "Platform/Mounts/Volumes.h"
#include "StorageEngine/Cleanup/Settling/CleanupSettlement.h"
#include "StorageEngine/Trash/FingerprintComparison.h"

/// The first half of `CleanupSettlement`: where the items of a cleanup lie, and what has to be
/// done. Nobody else includes it.
namespace tidyro {

/// What one look found. Its pointers lead into the intent that was looked at.
struct CleanupSettlementLook {
    /// An item in a private folder of the cleanup.
    struct PrivateItem {
        enum class Step : std::uint8_t {
            putBack,
            takeNameAway, ///< it is at its place under another name already
            moveToTrash,  ///< something else lies at its place
            leave,        ///< likewise, and its place is in the Trash itself
            removePlaceholder,
        };
        std::string name;
        platform::FileMetadata seen;
        Step step;
        const CleanupIntentEntry* entry = nullptr; ///< none: a stranger
        std::size_t told = 0;                      ///< in `told.items`, or in `told.strangers`
    };
    struct PrivatePlace {
        std::string path;   ///< of the private folder
        std::string parent; ///< the folder that it lies in
        std::string target; ///< the folder that its items belong into
        std::vector<PrivateItem> items = {};
    };
    struct TrashStep {
        enum class Kind : std::uint8_t { writeNote, takeNameAway, removePlaceholder };
        Kind kind;
        std::size_t trashed;  ///< in the listing's items
        std::string source;   ///< the real path of its place
        std::size_t told = 0; ///< in `told.items`
    };

    SettledCleanup told;
    std::vector<const CleanupIntentEntry*> toldEntries = {}; ///< of `told.items`
    std::vector<PrivatePlace> privatePlaces = {};
    std::vector<TrashStep> trashSteps = {};
};

class CleanupSettlementLooker {
  public:
    CleanupSettlementLooker(const platform::Volumes& volumes, platform::TrashListing& listing);

    [[nodiscard]] CleanupSettlementLook look(const RecordedIntent& recorded);

    /// The folders in which an intent may have private folders, with those that their items belong
    /// into; their real paths.
    [[nodiscard]] static std::map<std::string, std::string>
    privateParents(const CleanupIntent& intent);

  private:
    using Found = SettledCleanup::Found;
    struct Folder {
        std::string path;
        platform::FolderDescriptor folder;
        std::optional<platform::FileMetadata> seen;
        SystemError error{0};
    };
    struct Course;

    [[nodiscard]] static std::string realFolder(std::string_view written);
    /// Where an item lies, without a link on the way. Entries of one folder follow one another.
    [[nodiscard]] std::string realSource(const CleanupIntentEntry& entry);
    [[nodiscard]] const Folder& opened(const std::string& path);
    [[nodiscard]] bool isTheSame(const platform::FileMetadata& seen, const FileFingerprint& planned,
                                 const CleanupIntent& intent) const;
    [[nodiscard]] static bool isKnown(const CleanupIntentEntry& entry,
                                      const SettledCleanup::Item& item);
    void lookIntoPrivateFolder(Course& course, const std::string& parent,
                               const std::string& target);
    [[nodiscard]] SettledCleanup::Item lookFor(Course& course, const CleanupIntentEntry& entry);
    [[nodiscard]] std::optional<std::size_t> trashedItem(Course& course,
                                                         const CleanupIntentEntry& entry);
    void lookForSecondName(Course& course, const CleanupIntentEntry& entry,
                           const platform::FileMetadata& atPlace);
    void lookForPlaceholders(Course& course);
    [[nodiscard]] bool isInsideTrashedFolder(const Course& course, const CleanupIntentEntry& entry);
    void judgeMissing(const Course& course, const CleanupIntentEntry& entry,
                      SettledCleanup::Item& item);

    FingerprintComparison comparison_;
    platform::TrashListing& listing_;
    std::unordered_multimap<std::uint64_t, std::size_t> trashedByInode_;
    std::optional<Folder> last_;
    std::pair<std::string, std::string> realFolder_; ///< the last one, by how it is written
};

} // namespace tidyro

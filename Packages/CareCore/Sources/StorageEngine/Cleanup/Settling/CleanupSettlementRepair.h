#pragma once

#include <expected>
#include <string>

#include "Base/SystemError.h"
#include "Platform/Folders/Trash.h"
#include "StorageEngine/Cleanup/Settling/CleanupSettlementLook.h"

/// The second half of `CleanupSettlement`: makes the changes that a look asks for. Nobody else
/// includes it.
namespace tidyro {

class CleanupSettlementRepair {
  public:
    CleanupSettlementRepair(const CleanupSettlement::Options& options,
                            const platform::Volumes& volumes,
                            const platform::TrashListing& listing);

    /// Everything is looked at once more right before it is changed. What could not be changed is
    /// told as such. Nothing is flushed.
    void repair(CleanupSettlementLook& look);
    /// Brings all of it to the disk.
    [[nodiscard]] std::expected<void, SystemError> flush();
    /// Removes the private folders of an intent, as far as they are empty. False when one stays.
    [[nodiscard]] bool removePrivateFolders(const CleanupIntent& intent);

  private:
    using Found = SettledCleanup::Found;
    using PrivatePlace = CleanupSettlementLook::PrivatePlace;
    using PrivateItem = CleanupSettlementLook::PrivateItem;
    /// What became of one item; the reason is for people.
    struct Done {
        Found found;
        std::optional<FileURL> url = std::nullopt;
        std::string reason = {};
    };

    void emptyPrivatePlace(const PrivatePlace& place, SettledCleanup& told);
    [[nodiscard]] Done takeOut(const platform::FolderDescriptor& mine,
                               const platform::FolderDescriptor& target, const PrivatePlace& place,
                               const PrivateItem& item);
    [[nodiscard]] Done moveToTrash(const platform::FolderDescriptor& mine,
                                   const PrivatePlace& place, const PrivateItem& item);
    [[nodiscard]] bool carryOut(const CleanupSettlementLook::TrashStep& step, Timestamp noted);
    [[nodiscard]] bool removeFromTrash(const platform::TrashListing::Item& item);
    void note(const platform::FolderDescriptor& folder, platform::FolderFlushes::Side side);

    const CleanupSettlement::Options& options_;
    const platform::TrashListing& listing_;
    platform::Trash trash_;
    std::expected<void, SystemError> noted_;
};

} // namespace tidyro

#pragma once

#include <cstdint>
#include <expected>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "Base/FileURL.h"
#include "Base/StringTable.h"
#include "Base/Timestamp.h"
#include "CareDomain/CleanupPlanSheet.h"
#include "CareDomain/FileFingerprint.h"
#include "Platform/Files/FileLease.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderChanges.h"
#include "Platform/Mounts/Volumes.h"
#include "StorageEngine/Trash/CleanupMutationError.h"
#include "StorageEngine/Trash/FingerprintComparison.h"

namespace tidyro {

/// An item that was found to be the planned one, and is held together with the folder that it lies
/// in. Whatever becomes of their names, these two stay the same.
struct VerifiedItem {
    platform::FolderDescriptor parent;
    std::string name;
    std::string realPath;
    platform::HeldItem held;
    platform::FileMetadata seen;
    /// Whether a lease proves anything on its mount, as far as that is known.
    std::optional<bool> areLeasesProven = std::nullopt;

    [[nodiscard]] platform::FileUse takeLease() { return held.takeLease(seen, areLeasesProven); }
    /// Whether what an open folder has under a name is this item, unchanged since it was verified.
    [[nodiscard]] bool isAt(const platform::FolderDescriptor& folder,
                            const std::string& name) const;
    /// The same in its own folder, where nothing at all was changed about it. One look tells both:
    /// while the item is held no other one has its identity.
    [[nodiscard]] bool isUntouched() const;

  private:
    [[nodiscard]] bool isItem(const platform::FileMetadata& there) const;
};

/// The last check before an item is touched: whether the item on the disk is the very one that was
/// planned, and still lies in the folder that authorizes it.
///
///     MutationIdentityGuard guard(volumes);
///     auto item = guard.look({.source = entry.sourceURL,
///                             .fingerprint = entry.fingerprint,
///                             .authorizedRoot = *root,
///                             .plannedAt = plan.createdAt});
///     if (!item) return refuse(item.error());
///     ... rename item->name relative to item->parent, and compare once more ...
///
/// The folder is opened from the real path of its root and beneath it, anew for each item, without
/// following a link and without leaving the root's volume. The volumes are asked for once, by the
/// constructor. Made for one run of a cleanup and used by one thread.
class MutationIdentityGuard {
  public:
    explicit MutationIdentityGuard(const platform::Volumes& volumes);

    enum class Accepts : std::uint8_t { regularFiles, foldersToo };
    struct Question {
        const FileURL& source;
        const FileFingerprint& fingerprint;
        /// The item itself, for one that was picked; a folder above it otherwise.
        const FileURL& authorizedRoot;
        const CleanupSheetEntry* sheet = nullptr; ///< none: nothing more was written down of it
        Timestamp plannedAt;
        Accepts accepts = Accepts::regularFiles;
    };
    [[nodiscard]] std::expected<VerifiedItem, CleanupMutationError> look(const Question& question);

    /// The same for somebody who only wants to know.
    [[nodiscard]] std::expected<void, CleanupMutationError>
    verify(const FileURL& source, const FileFingerprint& fingerprint, const FileURL& authorizedRoot,
           Timestamp plannedAt);

    /// Tells that this run itself changed what the system keeps of an item, such as the number of
    /// names of a file that has several.
    void noteOwnChange(const platform::FileMetadata& after);

  private:
    [[nodiscard]] bool isPlanned(const Question& question,
                                 const platform::FileMetadata& seen) const;
    [[nodiscard]] bool isStatusAsPlanned(const Question& question,
                                         const platform::FileMetadata& seen) const;
    [[nodiscard]] const std::optional<std::string>& realPathOf(std::string_view folder);
    using Root = std::expected<platform::FoldersBeneath, SystemError>;
    [[nodiscard]] const Root& rootAt(const std::string& realPath);

    FingerprintComparison comparison_;
    StringMap<std::optional<std::string>> realPaths_;
    StringMap<Root> roots_; ///< by their real paths
    platform::ProvenMounts leases_;
    std::map<platform::ItemIdentity, Timestamp> ownChanges_;
};

} // namespace tidyro

#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <expected>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "Base/FileURL.h"
#include "Base/PathText.h"
#include "Base/StringTable.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"
#include "Platform/Folders/FolderChanges.h"
#include "Platform/Folders/FolderFlushes.h"
#include "Platform/Folders/Trash.h"
#include "StorageEngine/Cleanup/Execution/MutationIdentityGuard.h"

namespace tidyro {

/// Removes files for good, in two steps, so that a race or a crash in between loses nothing.
///
///     SystemPermanentRemover remover({.intentID = intent.id, ...});
///     auto aside = remover.setAside(*std::move(item));
///     ... write down that it is removed, and make that durable ...
///     const auto freed = remover.remove(*std::move(aside));
///
/// The first step renames the file into a private folder beside it and compares it there. Nothing
/// is gone yet: a file that turns out to be another one goes back. What a crash leaves in a private
/// folder is put back by recovery. Only the second step takes the name away, of a file that nobody
/// else could reach meanwhile. Used by one thread.
class SystemPermanentRemover {
  public:
    struct Options {
        UUID intentID; ///< gives the private folders their name
        platform::FolderChanges& changes;
        platform::FolderFlushes& flushes;
        /// Takes a stranger that cannot go back, with a note of where it lay.
        platform::Trash& trash;
        /// Makes room on a full disk; false when it cannot.
        std::function<bool()> giveSpaceBack;
    };
    explicit SystemPermanentRemover(Options options) : options_(std::move(options)) {}

    class SetAside;

    /// Tells beforehand of an item that is to come. The private folder of its folder is kept until
    /// the last one that was told came, or was forgotten.
    void expect(const FileURL& source) { ++folders_[folderOf(source)].expected; }
    void forget(const FileURL& source);

    /// Renames the file into the private folder of the folder that it lies in.
    [[nodiscard]] std::expected<SetAside, CleanupMutationError> setAside(const FileURL& source,
                                                                         VerifiedItem item);
    struct Removed {
        std::uint64_t freedBytes; ///< none while the file has another name
        /// What the system keeps of the file then.
        std::optional<platform::FileMetadata> otherNames = std::nullopt;
    };
    /// Removes it. A file that changed since it was set aside goes back.
    [[nodiscard]] std::expected<Removed, CleanupMutationError> remove(SetAside aside);
    /// Puts it back and never replaces. The error says where it lies when it cannot go back.
    [[nodiscard]] CleanupMutationError putBack(SetAside aside, CleanupMutationError because);

  private:
    struct Private;
    using PrivateReference = std::shared_ptr<Private>;

    struct InFolder {
        std::size_t expected = 0;
        PrivateReference opened = nullptr;
    };
    /// Each takes two descriptors.
    static constexpr std::size_t maxOpened = 256;

    [[nodiscard]] static std::string folderOf(const FileURL& source) {
        return std::string(path::parent(source.path()));
    }
    [[nodiscard]] std::expected<PrivateReference, platform::ChangeError>
    privateFolder(const std::string& folder, const VerifiedItem& item);
    /// For as long as items are expected in it.
    void keepOpened(const std::string& path, InFolder& folder, const PrivateReference& opened);

    Options options_;
    StringMap<InFolder> folders_; ///< by their paths as they are written
    /// By the folders that they were made in, to which several paths may lead, and their mounts,
    /// between which nothing can be renamed. Each is there as long as an item is in it.
    std::map<std::pair<platform::ItemIdentity, std::uint64_t>, std::weak_ptr<Private>> made_;
    std::deque<std::string> opened_; ///< oldest first; some may be closed by now
};

/// A file in its private folder.
class SystemPermanentRemover::SetAside {
  public:
    [[nodiscard]] const VerifiedItem& item() const { return item_; }

  private:
    friend SystemPermanentRemover;
    SetAside(VerifiedItem item, PrivateReference folder)
        : item_(std::move(item)), folder_(std::move(folder)) {}

    VerifiedItem item_;
    PrivateReference folder_;
    std::optional<Timestamp> changed_ = std::nullopt; ///< by the rename
};

} // namespace tidyro

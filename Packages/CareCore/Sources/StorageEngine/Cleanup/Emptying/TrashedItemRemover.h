#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "Base/FileURL.h"
#include "Base/StringTable.h"
#include "Base/SystemError.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"
#include "CareDomain/FileFingerprint.h"
#include "Platform/Files/FileLease.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderChanges.h"
#include "Platform/Folders/FolderFlushes.h"
#include "Platform/Folders/Trash.h"
#include "Platform/Mounts/Volumes.h"
#include "StorageEngine/Trash/FingerprintComparison.h"

namespace tidyro {

/// Why an item stays in the Trash.
struct TrashRemovalError {
    enum class Kind : std::uint8_t {
        notInTrash,
        anotherItem,        ///< something else has its name there, or it was changed
        unreachable,        ///< the Trash itself cannot be opened, or is not this person's
        changedInside,      ///< something in the folder changed since it went to the Trash
        notRemovableInside, ///< something in the folder is locked, closed, mounted or too deep
        inUse,
        failed,
        /// Some of the folder is gone already; what was added meanwhile, and what holds it, is not.
        partlyRemoved,
    };
    Kind kind;
    std::optional<std::string> reason = std::nullopt; ///< the middle of a sentence, when it failed
    /// Where it lies by now, when it could not go back to its place in the Trash.
    std::optional<FileURL> displaced = std::nullopt;

    /// Whole sentences for people.
    [[nodiscard]] std::string description() const;
    bool operator==(const TrashRemovalError&) const = default;
};

/// Removes items of the Trash for good, one by one: files and whole folders.
///
///     TrashedItemRemover remover({.intentID = intent.id, ...});
///     auto item = remover.find({trashURL, fingerprint, wentAt});
///     if (const auto aside = remover.setAside(*item); !aside) return told(aside.error());
///     ... write down that it is removed, and make that durable ...
///     const auto removed = remover.remove(*std::move(item));
///
/// An item is first renamed into a private folder beside `files` and compared there; until it is
/// removed it can go back. A folder is removed by open folders, from the leaves up. Each piece of
/// it is taken out into the private folder first, by a rename, and compared there: so what somebody
/// puts in its place in that very moment goes back and is never removed. No link is followed, and
/// only the folder's own volume is entered.
///
/// What a crash leaves in the private folder is put back by recovery. Used by one thread.
class TrashedItemRemover {
  public:
    using Error = TrashRemovalError;

    struct Options {
        UUID intentID; ///< gives the private folders their name
        const platform::Volumes& volumes;
        platform::FolderChanges& changes;
        platform::FolderFlushes& flushes;
        /// Makes room on a full disk; false when it cannot.
        std::function<bool()> giveSpaceBack;
    };
    explicit TrashedItemRemover(const Options& options);
    ~TrashedItemRemover();

    struct Question {
        const FileURL& trashURL;
        const FileFingerprint& fingerprint;
        /// Nothing in a folder may have changed later than this.
        Timestamp wentAt;
    };
    /// An item that was found to be the very one. It is held, so that no other item gets its
    /// number.
    class Item;
    [[nodiscard]] std::expected<Item, Error> find(const Question& question);

    /// Renames it into the private folder, and compares it once more. With an error it is back.
    [[nodiscard]] std::expected<void, Error> setAside(Item& item);

    struct Removed {
        std::uint64_t freedBytes =
            0; ///< blocks that nothing else has, of files without other names
        std::optional<Error> error = std::nullopt;
    };
    /// Removes what was set aside, and the Trash's note of it last.
    [[nodiscard]] Removed remove(Item item);
    /// Puts it back and never replaces. The error tells where it lies when it cannot go back.
    [[nodiscard]] Error putBack(Item item, Error because) const;

    /// Removes the private folders that are empty. Called when no item is set aside any more, and
    /// before the cleanup is closed: nobody looks for the folders of a closed one.
    void removePrivateFolders();

  private:
    struct Private;
    class Tree;
    using PrivateReference = std::shared_ptr<Private>;
    using Place = std::shared_ptr<const platform::TrashedItem>; ///< of some item in the folder
    /// When this run itself changed what the system keeps of a file, by one of its names: the file
    /// may have others that are to go as well.
    using OwnChanges = std::map<platform::ItemIdentity, Timestamp>;

    [[nodiscard]] std::expected<Place, SystemError> placeOf(const FileURL& trashURL);
    [[nodiscard]] std::expected<PrivateReference, platform::ChangeError>
    privateFolder(const platform::TrashedItem& place);
    void noteOwnChange(const platform::FileMetadata& after);
    [[nodiscard]] bool isUnchanged(const Item& item, const platform::FileMetadata& now) const;

    Options options_;
    FingerprintComparison comparison_;
    StringMap<Place> places_;                                    ///< by the path of the folder
    std::map<platform::ItemIdentity, PrivateReference> folders_; ///< by the folder that they lie in
    OwnChanges ownChanges_;
};

class TrashedItemRemover::Item {
  public:
    [[nodiscard]] const platform::FileMetadata& seen() const { return seen_; }

  private:
    friend TrashedItemRemover;
    Item(Place place, platform::HeldItem held, const platform::FileMetadata& seen,
         const Question& question)
        : place_(std::move(place)),
          name_(question.trashURL.lastComponent()),
          held_(std::move(held)),
          seen_(seen),
          fingerprint_(question.fingerprint),
          wentAt_(question.wentAt) {}

    Place place_;
    std::string name_;
    platform::HeldItem held_;
    platform::FileMetadata seen_;
    FileFingerprint fingerprint_;
    Timestamp wentAt_;
    PrivateReference folder_ = nullptr;               ///< once it was set aside
    std::optional<Timestamp> changed_ = std::nullopt; ///< by the rename
};

} // namespace tidyro

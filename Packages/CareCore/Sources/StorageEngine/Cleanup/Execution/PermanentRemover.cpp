#include "StorageEngine/Cleanup/Execution/PermanentRemover.h"

#include <optional>
#include <utility>

#include "Base/PathText.h"
#include "Platform/Files/FileContents.h"
#include "StorageEngine/Trash/TrashMover.h"

namespace tidyro {

namespace {

using Kind = CleanupMutationError::Kind;
using platform::ChangeError;
using platform::ChangeFailure;
using platform::EntryName;
using Side = platform::FolderFlushes::Side;

/// Makes a change, and once more when the disk was full and there is room by then.
template <class Change>
auto makingRoom(const std::function<bool()>& giveSpaceBack, const Change& change) {
    auto made = change();
    if (!made && made.error().kind == ChangeFailure::full && giveSpaceBack()) made = change();
    return made;
}

CleanupMutationError removeFailed(const ChangeError& error) {
    if (error.kind == ChangeFailure::sourceGone) return {.kind = Kind::sourceMissing};
    return {.kind = Kind::removeFailed, .reason = appAuthoredFileSystemFailureReason(error.system)};
}

} // namespace

/// A private folder, removed with the last item that is in it.
struct SystemPermanentRemover::Private {
    platform::FolderChanges& changes;
    platform::FolderFlushes& flushes;
    platform::FolderDescriptor parent;
    platform::PrivateFolder folder;
    std::string name;

    Private(const Options& options, platform::FolderDescriptor above, platform::PrivateFolder own,
            std::string called)
        : changes(options.changes),
          flushes(options.flushes),
          parent(std::move(above)),
          folder(std::move(own)),
          name(std::move(called)) {}
    Private(const Private&) = delete;
    Private& operator=(const Private&) = delete;
    // One that is not empty stays, with what could not go back; that was told with the item.
    ~Private() {
        static_cast<void>(flushes.note(parent, Side::left));
        static_cast<void>(changes.removeFolder({.folder = parent, .name = name}));
    }
};

void SystemPermanentRemover::forget(const FileURL& source) {
    const auto known = folders_.find(folderOf(source));
    if (known != folders_.end() && --known->second.expected == 0) folders_.erase(known);
}

std::expected<SystemPermanentRemover::PrivateReference, ChangeError>
SystemPermanentRemover::privateFolder(const std::string& folder, const VerifiedItem& item) {
    const auto above = platform::fileMetadata(item.parent.fd());
    if (!above) return std::unexpected(ChangeError::fromSystem(above.error()));
    InFolder& here = folders_[folder];
    std::weak_ptr<Private>& known = made_[{above->identity, above->mount.value_or(0)}];
    if (auto last = known.lock()) {
        if (!here.opened) keepOpened(folder, here, last);
        return last;
    }
    const std::string name = platform::PrivateFolder::nameFor(options_.intentID);
    auto own = item.parent.open(".");
    if (!own) return std::unexpected(ChangeError::fromSystem(own.error()));
    auto made = makingRoom(options_.giveSpaceBack, [&] {
        return platform::PrivateFolder::make(options_.changes, item.parent, name);
    });
    if (!made && made.error().kind == ChangeFailure::targetTaken) {
        // This run made it, and something in it could not go back.
        made = platform::PrivateFolder::open(item.parent, name);
    }
    if (!made) return std::unexpected(made.error());
    auto opened = std::make_shared<Private>(options_, *std::move(own), *std::move(made), name);
    known = opened;
    keepOpened(folder, here, opened);
    return opened;
}

void SystemPermanentRemover::keepOpened(const std::string& path, InFolder& folder,
                                        const PrivateReference& opened) {
    while (opened_.size() >= maxOpened) {
        const auto oldest = folders_.find(opened_.front());
        if (oldest != folders_.end()) oldest->second.opened.reset();
        opened_.pop_front();
    }
    opened_.push_back(path);
    folder.opened = opened;
}

std::expected<SystemPermanentRemover::SetAside, CleanupMutationError>
SystemPermanentRemover::setAside(const FileURL& source, VerifiedItem item) {
    const auto folder = privateFolder(folderOf(source), item);
    if (!folder) return std::unexpected(removeFailed(folder.error()));
    auto noted = options_.flushes.note(item.parent, Side::left, item.seen);
    if (noted) noted = options_.flushes.note((*folder)->folder.folder(), Side::entered, item.seen);
    if (!noted) {
        return std::unexpected(removeFailed(ChangeError::fromSystem(noted.error())));
    }
    if (item.takeLease() == platform::FileUse::inUse) {
        return std::unexpected(CleanupMutationError{
            .kind = Kind::removeFailed, .reason = appAuthoredFileSystemFailureReason({EBUSY})});
    }
    const EntryName from{.folder = item.parent, .name = item.name};
    const EntryName to{.folder = (*folder)->folder.folder(), .name = item.name};
    const auto renamed = makingRoom(options_.giveSpaceBack, [&] {
        return platform::moveNeverReplacing(options_.changes, from, to);
    });
    if (!renamed) return std::unexpected(removeFailed(renamed.error()));
    SetAside aside(std::move(item), *folder);
    const VerifiedItem& moved = aside.item_;
    const bool isTouched = moved.held.isLeaseBroken();
    const auto after = moved.held.metadata();
    if (isTouched || !after || !moved.isAt((*folder)->folder.folder(), moved.name)) {
        return std::unexpected(putBack(std::move(aside), {.kind = Kind::identityChanged}));
    }
    aside.changed_ = after->changed;
    aside.item_.held.releaseLease();
    return aside;
}

std::expected<SystemPermanentRemover::Removed, CleanupMutationError>
SystemPermanentRemover::remove(SetAside aside) {
    const VerifiedItem& item = aside.item_;
    const platform::FolderDescriptor& folder = aside.folder_->folder.folder();
    const auto before = item.held.metadata();
    if (!before || before->changed != aside.changed_ || !item.isAt(folder, item.name)) {
        return std::unexpected(putBack(std::move(aside), {.kind = Kind::identityChanged}));
    }
    const std::uint64_t own =
        before->linkCount == 1 ? platform::ownByteCount(folder, item.name.c_str(), *before) : 0;
    // Before the removal, so that the cleanup never ends while a crash could still undo it.
    if (const auto noted = options_.flushes.note(folder, Side::left, item.seen); !noted) {
        return std::unexpected(
            putBack(std::move(aside), removeFailed(ChangeError::fromSystem(noted.error()))));
    }
    const auto removed = makingRoom(options_.giveSpaceBack, [&] {
        return options_.changes.removeFile({.folder = folder, .name = item.name});
    });
    if (!removed) return std::unexpected(putBack(std::move(aside), removeFailed(removed.error())));
    const auto after = item.held.metadata();
    if (!after) return Removed{.freedBytes = 0};
    if (after->linkCount > 0) return Removed{.freedBytes = 0, .otherNames = *after};
    return Removed{.freedBytes = own};
}

CleanupMutationError SystemPermanentRemover::putBack(SetAside aside, CleanupMutationError because) {
    const VerifiedItem& item = aside.item_;
    const platform::FolderDescriptor& folder = aside.folder_->folder.folder();
    const EntryName from{.folder = folder, .name = item.name};
    const EntryName to{.folder = item.parent, .name = item.name};
    aside.item_.held.releaseLease();
    // An item that is back is where it belongs, flushed or not.
    static_cast<void>(options_.flushes.note(folder, Side::left, item.seen));
    static_cast<void>(options_.flushes.note(item.parent, Side::entered, item.seen));
    const auto back = makingRoom(options_.giveSpaceBack, [&] {
        return platform::moveNeverReplacing(options_.changes, from, to);
    });
    if (back) return because;
    const auto seen = platform::fileMetadata(folder, item.name.c_str());
    if (!seen) return because;
    if (auto slot = options_.trash.reserve(
            {.folder = folder, .name = item.name, .path = item.realPath, .seen = *seen});
        slot && slot->move()) {
        because.displaced = slot->url();
        return because;
    }
    const std::string parent(path::parent(item.realPath));
    because.displaced =
        FileURL::file(path::joined(path::joined(parent, aside.folder_->name), item.name));
    return because;
}

} // namespace tidyro

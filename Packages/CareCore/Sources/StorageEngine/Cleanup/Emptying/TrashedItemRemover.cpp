#include "StorageEngine/Cleanup/Emptying/TrashedItemRemover.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

#include "Base/PathText.h"
#include "Platform/Files/FileContents.h"
#include "Platform/Folders/FolderReading.h"
#include "StorageEngine/Trash/TrashMover.h"

namespace tidyro {

namespace {

using Kind = TrashRemovalError::Kind;
using platform::ChangeError;
using platform::ChangeFailure;
using platform::EntryName;
using platform::FileMetadata;
using platform::FolderDescriptor;
using platform::ItemKind;

TrashRemovalError removalFailed(const ChangeError& error) {
    if (error.kind == ChangeFailure::sourceGone) return {.kind = Kind::notInTrash};
    return {.kind = Kind::failed, .reason = appAuthoredFileSystemFailureReason(error.system)};
}

TrashRemovalError removalFailed(SystemError error) {
    return removalFailed(ChangeError::fromSystem(error));
}

bool areOnOneVolume(const FileMetadata& a, const FileMetadata& b) {
    return a.identity.device == b.identity.device && platform::areOnOneMount(a, b);
}

/// All names in a folder; none when it cannot be read to its end. They are gathered first, since a
/// folder that loses entries meanwhile may leave some out.
std::optional<std::vector<std::string>> namesInFolder(const FolderDescriptor& folder) {
    std::vector<std::string> names;
    platform::FolderLister lister({.isAskedForFacts = false});
    lister.begin(folder);
    while (const platform::FolderEntry* entry = lister.next()) names.emplace_back(entry->name);
    if (lister.error().code != 0) return std::nullopt;
    return names;
}

} // namespace

std::string TrashRemovalError::description() const {
    const std::string where =
        displaced ? " It lies at " + displaced->path() + " now." : std::string();
    switch (kind) {
    case Kind::notInTrash: return "This is not in the Trash any more." + where;
    case Kind::anotherItem:
        return "What lies in the Trash under this name is not what Tidyro moved there, or was "
               "changed since, so it was left alone." +
               where;
    case Kind::unreachable: return "The Trash that this lies in cannot be opened." + where;
    case Kind::changedInside:
        return "Something in this folder changed after it went to the Trash, so it was left "
               "alone." +
               where;
    case Kind::notRemovableInside:
        return "Something in this folder cannot be removed, so all of it was left alone." + where;
    case Kind::inUse: return "A program has this open, so it was left alone." + where;
    case Kind::partlyRemoved:
        return "Something was added to this folder while it was removed. What was added stays, and "
               "the rest of the folder with it." +
               where;
    case Kind::failed: break;
    }
    return "This could not be removed" + (reason ? ": " + *reason : std::string()) + "." + where;
}

/// A private folder, removed with the last item that is in it.
struct TrashedItemRemover::Private {
    platform::FolderChanges& changes;
    FolderDescriptor base;
    std::string name;
    platform::PrivateFolder made;
    std::string path;

    Private(platform::FolderChanges& through, FolderDescriptor in, std::string called,
            platform::PrivateFolder own, std::string at)
        : changes(through),
          base(std::move(in)),
          name(std::move(called)),
          made(std::move(own)),
          path(std::move(at)) {}
    Private(const Private&) = delete;
    Private& operator=(const Private&) = delete;
    // One that is not empty stays, with what could not go back; that was told with the item.
    ~Private() { static_cast<void>(changes.removeFolder({.folder = base, .name = name})); }

    [[nodiscard]] const FolderDescriptor& folder() const { return made.folder(); }
};

/// What lies in a folder of the Trash that is to be removed.
class TrashedItemRemover::Tree {
  public:
    Tree(const FileMetadata& top, Timestamp wentAt, OwnChanges& own)
        : top_(top), wentAt_(wentAt), own_(own) {}

    /// Why the folder has to stay; none when all of it may go.
    [[nodiscard]] std::optional<Kind> reasonToStay(FolderDescriptor folder) const;

    struct Changing {
        platform::FolderChanges& changes;
        const FolderDescriptor& aside; ///< the private folder
    };
    /// Removes everything in the folder. False when something of it stays.
    [[nodiscard]] bool empty(FolderDescriptor folder, const Changing& through);

    [[nodiscard]] std::uint64_t freedBytes() const { return freedBytes_; }

  private:
    struct Level {
        FolderDescriptor folder;
        std::vector<std::string> names;
        std::size_t next = 0;
        std::string name = {}; ///< of the folder itself
        std::optional<FileMetadata> seen = std::nullopt;
        bool isEmptied = true;
    };

    [[nodiscard]] bool isOld(const FileMetadata& seen) const;
    /// Opens a folder that was just seen; none when it is another one by now.
    [[nodiscard]] static std::optional<Level>
    opened(const FolderDescriptor& parent, const std::string& name, const FileMetadata& seen);
    [[nodiscard]] bool removePiece(const EntryName& piece, const FileMetadata& seen,
                                   const Changing& through);
    /// Gives a piece back that is not to be removed; under another name where its own is taken.
    static void giveBack(const EntryName& aside, const EntryName& piece, const Changing& through);

    FileMetadata top_;
    Timestamp wentAt_;
    OwnChanges& own_;
    std::uint64_t freedBytes_ = 0;
};

bool TrashedItemRemover::Tree::isOld(const FileMetadata& seen) const {
    if (!seen.changed) return false;
    if (*seen.changed <= wentAt_) return true;
    const auto own = own_.find(seen.identity);
    return own != own_.end() && own->second == *seen.changed;
}

std::optional<TrashedItemRemover::Tree::Level>
TrashedItemRemover::Tree::opened(const FolderDescriptor& parent, const std::string& name,
                                 const FileMetadata& seen) {
    auto folder = parent.open(name.c_str());
    const auto found =
        folder ? platform::fileMetadata(folder->fd()) : std::unexpected(folder.error());
    if (!found || found->identity != seen.identity) return std::nullopt;
    auto names = namesInFolder(*folder);
    if (!names) return std::nullopt;
    return Level{
        .folder = *std::move(folder), .names = *std::move(names), .name = name, .seen = seen};
}

std::optional<Kind> TrashedItemRemover::Tree::reasonToStay(FolderDescriptor folder) const {
    // Each level is held open, here and when it is removed.
    const std::size_t maxLevels = platform::openFolderBudget();
    auto names = namesInFolder(folder);
    if (!names) return Kind::notRemovableInside;
    std::vector<Level> levels;
    levels.push_back({.folder = std::move(folder), .names = *std::move(names)});
    while (!levels.empty()) {
        Level& at = levels.back();
        if (at.next == at.names.size()) {
            levels.pop_back();
            continue;
        }
        const std::string& name = at.names[at.next++];
        const auto seen = platform::fileMetadata(at.folder, name.c_str());
        if (!seen) return Kind::changedInside; // it was listed a moment ago
        if (!areOnOneVolume(*seen, top_) || seen->isLocked) return Kind::notRemovableInside;
        if (!isOld(*seen)) return Kind::changedInside;
        if (seen->kind != ItemKind::folder) continue;
        if (levels.size() >= maxLevels || !platform::isWritableFolder(at.folder, name.c_str())) {
            return Kind::notRemovableInside;
        }
        auto next = opened(at.folder, name, *seen);
        if (!next) return Kind::notRemovableInside;
        levels.push_back(*std::move(next));
    }
    return std::nullopt;
}

bool TrashedItemRemover::Tree::empty(FolderDescriptor folder, const Changing& through) {
    auto names = namesInFolder(folder);
    if (!names) return false;
    std::vector<Level> levels;
    levels.push_back({.folder = std::move(folder), .names = *std::move(names)});
    while (true) {
        Level& at = levels.back();
        if (at.next == at.names.size()) {
            if (levels.size() == 1) return at.isEmptied;
            const Level done = std::move(at);
            levels.pop_back();
            Level& above = levels.back();
            const bool isGone =
                done.isEmptied && done.seen &&
                removePiece({.folder = above.folder, .name = done.name}, *done.seen, through);
            above.isEmptied = above.isEmptied && isGone;
            continue;
        }
        const std::string& name = at.names[at.next++];
        const auto seen = platform::fileMetadata(at.folder, name.c_str());
        if (!seen && platform::hasVanished(seen.error())) continue;
        bool isGone = seen && areOnOneVolume(*seen, top_) && isOld(*seen);
        if (isGone && seen && seen->kind == ItemKind::folder) {
            if (auto next = opened(at.folder, name, *seen)) {
                levels.push_back(*std::move(next));
                continue;
            }
            isGone = false;
        }
        isGone = isGone && seen && removePiece({.folder = at.folder, .name = name}, *seen, through);
        at.isEmptied = at.isEmptied && isGone;
    }
}

bool TrashedItemRemover::Tree::removePiece(const EntryName& piece, const FileMetadata& seen,
                                           const Changing& through) {
    constexpr int maxAttempts = 100;
    std::string name = piece.name;
    const EntryName aside{.folder = through.aside, .name = name};
    auto moved = platform::moveNeverReplacing(through.changes, piece, aside);
    for (int attempt = 2; !moved && attempt <= maxAttempts; ++attempt) {
        if (moved.error().kind != ChangeFailure::targetTaken) return false;
        name = std::to_string(attempt) + "." + piece.name.substr(0, 240);
        moved = platform::moveNeverReplacing(through.changes, piece, aside);
    }
    if (!moved) return false;
    const bool isFolder = seen.kind == ItemKind::folder;
    const auto held = platform::HeldItem::open(through.aside, name.c_str());
    const auto now = held ? held->metadata() : std::unexpected(held.error());
    const bool isIt =
        now && now->identity == seen.identity &&
        (isFolder || (now->byteCount == seen.byteCount && now->modified == seen.modified));
    if (!isIt) {
        giveBack(aside, piece, through);
        return false;
    }
    const bool isLastName = now->linkCount == 1 && seen.kind == ItemKind::regularFile;
    const std::uint64_t own =
        isLastName ? platform::ownByteCount(through.aside, name.c_str(), *now) : 0;
    const auto removed =
        isFolder ? through.changes.removeFolder(aside) : through.changes.removeFile(aside);
    if (!removed) {
        giveBack(aside, piece, through);
        return false;
    }
    const auto after = held->metadata();
    if (after && after->linkCount == 0) freedBytes_ += own;
    if (!isFolder && after && after->linkCount > 0) {
        if (const auto changed = after->changed) own_[after->identity] = *changed;
    }
    return true;
}

void TrashedItemRemover::Tree::giveBack(const EntryName& aside, const EntryName& piece,
                                        const Changing& through) {
    constexpr int maxAttempts = 100;
    std::string name = piece.name;
    for (int attempt = 2; attempt <= maxAttempts; ++attempt) {
        const EntryName to{.folder = piece.folder, .name = name};
        const auto moved = platform::moveNeverReplacing(through.changes, aside, to);
        if (moved || moved.error().kind != ChangeFailure::targetTaken) return;
        name = std::to_string(attempt) + "." + piece.name.substr(0, 240);
    }
}

// One item ---------------------------------------------------------------------------------------

TrashedItemRemover::TrashedItemRemover(const Options& options)
    : options_(options), comparison_(options.volumes, FingerprintComparison::Volume::byUUID) {}

TrashedItemRemover::~TrashedItemRemover() = default;

std::expected<TrashedItemRemover::Place, SystemError>
TrashedItemRemover::placeOf(const FileURL& trashURL) {
    const std::string_view folder = path::parent(trashURL.path());
    if (const auto known = places_.find(folder); known != places_.end()) return known->second;
    auto opened = platform::TrashedItem::open(trashURL);
    if (!opened) return std::unexpected(opened.error());
    auto place = std::make_shared<const platform::TrashedItem>(*std::move(opened));
    places_.emplace(folder, place);
    return place;
}

std::expected<TrashedItemRemover::Item, TrashRemovalError>
TrashedItemRemover::find(const Question& question) {
    const auto refused = [](Kind kind) { return std::unexpected(Error{.kind = kind}); };
    const auto known = placeOf(question.trashURL);
    if (!known) {
        return refused(platform::hasVanished(known.error()) ? Kind::notInTrash : Kind::unreachable);
    }
    const platform::TrashedItem* const place = known->get();
    const std::string name(question.trashURL.lastComponent());
    const auto folder = platform::fileMetadata(place->folder.fd());
    const auto base = platform::fileMetadata(place->base.fd());
    if (!folder || !base || !areOnOneVolume(*folder, *base) ||
        folder->ownerUserID != platform::currentUserID() ||
        base->ownerUserID != platform::currentUserID()) {
        return refused(Kind::unreachable); // somebody else could exchange what lies in it
    }
    auto held = platform::HeldItem::open(place->folder, name.c_str());
    if (!held) {
        return refused(platform::hasVanished(held.error()) ? Kind::notInTrash : Kind::unreachable);
    }
    const auto seen = held->metadata();
    if (!seen) return refused(Kind::unreachable);
    const bool isFolder = seen->kind == ItemKind::folder;
    if ((!isFolder && seen->kind != ItemKind::regularFile) || !areOnOneVolume(*seen, *folder) ||
        !comparison_.isItem(*seen, question.fingerprint)) {
        return refused(Kind::anotherItem);
    }
    if (isFolder) {
        auto opened = place->folder.open(name.c_str());
        const auto again =
            opened ? platform::fileMetadata(opened->fd()) : std::unexpected(opened.error());
        if (!again || !platform::isWritableFolder(place->folder, name.c_str())) {
            return refused(Kind::notRemovableInside);
        }
        if (again->identity != seen->identity) return refused(Kind::anotherItem);
        OwnChanges own = ownChanges_;
        const auto stays = Tree(*seen, question.wentAt, own).reasonToStay(*std::move(opened));
        if (stays) return refused(*stays);
    }
    return Item(*known, *std::move(held), *seen, question);
}

std::expected<TrashedItemRemover::PrivateReference, ChangeError>
TrashedItemRemover::privateFolder(const platform::TrashedItem& place) {
    const auto base = platform::fileMetadata(place.base.fd());
    if (!base) return std::unexpected(ChangeError::fromSystem(base.error()));
    if (const auto known = folders_.find(base->identity); known != folders_.end()) {
        return known->second;
    }
    std::string name = platform::PrivateFolder::nameFor(options_.intentID);
    auto own = place.base.open(".");
    if (!own) return std::unexpected(ChangeError::fromSystem(own.error()));
    const auto make = [&] {
        return platform::PrivateFolder::make(options_.changes, place.base, name);
    };
    auto made = make();
    if (!made && made.error().kind == ChangeFailure::full && options_.giveSpaceBack()) {
        made = make();
    }
    if (!made) return std::unexpected(made.error());
    using enum platform::FolderFlushes::Side;
    for (const FolderDescriptor* folder : {&place.base, &made->folder()}) {
        if (const auto noted = options_.flushes.note(*folder, entered); !noted) {
            static_cast<void>(options_.changes.removeFolder({.folder = place.base, .name = name}));
            return std::unexpected(ChangeError::fromSystem(noted.error()));
        }
    }
    std::string path = path::joined(place.basePath, name);
    auto reference = std::make_shared<Private>(options_.changes, *std::move(own), std::move(name),
                                               *std::move(made), std::move(path));
    folders_.emplace(base->identity, reference);
    return reference;
}

bool TrashedItemRemover::isUnchanged(const Item& item, const FileMetadata& now) const {
    const auto at = platform::fileMetadata(item.folder_->folder(), item.name_.c_str());
    return at && at->identity == item.seen_.identity && now.identity == item.seen_.identity &&
           comparison_.isItem(now, item.fingerprint_);
}

void TrashedItemRemover::noteOwnChange(const FileMetadata& after) {
    const bool hasSeveralNames = after.kind == ItemKind::regularFile && after.linkCount > 0;
    if (hasSeveralNames && after.changed) ownChanges_[after.identity] = *after.changed;
}

std::expected<void, TrashRemovalError> TrashedItemRemover::setAside(Item& item) {
    const auto folder = privateFolder(*item.place_);
    if (!folder) return std::unexpected(removalFailed(folder.error()));
    using enum platform::FolderFlushes::Side;
    if (const auto noted = options_.flushes.note(item.place_->folder, left); !noted) {
        return std::unexpected(removalFailed(noted.error()));
    }
    if (const auto noted = options_.flushes.note((*folder)->folder(), entered); !noted) {
        return std::unexpected(removalFailed(noted.error()));
    }
    if (item.held_.takeLease() == platform::FileUse::inUse) {
        return std::unexpected(Error{.kind = Kind::inUse});
    }
    const EntryName from{.folder = item.place_->folder, .name = item.name_};
    const EntryName to{.folder = (*folder)->folder(), .name = item.name_};
    auto moved = platform::moveNeverReplacing(options_.changes, from, to);
    if (!moved && moved.error().kind == ChangeFailure::full && options_.giveSpaceBack()) {
        moved = platform::moveNeverReplacing(options_.changes, from, to);
    }
    if (!moved) {
        item.held_.releaseLease();
        return std::unexpected(removalFailed(moved.error()));
    }
    item.folder_ = *folder;
    const bool isTouched = item.held_.isLeaseBroken();
    const auto after = item.held_.metadata();
    item.held_.releaseLease();
    if (!after || isTouched || !isUnchanged(item, *after)) {
        return std::unexpected(putBack(std::move(item), {.kind = Kind::anotherItem}));
    }
    item.changed_ = after->changed;
    noteOwnChange(*after);
    return {};
}

TrashedItemRemover::Removed TrashedItemRemover::remove(Item item) {
    const auto stays = [&](Error because) {
        return Removed{.error = putBack(std::move(item), std::move(because))};
    };
    const FolderDescriptor& folder = item.folder_->folder();
    const EntryName at{.folder = folder, .name = item.name_};
    const auto before = item.held_.metadata();
    if (!before || !isUnchanged(item, *before)) return stays({.kind = Kind::anotherItem});
    // Before the removal, so that the cleanup never ends while a crash could still undo it.
    using enum platform::FolderFlushes::Side;
    for (const FolderDescriptor* from : {&folder, &item.place_->notes}) {
        if (!from->isOpen()) continue;
        if (const auto noted = options_.flushes.note(*from, left); !noted) {
            return stays(removalFailed(noted.error()));
        }
    }
    Removed removed;
    if (item.seen_.kind == ItemKind::folder) {
        auto opened = folder.open(at.name.c_str());
        auto again = folder.open(at.name.c_str());
        const auto seen =
            opened ? platform::fileMetadata(opened->fd()) : std::unexpected(opened.error());
        if (!seen || !again || seen->identity != before->identity) {
            return stays({.kind = Kind::anotherItem});
        }
        Tree tree(*before, item.wentAt_, ownChanges_);
        if (const auto reason = tree.reasonToStay(*std::move(opened))) {
            return stays({.kind = *reason});
        }
        const bool isEmpty =
            tree.empty(*std::move(again), {.changes = options_.changes, .aside = folder});
        removed.freedBytes = tree.freedBytes();
        if (!isEmpty || !options_.changes.removeFolder(at)) {
            removed.error = putBack(std::move(item), {.kind = Kind::partlyRemoved});
            return removed;
        }
    } else {
        const auto own = ownChanges_.find(before->identity);
        const bool isOwnChange = own != ownChanges_.end() && before->changed == own->second;
        if (before->changed != item.changed_ && !isOwnChange) {
            return stays({.kind = Kind::anotherItem});
        }
        const std::uint64_t freed =
            before->linkCount == 1 ? platform::ownByteCount(folder, at.name.c_str(), *before) : 0;
        if (const auto gone = options_.changes.removeFile(at); !gone) {
            return stays(removalFailed(gone.error()));
        }
        const auto after = item.held_.metadata();
        if (after && after->linkCount == 0) removed.freedBytes = freed;
        if (after && after->linkCount > 0) noteOwnChange(*after);
    }
    // A note that stays speaks of nothing any more, and every desktop passes over it.
    static_cast<void>(item.place_->forget(options_.changes, item.name_));
    return removed;
}

TrashRemovalError TrashedItemRemover::putBack(Item item, Error because) const {
    const EntryName from{.folder = item.folder_->folder(), .name = item.name_};
    const EntryName to{.folder = item.place_->folder, .name = item.name_};
    if (platform::moveNeverReplacing(options_.changes, from, to)) return because;
    if (platform::fileMetadata(from.folder, from.name.c_str())) {
        because.displaced = FileURL::file(path::joined(item.folder_->path, from.name));
    }
    return because;
}

void TrashedItemRemover::removePrivateFolders() {
    for (const auto& [identity, folder] : folders_) {
        static_cast<void>(options_.flushes.note(folder->base, platform::FolderFlushes::Side::left));
    }
    folders_.clear();
}

} // namespace tidyro

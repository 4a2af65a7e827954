#include "StorageEngine/Trash/KeptCopies.h"

#include <cerrno>

#include "Base/PathText.h"
#include "Base/UnicodeText.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderChanges.h"
#include "Platform/Folders/WellKnownFolders.h"

namespace tidyro {

namespace {

std::unexpected<KeptCopyFailure> notKept(SystemError error) {
    return std::unexpected(platform::hasVanished(error) ? KeptCopyFailure::gone
                                                        : KeptCopyFailure::unreachable);
}

/// Whether a path runs through a folder by the name of a Trash, wherever that lies: the top of a
/// volume, another person's home, a disk that was copied.
bool isInTrashByName(std::string_view path) {
    const std::string whole = folded(path);
    bool isTrash = false; // the component before
    for (const std::string_view name : path::components(whole)) {
        if (name == ".trash" || name == ".trashes" || name.starts_with(".trash-") ||
            (isTrash && name == "files") || platform::PrivateFolder::isName(name)) {
            return true;
        }
        isTrash = name == "trash";
    }
    return false;
}

} // namespace

std::string_view description(KeptCopyFailure failure) {
    switch (failure) {
    case KeptCopyFailure::gone:
        return "The copy that was to be kept is no longer there, so this one stays.";
    case KeptCopyFailure::unreachable:
        return "The copy that was to be kept could not be looked at, so this one stays.";
    case KeptCopyFailure::notAFile:
        return "The copy that was to be kept is not an ordinary file on this disk, so this one "
               "stays.";
    case KeptCopyFailure::changed:
        return "The copy that was to be kept has changed since it was compared, so this one stays.";
    case KeptCopyFailure::sameFile:
        return "The copy that was to be kept is this very file under another name, so it stays.";
    case KeptCopyFailure::inTrash:
        return "The copy that was to be kept lies in the Trash, so this one stays.";
    case KeptCopyFailure::goesToo: break;
    }
    return "The copy that was to be kept is to go in the same cleanup, so this one stays.";
}

KeptCopies::KeptCopies(const Options& options) : comparison_(options.volumes, options.volume) {
    for (const Leaving& item : options.leaving) {
        leavingPaths_.insert(item.url.path());
        if (item.identity) leaving_.insert(*item.identity);
    }
    const FileURL items = platform::trashPlaces().home;
    trash_ = items.lastComponent() == "files" ? items.parent().path() : items.path();
    trash_ = platform::realPath(trash_).value_or(trash_);
}

bool KeptCopies::isInTrash(std::string_view path) const {
    return path::isInsideOrEqual(path, trash_) || isInTrashByName(path);
}

bool KeptCopies::isLeaving(std::string_view path) const {
    for (std::string_view above = path; above != "/"; above = path::parent(above)) {
        if (leavingPaths_.contains(above)) return true;
        // By its identity too: the folder may have been reached by another way when it was planned,
        // or written in letters of another case.
        const auto seen = platform::fileMetadata(std::string(above));
        if (!seen || leaving_.contains(seen->identity)) return true;
    }
    return false;
}

std::expected<void, KeptCopyFailure> KeptCopies::check(const KeptCopy& kept,
                                                       const platform::ItemIdentity& extra) const {
    using enum KeptCopyFailure;
    const auto above = platform::realPath(std::string(path::parent(kept.url.path())));
    if (!above) return notKept(above.error());
    const auto folder = platform::FoldersBeneath::openRoot(*above);
    if (!folder) return notKept(folder.error());
    const std::string name(kept.url.lastComponent());
    const auto seen = platform::fileMetadata(folder->root(), name.c_str());
    if (!seen) return notKept(seen.error());
    if (seen->kind != platform::ItemKind::regularFile || seen->isDataless) {
        return std::unexpected(notAFile);
    }
    if (seen->identity == extra) return std::unexpected(sameFile);
    const std::string path = path::joined(*above, name);
    if (isInTrash(path) || isInTrash(kept.url.path())) return std::unexpected(inTrash);
    if (!kept.fingerprint.volumeIdentifier || !comparison_.isItem(*seen, kept.fingerprint) ||
        (kept.statusChange && seen->changed != kept.statusChange)) {
        return std::unexpected(changed);
    }
    if (isLeaving(path)) return std::unexpected(goesToo);
    return {};
}

} // namespace tidyro

#include "StorageEngine/Cleanup/Execution/MutationIdentityGuard.h"

#include <cerrno>
#include <string_view>
#include <utility>

#include "Base/PathText.h"
#include "StorageEngine/Places/FolderResolver.h"

namespace tidyro {

namespace {

using Kind = CleanupMutationError::Kind;
using platform::FileMetadata;
using platform::ItemKind;

std::unexpected<CleanupMutationError> refusedAs(Kind kind) {
    return std::unexpected(CleanupMutationError{.kind = kind});
}

/// A folder on the way is gone, or it is a link or another volume by now.
Kind kindOfOpening(SystemError error) {
    return error.code == ENOENT ? Kind::sourceMissing : Kind::outsideAuthorizedRoot;
}

} // namespace

bool VerifiedItem::isItem(const FileMetadata& there) const {
    return there.identity == seen.identity && there.kind == seen.kind &&
           there.byteCount == seen.byteCount && there.modified == seen.modified &&
           there.created == seen.created;
}

bool VerifiedItem::isAt(const platform::FolderDescriptor& folder, const std::string& at) const {
    const auto there = platform::fileMetadata(folder, at.c_str());
    return there && isItem(*there);
}

bool VerifiedItem::isUntouched() const {
    const auto there = platform::fileMetadata(parent, name.c_str());
    return there && isItem(*there) && there->changed == seen.changed;
}

MutationIdentityGuard::MutationIdentityGuard(const platform::Volumes& volumes)
    : comparison_(volumes, FingerprintComparison::Volume::byNumber) {}

const std::optional<std::string>& MutationIdentityGuard::realPathOf(std::string_view folder) {
    const auto known = realPaths_.find(folder);
    if (known != realPaths_.end()) return known->second;
    std::string path(folder);
    auto real = FolderResolver::resolved(path);
    return realPaths_.emplace(std::move(path), std::move(real)).first->second;
}

const MutationIdentityGuard::Root& MutationIdentityGuard::rootAt(const std::string& realPath) {
    const auto known = roots_.find(realPath);
    if (known != roots_.end() && known->second) return known->second;
    // Each picked item has a root of its own, and each root is held open.
    constexpr std::size_t maxRoots = 16;
    if (roots_.size() >= maxRoots) roots_.clear();
    return roots_.insert_or_assign(realPath, platform::FoldersBeneath::openRoot(realPath))
        .first->second;
}

std::expected<VerifiedItem, CleanupMutationError>
MutationIdentityGuard::look(const Question& question) {
    const std::string& path = question.source.path();
    const std::string& root = question.authorizedRoot.path();
    if (!path::isInsideOrEqual(path, root)) return refusedAs(Kind::outsideAuthorizedRoot);
    const std::string_view folder = path::parent(path);
    // An item that is its own root is reached from the folder that it lies in.
    const std::string_view from = path == root ? folder : std::string_view(root);
    const std::optional<std::string>& real = realPathOf(from);
    if (!real) return refusedAs(Kind::outsideAuthorizedRoot);
    const Root& beneath = rootAt(*real);
    if (!beneath) return refusedAs(kindOfOpening(beneath.error()));
    const std::string below(path::below(folder, from));
    auto parent = beneath->openFromTop(below);
    if (!parent) return refusedAs(kindOfOpening(parent.error()));

    std::string name(path::lastComponent(path));
    auto held = platform::HeldItem::open(*parent, name.c_str());
    if (!held) {
        const bool isGone = platform::hasVanished(held.error());
        return refusedAs(isGone ? Kind::sourceMissing : Kind::identityChanged);
    }
    const auto seen = held->metadata();
    if (!seen) return refusedAs(Kind::identityChanged);
    const bool isFolder = seen->kind == ItemKind::folder;
    if (seen->kind != ItemKind::regularFile &&
        !(isFolder && question.accepts == Accepts::foldersToo)) {
        return refusedAs(Kind::notARegularFile);
    }
    if (!isPlanned(question, *seen)) return refusedAs(Kind::identityChanged);
    std::string realPath = path::joined(path::joined(*real, below), name);
    const auto areLeasesProven = leases_.isProven(*parent, *seen);
    return VerifiedItem{.parent = *std::move(parent),
                        .name = std::move(name),
                        .realPath = std::move(realPath),
                        .held = *std::move(held),
                        .seen = *seen,
                        .areLeasesProven = areLeasesProven};
}

std::expected<void, CleanupMutationError>
MutationIdentityGuard::verify(const FileURL& source, const FileFingerprint& fingerprint,
                              const FileURL& authorizedRoot, Timestamp plannedAt) {
    const auto item = look({.source = source,
                            .fingerprint = fingerprint,
                            .authorizedRoot = authorizedRoot,
                            .plannedAt = plannedAt});
    if (!item) return std::unexpected(item.error());
    return {};
}

bool MutationIdentityGuard::isPlanned(const Question& question, const FileMetadata& seen) const {
    return seen.byteCount == question.fingerprint.byteCount &&
           comparison_.isItem(seen, question.fingerprint) && isStatusAsPlanned(question, seen);
}

bool MutationIdentityGuard::isStatusAsPlanned(const Question& question,
                                              const FileMetadata& seen) const {
    if (question.sheet != nullptr && question.sheet->creationDate != seen.created) return false;
    const auto own = ownChanges_.find(seen.identity);
    if (own != ownChanges_.end() && seen.changed == own->second) return true;
    if (question.sheet != nullptr && question.sheet->statusChange) {
        return seen.changed == question.sheet->statusChange;
    }
    return !seen.changed || *seen.changed <= question.plannedAt;
}

void MutationIdentityGuard::noteOwnChange(const FileMetadata& after) {
    if (after.linkCount > 0 && after.changed) {
        ownChanges_.insert_or_assign(after.identity, *after.changed);
    }
}

} // namespace tidyro

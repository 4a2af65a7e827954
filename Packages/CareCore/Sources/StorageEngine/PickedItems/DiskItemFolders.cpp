#include "StorageEngine/PickedItems/DiskItemFolders.h"

#include <utility>

#include "Base/PathText.h"

namespace tidyro {

namespace {

/// A search of very many folders must not remember them all.
constexpr std::size_t maxRemembered = 100'000;

} // namespace

DiskItemRefusal refusalFor(KeptFolders::Reason reason) {
    using enum DiskItemRefusal;
    switch (reason) {
    case KeptFolders::Reason::home: return homeElsewhere;
    case KeptFolders::Reason::protectedPlace: return protectedPlace;
    case KeptFolders::Reason::cloudFolder: return inCloudFolder;
    case KeptFolders::Reason::systemPlace: return systemPlace;
    case KeptFolders::Reason::openedFolder: return openedFolder;
    case KeptFolders::Reason::standardFolder: return standardFolder;
    case KeptFolders::Reason::sharedFolder: return sharedFolder;
    case KeptFolders::Reason::unreadable: break;
    }
    return unreadable;
}

DiskItemRefusal refusalForHolderOf(KeptFolders::Reason reason) {
    switch (reason) {
    case KeptFolders::Reason::home: return DiskItemRefusal::homeFolder;
    case KeptFolders::Reason::protectedPlace: return DiskItemRefusal::holdsProtectedPlace;
    case KeptFolders::Reason::cloudFolder: return DiskItemRefusal::holdsCloudFolder;
    default: return refusalFor(reason);
    }
}

DiskItemFolders::DiskItemFolders(KeptFolders kept)
    : kept_(std::move(kept)), isSuperuser_(platform::currentUserID() == 0) {
    if (auto top = platform::FolderDescriptor::openRoot("/")) top_ = *std::move(top);
}

std::expected<platform::FolderDescriptor, SystemError>
DiskItemFolders::openReal(std::string_view path) const {
    const std::string_view below = path::below(path, "/");
    return top_.openBelow(below.empty() ? "." : std::string(below));
}

DiskItemFolders::Folder DiskItemFolders::look(std::string_view path) {
    Folder folder{};
    auto real = platform::realPath(std::string(path));
    if (!real) {
        folder.refusal = refusalFor(real.error());
        return folder;
    }
    folder.real = *std::move(real);
    const auto opened = openReal(folder.real);
    if (!opened) {
        folder.refusal = refusalFor(opened.error());
        return folder;
    }
    const auto seen = platform::fileMetadata(*opened, ".");
    if (!seen) {
        folder.refusal = refusalFor(seen.error());
        return folder;
    }
    folder.seen = *seen;
    folder.isWritable = platform::isWritableFolder(folder.real) && !isClosed(*seen);
    if (const auto reason = kept_.reasonInside(folder.real)) folder.kept = refusalFor(*reason);
    return folder;
}

const DiskItemFolders::Folder& DiskItemFolders::at(std::string_view path) {
    if (const auto known = folders_.find(path); known != folders_.end()) return known->second;
    if (folders_.size() >= maxRemembered) folders_.clear();
    return folders_.emplace(path, look(path)).first->second;
}

std::expected<platform::FolderDescriptor, DiskItemRefusal>
DiskItemFolders::open(const Folder& folder) const {
    auto opened = openReal(folder.real);
    if (!opened) return std::unexpected(refusalFor(opened.error()));
    const auto facts = opened->facts();
    if (!facts || facts->identity != folder.seen.identity) {
        return std::unexpected(DiskItemRefusal::vanished);
    }
    return *std::move(opened);
}

} // namespace tidyro

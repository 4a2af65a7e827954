#include "StorageEngine/PickedItems/DiskItemPlaces.h"

#include <algorithm>
#include <set>

#include "Base/PathText.h"
#include "Base/UnicodeText.h"
#include "Platform/Folders/FolderChanges.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "StorageEngine/DiskTree/ContentKind.h"
#include "StorageEngine/Observation/FolderSigns.h"
#include "StorageEngine/Places/FolderResolver.h"
#include "StorageEngine/Places/HomeFolders.h"

namespace tidyro {

namespace {

/// Whether a folder has the name of a Trash: ".Trash", ".Trashes", ".Trash-1000". These lie in the
/// home on macOS and at the top of a volume. A folder further down by such a name was one once, for
/// nothing else is called so.
bool isTrashName(std::string_view name) {
    constexpr std::string_view trash = ".trash";
    if (name.size() < trash.size() || name[0] != '.' || (name[1] != 't' && name[1] != 'T')) {
        return false; // most names, without folding them
    }
    const std::string whole = folded(name);
    if (whole == trash || whole == ".trashes") return true;
    return whole.starts_with(".trash-") && whole.find_first_not_of("0123456789", 7) == whole.npos;
}

std::string resolvedOrAsWritten(const std::string& path) {
    return FolderResolver::resolved(path).value_or(path);
}

} // namespace

DiskItemPlaces::DiskItemPlaces(const Options& options)
    : home_(options.home.path()), realHome_(resolvedOrAsWritten(home_)) {
    add(homes_, home_);
    chosen_ = {home_, realHome_};
    realChosen_ = {realHome_};
    for (const FileURL& folder : options.openedFolders) {
        add(opened_, folder.path());
        realChosen_.push_back(resolvedOrAsWritten(folder.path()));
        chosen_.insert(chosen_.end(), {folder.path(), realChosen_.back()});
    }
    addHomeFolders(options);
    addTrash();
    addProtected(options);
    system_ = SystemPlaces(homes_);
    keptPlaces_.emplace_back(options.home);
    if (realHome_ != home_) keptPlaces_.emplace_back(FileURL::folder(realHome_));
}

/// Adds a folder, and the place where it really lies.
void DiskItemPlaces::add(Folders& folders, std::string_view path) const {
    const std::string written(path);
    folders.push_back(folded(written));
    std::string real = folded(resolvedOrAsWritten(written));
    if (real != folders.back()) folders.push_back(std::move(real));
}

void DiskItemPlaces::addHomeFolders(const Options& options) {
    for (const std::string_view folder : HomeFolders::standardHomeFolders()) {
        add(standard_, path::joined(home_, folder));
    }
    for (const auto* folders : {&options.desktop.personal, &options.desktop.downloads}) {
        for (const FileURL& folder : *folders) add(standard_, folder.path());
    }
    for (const std::string_view folder : HomeFolders::neverChosenHomeRoots()) {
        add(shared_, path::joined(home_, folder));
    }
    for (const FileURL& folder : options.cloudFolders) {
        add(clouds_, folder.path());
    }
    inClouds_ = RootPathIndex(clouds_);
}

void DiskItemPlaces::addTrash() {
    add(trash_, path::joined(home_, ".local/share/Trash"));
    const FileURL items = platform::trashPlaces().home;
    // Beside the items lie the notes of where they came from.
    add(trash_, items.lastComponent() == "files" ? items.parent().path() : items.path());
    inTrash_ = RootPathIndex(trash_);
}

void DiskItemPlaces::addProtected(const Options& options) {
    std::set<std::string> choosable;
    for (const FileURL& root : options.context.choosableRoots()) {
        choosable.insert(folded(root.path()));
    }
    for (const FileURL& root : options.context.facts().additionalProtectedRoots) {
        std::string one = folded(root.path());
        if (choosable.contains(one)) continue;
        protected_.push_back(std::move(one));
        untouched_.push_back(root.path());
    }
    inProtected_ = RootPathIndex(protected_);

    for (const FileURL& root : options.context.facts().activeApplicationRoots) {
        active_.push_back(folded(root.path()));
    }
    inActive_ = RootPathIndex(active_);
}

bool DiskItemPlaces::isInHome(std::string_view path) const {
    return path::isInsideOrEqual(path, home_) || path::isInsideOrEqual(path, realHome_);
}

std::optional<DiskItemRefusal> DiskItemPlaces::byFolders(const std::string& folded) const {
    using enum DiskItemRefusal;
    if (inTrash_.contains(folded)) return inTrash;
    if (path::isOrHoldsAny(folded, standard_)) return standardFolder;
    if (path::isOrHoldsAny(folded, shared_)) return sharedFolder;
    if (inClouds_.contains(folded)) return inCloudFolder;
    for (const std::string& home : homes_) {
        if (path::isInsideOrEqual(folded, home) &&
            HomeFolders::isInCloudFolder(path::below(folded, home))) {
            return inCloudFolder;
        }
    }
    if (path::isOrHoldsAny(folded, clouds_)) return holdsCloudFolder;
    if (system_.isTouchedBy(folded)) return systemPlace;
    if (inProtected_.contains(folded)) return protectedPlace;
    if (path::isOrHoldsAny(folded, protected_)) return holdsProtectedPlace;
    return std::nullopt;
}

std::optional<DiskItemRefusal> DiskItemPlaces::byNames(std::string_view path) const {
    std::string_view rest = names(path);
    bool isInRepository = false;
    while (!rest.empty()) {
        const std::size_t end = rest.find('/');
        const std::string_view name = rest.substr(0, end);
        const bool isItem = end == std::string_view::npos;
        if (!isItem && isPackageFolder(name)) return DiskItemRefusal::insidePackage;
        isInRepository = isInRepository || isHistoryName(lowercased(name));
        rest.remove_prefix(isItem ? rest.size() : end + 1);
    }
    if (isInRepository) return DiskItemRefusal::repositoryData;
    return std::nullopt;
}

bool DiskItemPlaces::isInTrashOfVolume(std::string_view path) const {
    std::string_view rest = names(path);
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('/'), rest.size());
        if (isTrashName(rest.substr(0, end))) return true;
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return false;
}

std::optional<DiskItemRefusal>
DiskItemPlaces::refusalIn(std::string_view path, std::span<const std::string> chosen) const {
    using enum DiskItemRefusal;
    const std::string folded = tidyro::folded(path);
    if (path::isOrHoldsAny(folded, homes_)) return homeFolder;
    if (path::isOrHoldsAny(folded, opened_)) return openedFolder;
    if (std::ranges::none_of(chosen, [&](const std::string& folder) {
            return path::isInsideOrEqual(path, folder);
        })) {
        return outsideChosenFolders;
    }
    if (isInTrashOfVolume(path)) return inTrash;
    if (platform::PrivateFolder::isInOne(folded)) return protectedPlace;
    if (const auto refusal = byFolders(folded)) return refusal;
    if (const auto refusal = byNames(path)) return refusal;
    const std::string lowered = lowercased(path);
    for (const KeptPlaces& places : keptPlaces_) {
        const KeptPlaces::Touch touch = places.touch(lowered);
        if (touch == KeptPlaces::Touch::isIn) return protectedPlace;
        if (touch == KeptPlaces::Touch::holds) return holdsProtectedPlace;
    }
    if (inActive_.contains(folded) || path::isOrHoldsAny(folded, active_)) return activeApplication;
    return std::nullopt;
}

bool DiskItemPlaces::isAmongCaches(std::string_view path) const {
    const std::string lowered = lowercased(path);
    return std::ranges::any_of(
        keptPlaces_, [&](const KeptPlaces& places) { return places.isAmongCaches(lowered); });
}

bool DiskItemPlaces::isPeoples(std::string_view path) const {
    const std::string lowered = lowercased(path);
    return std::ranges::any_of(keptPlaces_, [&](const KeptPlaces& places) {
        return places.touch(lowered) == KeptPlaces::Touch::isIn;
    });
}

std::optional<std::size_t> DiskItemPlaces::storeDepth(std::string_view path) const {
    const std::string lowered = lowercased(path);
    for (const KeptPlaces& places : keptPlaces_) {
        if (const auto found = places.find(lowered)) return found->storeDepth;
    }
    return std::nullopt;
}

std::optional<DiskItemRefusal> DiskItemPlaces::refusal(std::string_view written) const {
    return refusalIn(written, chosen_);
}

std::optional<DiskItemRefusal> DiskItemPlaces::refusalOfReal(std::string_view real) const {
    return refusalIn(real, realChosen_);
}

std::string_view DiskItemPlaces::names(std::string_view path) const {
    for (const std::string* home : {&home_, &realHome_}) {
        if (path::isInsideOrEqual(path, *home)) return path::below(path, *home);
    }
    return path;
}

/// The most important reasons come first.
KeptFolders DiskItemPlaces::keptFolders(const Options& options) const {
    using enum KeptFolders::Reason;
    using enum KeptFolders::Reach;
    KeptFolders kept;
    kept.add(home_, home, everythingInIt);
    for (const std::string& path : untouched_) kept.add(path, protectedPlace, everythingInIt);
    for (const FileURL& folder : options.cloudFolders) {
        kept.add(folder.path(), cloudFolder, everythingInIt);
    }
    // What is mounted in such a folder lies elsewhere as well, and is kept there, too. Only disks
    // of the machine are asked: a server may be gone.
    for (const platform::Volume& volume : options.volumes) {
        if (!volume.isInternalLocal) continue;
        const std::string path = folded(volume.mountPath);
        if (inProtected_.contains(path)) {
            kept.add(volume.mountPath, protectedPlace, everythingInIt);
        } else if (inClouds_.contains(path)) {
            kept.add(volume.mountPath, cloudFolder, everythingInIt);
        }
    }
    for (const std::string& path : SystemPlaces::paths()) {
        kept.add(path, systemPlace, everythingInIt);
    }
    for (const FileURL& folder : options.openedFolders) {
        kept.add(folder.path(), openedFolder, itself);
    }
    for (const auto* folders : {&options.desktop.personal, &options.desktop.downloads}) {
        for (const FileURL& folder : *folders) kept.add(folder.path(), standardFolder, itself);
    }
    for (const std::string_view folder : HomeFolders::standardHomeFolders()) {
        kept.add(path::joined(home_, folder), standardFolder, itself);
    }
    for (const std::string_view folder : HomeFolders::neverChosenHomeRoots()) {
        kept.add(path::joined(home_, folder), sharedFolder, itself);
    }
    return kept;
}

const std::string* DiskItemPlaces::openedFolderOutsideHome(std::string_view real) const {
    if (isInHome(real)) return nullptr;
    const std::string* innermost = nullptr;
    for (const std::string& folder : realChosen_) {
        const bool holdsHome = path::isInsideOrEqual(realHome_, folder);
        if (!holdsHome && path::isInsideOrEqual(real, folder) &&
            (innermost == nullptr || folder.size() > innermost->size())) {
            innermost = &folder;
        }
    }
    return innermost;
}

} // namespace tidyro

#include "StorageEngine/DiskItemPlaces.h"

#include <algorithm>
#include <array>

#include "Base/PathText.h"
#include "Base/UnicodeText.h"
#include "StorageEngine/DeterministicSafetyPolicy.h"
#include "StorageEngine/DiskTree/ContentKind.h"
#include "StorageEngine/DiskTree/HomeFolders.h"
#include "StorageEngine/FolderResolver.h"

namespace tidyro {

namespace {

/// Further places of the operating system. Places in which people have folders of their own are
/// not among them (/opt, /srv, /tmp, /run/media), though much in them is somebody else's.
constexpr std::array<std::string_view, 27> operatingSystemPlaces{"/bin",
                                                                 "/boot",
                                                                 "/cores",
                                                                 "/dev",
                                                                 "/efi",
                                                                 "/etc",
                                                                 "/lib",
                                                                 "/lib32",
                                                                 "/lib64",
                                                                 "/libx32",
                                                                 "/nix",
                                                                 "/proc",
                                                                 "/sbin",
                                                                 "/snap",
                                                                 "/sys",
                                                                 "/usr",
                                                                 "/run/lock",
                                                                 "/run/systemd",
                                                                 "/run/user",
                                                                 "/var/cache",
                                                                 "/var/db",
                                                                 "/var/lib",
                                                                 "/var/log",
                                                                 "/var/spool",
                                                                 "/private/etc",
                                                                 "/private/var/db",
                                                                 "/private/var/log"};

/// Whether one of the folders is the path or lies in it.
bool holdsOne(std::string_view path, const std::vector<std::string>& folders) {
    return std::ranges::any_of(
        folders, [&](const std::string& folder) { return path::isInsideOrEqual(folder, path); });
}

std::string realPath(const std::string& path) {
    return FolderResolver::resolved(path).value_or(path);
}

} // namespace

DiskItemPlaces::DiskItemPlaces(const Options& options)
    : home_(options.home.path()), realHome_(realPath(home_)) {
    add(homes_, home_);
    chosen_ = {home_, realHome_};
    realChosen_ = {realHome_};
    for (const FileURL& folder : options.openedFolders) {
        add(opened_, folder.path());
        realChosen_.push_back(realPath(folder.path()));
        chosen_.insert(chosen_.end(), {folder.path(), realChosen_.back()});
    }
    addHomeFolders(options);
    addProtected(options);
}

/// Adds a folder, and the place where it really lies.
void DiskItemPlaces::add(Folders& folders, std::string_view path) const {
    const std::string written(path);
    folders.push_back(folded(written));
    std::string real = folded(realPath(written));
    if (real != folders.back()) folders.push_back(std::move(real));
}

void DiskItemPlaces::addHomeFolders(const Options& options) {
    for (const std::string_view folder : HomeFolders::standardHomeFolders()) {
        add(standard_, path::joined(home_, folder));
    }
    for (const FileURL& folder : options.desktopFolders) add(standard_, folder.path());
    for (const std::string_view folder : HomeFolders::neverChosenHomeRoots()) {
        add(shared_, path::joined(home_, folder));
    }
    for (const std::string_view folder : HomeFolders::cloudFolders()) {
        add(clouds_, path::joined(home_, folder));
    }
    inClouds_ = RootPathIndex(clouds_);
}

void DiskItemPlaces::addProtected(const Options& options) {
    const auto addSystem = [&](std::span<const std::string_view> places) {
        for (const std::string_view place : places) {
            // Some accounts have their home in such a place ("/var/lib/builder").
            if (!path::isInsideOrEqual(home_, place) && !path::isInsideOrEqual(realHome_, place)) {
                system_.push_back(folded(place));
            }
        }
    };
    addSystem(DeterministicSafetyPolicy::systemProtectedPlaces());
    addSystem(operatingSystemPlaces);
    inSystem_ = RootPathIndex(system_);

    Folders chosen;
    for (const FileURL& folder : options.desktopFolders) add(chosen, folder.path());
    for (const platform::Volume& volume : options.volumes) add(chosen, volume.mountPath);
    for (const FileURL& root : options.context.facts().additionalProtectedRoots) {
        std::string one = folded(root.path());
        if (std::ranges::find(chosen, one) == chosen.end()) {
            protected_.push_back(std::move(one));
        }
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
    if (holdsOne(folded, standard_)) return standardFolder;
    if (holdsOne(folded, shared_)) return sharedFolder;
    if (inClouds_.contains(folded)) return inCloudFolder;
    for (const std::string& home : homes_) {
        if (path::isInsideOrEqual(folded, home) &&
            HomeFolders::isInCloudFolder(path::below(folded, home))) {
            return inCloudFolder;
        }
    }
    if (holdsOne(folded, clouds_)) return holdsCloudFolder;
    if (inSystem_.contains(folded) || holdsOne(folded, system_)) return systemPlace;
    if (inProtected_.contains(folded)) return protectedPlace;
    if (holdsOne(folded, protected_)) return holdsProtectedPlace;
    return std::nullopt;
}

std::optional<DiskItemRefusal> DiskItemPlaces::byNames(std::string_view path) const {
    // The names above a home are nobody's doing; those above an opened folder were opened.
    std::string_view rest = isInHome(path) ? below(path) : path;
    bool isInRepository = false;
    while (!rest.empty()) {
        const std::size_t end = rest.find('/');
        const std::string_view name = rest.substr(0, end);
        const bool isItem = end == std::string_view::npos;
        if (!isItem && isPackageFolder(name)) return DiskItemRefusal::insidePackage;
        isInRepository = isInRepository || (name.size() == 4 && folded(name) == ".git");
        rest.remove_prefix(isItem ? rest.size() : end + 1);
    }
    if (isInRepository) return DiskItemRefusal::repositoryData;
    return std::nullopt;
}

std::optional<DiskItemRefusal>
DiskItemPlaces::refusalIn(std::string_view path, std::span<const std::string> chosen) const {
    using enum DiskItemRefusal;
    const std::string folded = tidyro::folded(path);
    if (holdsOne(folded, homes_)) return homeFolder;
    if (holdsOne(folded, opened_)) return openedFolder;
    if (std::ranges::none_of(chosen, [&](const std::string& folder) {
            return path::isInsideOrEqual(path, folder);
        })) {
        return outsideChosenFolders;
    }
    if (const auto refusal = byFolders(folded)) return refusal;
    if (const auto refusal = byNames(path)) return refusal;
    if (inActive_.contains(folded) || holdsOne(folded, active_)) return activeApplication;
    return std::nullopt;
}

std::optional<DiskItemRefusal> DiskItemPlaces::refusal(std::string_view written) const {
    return refusalIn(written, chosen_);
}

std::optional<DiskItemRefusal> DiskItemPlaces::refusalOfReal(std::string_view real) const {
    return refusalIn(real, realChosen_);
}

std::string_view DiskItemPlaces::below(std::string_view path) const {
    for (const std::string* home : {&home_, &realHome_}) {
        if (path::isInsideOrEqual(path, *home)) return path::below(path, *home);
    }
    const std::string* outermost = nullptr;
    for (const std::string& folder : chosen_) {
        if (path::isInsideOrEqual(path, folder) &&
            (outermost == nullptr || folder.size() < outermost->size())) {
            outermost = &folder;
        }
    }
    return outermost == nullptr ? path : path::below(path, *outermost);
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

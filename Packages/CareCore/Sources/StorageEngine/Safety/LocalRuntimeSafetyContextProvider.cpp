#include "StorageEngine/Safety/LocalRuntimeSafetyContextProvider.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <string>
#include <unordered_set>
#include <utility>

#include "Base/Fault.h"
#include "Base/PathText.h"
#include "Base/UnicodeText.h"
#include "Platform/Files/FileMetadata.h"
#include "StorageEngine/Places/BaseFolders.h"
#include "StorageEngine/Places/DesktopFolders.h"
#include "StorageEngine/Places/HomeFolders.h"
#include "StorageEngine/Rules/BuiltInCleanupRules.h"
#include "StorageEngine/Safety/ActiveApplications.h"

namespace tidyro {

namespace {

LocalRuntimeSafetyContextProvider::Machine runningSystem() {
    static const platform::LiveVolumes volumes;
    static const platform::LiveRunningProcesses processes;
    static const platform::LiveRunningApplications applications;
    return {.volumes = volumes, .processes = processes, .applications = applications};
}

/// Turns real paths, by which the system tells of files, into the paths by which scans reach the
/// same files through links in the home.
class WrittenNames {
  public:
    explicit WrittenNames(const FileURL& home) {
        add(home.path());
        for (const CleanupRule& rule : BuiltInCleanupRules::allLocations(home)) {
            add(rule.rootPath());
        }
    }
    /// Adds to `paths` the other names of those in it that have one.
    void addTo(std::vector<std::string>& paths) const {
        if (places_.empty()) return;
        const std::size_t given = paths.size();
        for (std::size_t i = 0; i < given; ++i) {
            for (const Place& place : places_) {
                if (!path::isInsideOrEqual(paths[i], place.real)) continue;
                const std::string_view below = path::below(paths[i], place.real);
                paths.push_back(below.empty() ? place.written : path::joined(place.written, below));
            }
        }
    }

  private:
    struct Place {
        std::string real;
        std::string written;
    };
    void add(const std::string& written) {
        auto real = platform::realPath(written);
        if (real && *real != written) places_.push_back({*std::move(real), written});
    }
    std::vector<Place> places_;
};

SafetyPolicyFacts::PathSet pathSet(std::vector<std::string> paths) {
    std::ranges::sort(paths);
    const auto repeated = std::ranges::unique(paths);
    SafetyPolicyFacts::PathSet set; // from an ordered list each goes to the end at once
    for (auto at = paths.begin(); at != repeated.begin(); ++at) {
        set.emplace_hint(set.end(), std::move(*at));
    }
    return set;
}

/// A volume counts when everything mounted under its identifier is internal.
std::set<std::string, std::less<>> internalVolumes(const std::vector<platform::Volume>& volumes) {
    std::set<std::string, std::less<>> internal;
    for (const platform::Volume& volume : volumes) {
        if (volume.isInternalLocal) internal.insert(volume.identifier);
    }
    for (const platform::Volume& volume : volumes) {
        if (!volume.isInternalLocal) internal.erase(volume.identifier);
    }
    return internal;
}

/// Folders below the home that are mounted there a second time. Such a folder lies elsewhere as
/// well, so its name in the home says nothing of what it is. A volume that is mounted only once
/// really has its place there.
std::vector<FileURL> secondPlaces(const std::vector<platform::Volume>& volumes,
                                  const FileURL& home) {
    const std::string realHome = platform::realPath(home.path()).value_or(home.path());
    std::vector<std::string> paths;
    for (const platform::Volume& volume : volumes) {
        const bool isBelow =
            path::isInsideOrEqual(volume.mountPath, realHome) && volume.mountPath != realHome;
        const auto isSame = [&](const platform::Volume& other) {
            return other.identifier == volume.identifier;
        };
        if (isBelow && std::ranges::count_if(volumes, isSame) > 1) {
            paths.push_back(volume.mountPath);
        }
    }
    WrittenNames(home).addTo(paths);
    std::vector<FileURL> folders;
    folders.reserve(paths.size());
    for (const std::string& path : paths) folders.push_back(FileURL::folder(path));
    return folders;
}

SafetyPolicyFacts::PathSet pathsInUse(platform::ProcessActivity activity, const FileURL& home) {
    // Every process maps the same libraries, so each name is kept once before they are sorted.
    std::unordered_set<std::string> found;
    for (platform::RunningProcess& process : activity.processes) {
        if (!process.executable.empty()) found.insert(std::move(process.executable));
        for (std::string& file : process.files) found.insert(std::move(file));
    }
    std::vector<std::string> paths;
    paths.reserve(found.size());
    while (!found.empty()) paths.push_back(std::move(found.extract(found.begin()).value()));
    WrittenNames(home).addTo(paths);
    return pathSet(std::move(paths));
}

/// The volume of the root. What else is mounted in a namespace of processes came from outside.
std::optional<std::string> volumeOfRoot(const std::vector<platform::Volume>& volumes) {
    std::optional<std::string> last; // mounted over the others
    for (const platform::Volume& volume : volumes) {
        if (volume.mountPath == "/") last = volume.identifier;
    }
    return last;
}

/// The folders, and the real ones of those that are reached through links.
std::vector<FileURL> withRealPlaces(std::vector<FileURL> folders) {
    const std::size_t given = folders.size();
    for (std::size_t i = 0; i < given; ++i) {
        const auto real = platform::realPath(folders[i].path());
        if (real && *real != folders[i].path()) folders.push_back(FileURL::folder(*real));
    }
    return folders;
}

/// Leaves only those folders that do not lie in a kept one. A desktop's settings may name any
/// folder as that of its templates, and a vault may be mounted where passwords are kept.
std::vector<FileURL> withoutKept(const std::vector<FileURL>& kept, std::vector<FileURL> folders) {
    std::vector<std::string> paths;
    paths.reserve(kept.size());
    for (const FileURL& folder : kept) paths.push_back(folded(folder.path()));
    const RootPathIndex index(paths);
    std::erase_if(folders,
                  [&](const FileURL& folder) { return index.contains(folded(folder.path())); });
    return folders;
}

} // namespace

std::string_view whatIsUnknown(MissingPiece piece) {
    switch (piece) {
    case MissingPiece::volumes: return "which disks are mounted";
    case MissingPiece::applications: return "which applications are running";
    case MissingPiece::desktopFolders:
        return "which folders your desktop keeps your files in, since its list (user-dirs.dirs) "
               "cannot be read";
    case MissingPiece::processes: return "which files are in use";
    }
    fault("a piece that does not exist");
}

LocalRuntimeSafetyContextProvider::LocalRuntimeSafetyContextProvider(FileURL home)
    : LocalRuntimeSafetyContextProvider(std::move(home), Options{}) {}

LocalRuntimeSafetyContextProvider::LocalRuntimeSafetyContextProvider(FileURL home, Options options)
    : LocalRuntimeSafetyContextProvider(std::move(home), runningSystem(), std::move(options)) {}

LocalRuntimeSafetyContextProvider::LocalRuntimeSafetyContextProvider(FileURL home, Machine machine,
                                                                     Options options)
    : home_(std::move(home)), machine_(std::move(machine)), options_(std::move(options)) {}

std::expected<SafetyPolicyContext, MissingPiece> LocalRuntimeSafetyContextProvider::look() const {
    const auto volumes = machine_.volumes.mounted();
    if (!volumes) return std::unexpected(MissingPiece::volumes);
    const auto applications = machine_.applications.running();
    if (!applications) return std::unexpected(MissingPiece::applications);
    const auto desktop = DesktopFolders::read(home_);
    if (!desktop) return std::unexpected(MissingPiece::desktopFolders);
    // Asked last, so that nothing is fresher than the list of files in use.
    auto activity = machine_.processes.activity();
    if (!activity) return std::unexpected(MissingPiece::processes);

    // Where a folder of an application's lies, and where the environment says it lies.
    const auto placesOf = [&, bases = BaseFolders::find(home_)](const std::string& folder) {
        std::vector<FileURL> places{home_.appendingFolder(folder)};
        const std::string moved = bases.moved(folder);
        if (moved != folder) places.push_back(home_.appendingFolder(moved));
        return places;
    };
    std::vector<FileURL> activeRoots;
    SafetyPolicyContext::Programs programs;
    for (const auto& [folder, program] : ActiveApplications::owners(*applications)) {
        for (FileURL& root : withRealPlaces(placesOf(folder))) {
            programs[root.path()] = program;
            activeRoots.push_back(std::move(root));
        }
    }
    std::vector<FileURL> kept = HomeFolders::protectedFolders(home_);
    kept.insert(kept.end(), options_.protectedRoots.begin(), options_.protectedRoots.end());
    kept = withRealPlaces(std::move(kept));
    std::vector<FileURL> choosable = desktop->personal;
    const auto second = secondPlaces(*volumes, home_);
    choosable.insert(choosable.end(), second.begin(), second.end());
    choosable = withoutKept(kept, withRealPlaces(std::move(choosable)));
    std::vector<FileURL> roots = std::move(kept);
    roots.insert(roots.end(), choosable.begin(), choosable.end());
    std::optional<HiddenProcesses> hidden;
    if (activity->areOthersHidden) {
        std::vector<FileURL> owned;
        for (const std::string& folder : ActiveApplications::allFolders()) {
            std::ranges::move(placesOf(folder), std::back_inserter(owned));
        }
        hidden = HiddenProcesses{.applicationFolders = withRealPlaces(std::move(owned)),
                                 .ownVolume = volumeOfRoot(*volumes)};
    }
    SafetyPolicyContext context({.currentUserID = platform::currentUserID(),
                                 .internalLocalVolumeIdentifiers = internalVolumes(*volumes),
                                 .activeApplicationRoots = std::move(activeRoots),
                                 .additionalProtectedRoots = std::move(roots),
                                 .activelyGrowingPaths = {},
                                 .openByProcessPaths = pathsInUse(*std::move(activity), home_)},
                                std::move(choosable), hidden);
    context.setPrograms(programs);
    if (options_.toolState) context.setToolState(options_.toolState());
    return context;
}

LocalRuntimeSafetyContextProvider::Context LocalRuntimeSafetyContextProvider::rebuild() {
    const Timestamp begun = machine_.clock();
    last_.reset();
    missing_.reset();
    auto found = look();
    if (!found) {
        missing_ = found.error();
        return nullptr;
    }
    last_ = Taken{.context = std::make_shared<const SafetyPolicyContext>(*std::move(found)),
                  .at = begun};
    return last_->context;
}

LocalRuntimeSafetyContextProvider::Context LocalRuntimeSafetyContextProvider::context() {
    const std::scoped_lock lock(mutex_);
    if (last_) {
        const double age =
            machine_.clock().secondsSinceReference() - last_->at.secondsSinceReference();
        if (age >= 0 && age <= options_.maxAge) return last_->context;
    }
    return rebuild();
}

LocalRuntimeSafetyContextProvider::Context LocalRuntimeSafetyContextProvider::freshContext() {
    const std::scoped_lock lock(mutex_);
    return rebuild();
}

std::optional<LocalRuntimeSafetyContextProvider::Taken>
LocalRuntimeSafetyContextProvider::last() const {
    const std::scoped_lock lock(mutex_);
    return last_;
}

std::optional<MissingPiece> LocalRuntimeSafetyContextProvider::missing() const {
    const std::scoped_lock lock(mutex_);
    return missing_;
}

} // namespace tidyro

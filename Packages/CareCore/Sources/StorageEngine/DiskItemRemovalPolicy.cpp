#include "StorageEngine/DiskItemRemovalPolicy.h"

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "Base/PathText.h"
#include "StorageEngine/DeterministicSafetyPolicy.h"
#include "StorageEngine/DiskItemContents.h"
#include "StorageEngine/LiveDataDetection.h"
#include "StorageEngine/ProtectedFolders.h"
#include "StorageEngine/RemovalConsequence.h"

namespace tidyro {

namespace {

using enum DiskItemRefusal;
using platform::ItemKind;

/// A search of very many folders must not remember them all.
constexpr std::size_t mostRemembered = 100'000;

bool meansGone(int error) { return error == ENOENT || error == ENOTDIR; }

/// Whether a set has the path or, for a folder, anything in it. In the order of the set all that
/// lies in a folder stands together, behind the folder's path and a "/".
bool holds(const std::set<std::string, std::less<>>& paths, const std::string& path,
           bool isFolder) {
    if (paths.contains(path)) return true;
    if (!isFolder) return false;
    const std::string inside = path + "/";
    const auto first = paths.lower_bound(inside);
    return first != paths.end() && first->starts_with(inside);
}

CleanupCategory categoryOf(DiskGroup group) {
    switch (group) {
    case DiskGroup::projectFolders: return CleanupCategory::generatedWork;
    case DiskGroup::appleDeveloper:
    case DiskGroup::packageCaches:
    case DiskGroup::applicationCaches:
    case DiskGroup::sandboxedCaches: return CleanupCategory::regenerableCache;
    case DiskGroup::logs: return CleanupCategory::expiredLog;
    case DiskGroup::oldDownloads:
    case DiskGroup::installers: return CleanupCategory::download;
    case DiskGroup::largeFiles: return CleanupCategory::largeFile;
    case DiskGroup::trash: break;
    }
    return CleanupCategory::unknown;
}

} // namespace

DiskItemRemovalPolicy::DiskItemRemovalPolicy(Options options)
    : context_(std::move(options.context)),
      home_(std::move(options.home)),
      observer_(home_, options.volumes),
      isSuperuser_(platform::currentUserID() == 0) {
    if (context_ == nullptr) return;
    const auto desktop = desktopFolders(home_);
    if (!desktop) return; // what people call their folders is not known
    const auto volumes = options.volumes.mounted().value_or(std::vector<platform::Volume>{});
    places_.emplace(DiskItemPlaces::Options{.home = home_,
                                            .openedFolders = options.openedFolders,
                                            .desktopFolders = *desktop,
                                            .context = *context_,
                                            .volumes = volumes});
}

const DiskItemRemovalPolicy::Folder& DiskItemRemovalPolicy::folderAt(std::string_view path) {
    if (const auto known = folders_.find(path); known != folders_.end()) return known->second;
    Folder& folder = folders_.emplace(path, Folder{}).first->second;
    std::error_code failed;
    folder.real = std::filesystem::canonical(path, failed).string();
    if (failed) {
        folder.refusal = meansGone(failed.value()) ? vanished : unreadable;
        return folder;
    }
    const auto seen = platform::fileMetadata(folder.real);
    if (!seen) {
        folder.refusal = meansGone(seen.error().code) ? vanished : unreadable;
        return folder;
    }
    folder.seen = *seen;
    folder.isWritable = platform::isWritableFolder(folder.real) && !isClosed(*seen);
    return folder;
}

/// The superuser is refused nothing by the system; a folder that is closed to everybody is so for
/// a reason all the same.
bool DiskItemRemovalPolicy::isClosed(const platform::FileMetadata& folder) const {
    return isSuperuser_ && !folder.isWritableBySomebody;
}

DiskItemRemovalPolicy::Verdict DiskItemRemovalPolicy::byKind(const platform::FileMetadata& seen) {
    if (seen.kind == ItemKind::link) return link;
    if (seen.kind == ItemKind::other) return specialFile;
    if (seen.isDataless) return cloudPlaceholder;
    return std::nullopt;
}

/// Whether the person vouches for a volume that is no disk of this machine by having opened a
/// folder on that very volume. A volume that is not known remains so.
bool DiskItemRemovalPolicy::isVouchedFor(const Look& look, const FileObservation& observation) {
    const std::string* opened = look.places.openedFolderOutsideHome(look.real);
    if (opened == nullptr || !observation.volumeIdentifier) return false;
    auto known = openedVolumes_.find(*opened);
    if (known == openedVolumes_.end()) {
        const auto seen = observer_.observation(FileURL::folder(*opened));
        known = openedVolumes_.emplace(*opened, seen ? seen->volumeIdentifier : std::nullopt).first;
    }
    return known->second == observation.volumeIdentifier;
}

DiskItemRemovalPolicy::Verdict DiskItemRemovalPolicy::byOrigin(Look& look,
                                                               const FileObservation& observation) {
    const SafetyPolicyFacts& facts = context_->facts();
    if (observation.ownerUserID != facts.currentUserID) return otherOwner;
    if (!platform::areOnOneMount(look.seen, look.folder.seen)) return mountPoint;
    look.isInternal = observation.volumeIdentifier &&
                      facts.internalLocalVolumeIdentifiers.contains(*observation.volumeIdentifier);
    if (!look.isInternal && !isVouchedFor(look, observation)) return otherVolume;
    return std::nullopt;
}

/// A sticky folder lets people rename what is their own, and nothing else comes this far. A folder
/// that moves to another one has to be open to changes itself: its ".." changes.
DiskItemRemovalPolicy::Verdict
DiskItemRemovalPolicy::byPermissions(const Look& look, const FileObservation& observation) const {
    if (look.seen.isLocked || look.folder.seen.isLocked) return locked;
    if (!look.folder.isWritable) return closedSurroundings;
    if (look.seen.kind == ItemKind::folder) {
        if (!platform::isWritableFolder(look.real) || isClosed(look.seen)) return closedFolder;
        if (!observation.isReadable) return unreadableFolder;
    }
    if (observation.isBackupArtifact) return backup;
    return std::nullopt;
}

/// What is open is told by path: of a file with several names one that is open by another name
/// escapes. Whoever offers files with several names does not ask for them at all.
DiskItemRemovalPolicy::Verdict DiskItemRemovalPolicy::byUse(const Look& look) const {
    const std::string& path = look.question.item.path();
    const bool isFolder = look.seen.kind == ItemKind::folder;
    for (const std::string* one : {&path, &look.real}) {
        if (LiveDataDetector::signal(LoweredPath(look.places.below(*one)))) return liveDatabase;
        if (holds(context_->facts().openByProcessPaths, *one, isFolder)) return openByProcess;
        if (holds(context_->facts().activelyGrowingPaths, *one, isFolder)) return growing;
        if (look.real == path) break;
    }
    return std::nullopt;
}

/// A link inside a known place may lead out of it: what lies there is not the place's.
DiskItemRemovalPolicy::Verdict DiskItemRemovalPolicy::byPlace(const Look& look) {
    const auto& wanted = look.question.placeID;
    if (wanted && (look.place == nullptr || look.place->id != *wanted)) return otherPlace;
    const std::string& path = look.question.item.path();
    if (look.place == nullptr || look.real == path) return std::nullopt;
    std::string_view top = path; // of the place: as many names below the home as its pattern has
    const auto depth = path::components(look.place->pattern).size();
    for (auto rest = path::components(path::below(path, home_.path())).size(); rest > depth;
         --rest) {
        top = path::parent(top);
    }
    if (top == path) return std::nullopt;
    const std::string expected = path::joined(folderAt(top).real, path::below(path, top));
    return expected == look.real ? Verdict() : otherPlace;
}

DiskItemRemovalPolicy::Verdict DiskItemRemovalPolicy::byTime(const Look& look) const {
    const Question& question = look.question;
    if (question.built && (!look.seen.modified || *look.seen.modified > *question.built)) {
        return changedSinceMeasured;
    }
    auto latest = look.seen.modified;
    if (look.seen.kind == ItemKind::folder) {
        const auto parent = platform::FolderDescriptor::openRoot(look.folder.real);
        if (!parent) return unreadableFolder;
        const auto folder = parent->open(std::string(question.item.lastComponent()).c_str());
        if (!folder) return platform::meansVanished(folder.error()) ? vanished : unreadableFolder;
        const auto inside =
            DiskItemContents::lastModification({.folder = *folder,
                                                .seen = look.seen,
                                                .owner = context_->facts().currentUserID,
                                                .cancel = question.cancel});
        if (!inside) return inside.error();
        latest = *inside;
    }
    if (look.place == nullptr) return std::nullopt;
    // A moment in the future is no quiet either.
    const Timestamp quietSince = question.at.adding(-look.place->quietPeriod);
    return latest && *latest <= quietSince ? Verdict() : inUseLately;
}

CleanupPlanEntry DiskItemRemovalPolicy::entry(const Look& look,
                                              const FileObservation& observation) {
    const Question& question = look.question;
    auto group = question.group;
    if (!group && look.place != nullptr) group = look.place->group;
    const CleanupCategory category =
        group ? categoryOf(*group) : DeterministicSafetyPolicy::category(observation);
    EvidenceCodes codes{EvidenceCode::userReviewRequired, EvidenceCode::currentUserOwned,
                        EvidenceCode::inactive};
    if (look.isInternal) codes.insert(EvidenceCode::internalLocalVolume);
    return {.candidateID = observation.id,
            .sourceURL = observation.url,
            .fingerprint = FileFingerprint::of(observation),
            .proofCard = {.category = category,
                          .riskTier = RiskTier::reviewCarefully,
                          .evidence = {.codes = codes,
                                       .summary = SharedText::lasting(
                                           RemovalConsequence::sentence(group, category))},
                          .byteCount = question.measuredBytes,
                          .recoveryMethod =
                              std::string(recoveryMethod(CleanupExecutionMode::recoverable))},
            .approvalRequirement = ApprovalRequirement::itemLevel,
            .authorization = CleanupAuthorization{
                authorization::DiskItem{.placeID = question.placeID, .itemURL = observation.url}}};
}

std::expected<CleanupPlanEntry, DiskItemRefusal>
DiskItemRemovalPolicy::planEntry(const Question& question) {
    if (!places_) return std::unexpected(nothingKnown);
    const std::string& path = question.item.path();
    if (const Verdict found = places_->refusal(path)) return std::unexpected(*found);

    if (folders_.size() >= mostRemembered) folders_.clear();
    const Folder& folder = folderAt(path::parent(path));
    if (folder.refusal) return std::unexpected(*folder.refusal);
    std::string real = path::joined(folder.real, question.item.lastComponent());
    if (real != path) {
        if (const Verdict found = places_->refusalOfReal(real)) return std::unexpected(*found);
    }
    const auto seen = platform::fileMetadata(path);
    if (!seen) return std::unexpected(meansGone(seen.error().code) ? vanished : unreadable);
    if (const Verdict found = byKind(*seen)) return std::unexpected(*found);

    const FileObservation observation = observer_.observation(
        seen->kind == ItemKind::folder ? FileURL::folder(path) : FileURL::file(path), *seen);
    Look look{.question = question,
              .places = *places_,
              .folder = folder,
              .real = std::move(real),
              .seen = *seen,
              .place = KnownPlaces::place(path, home_)};
    Verdict found = byOrigin(look, observation);
    if (!found) found = byPermissions(look, observation);
    if (!found) found = byUse(look);
    if (!found) found = byPlace(look);
    if (!found) found = byTime(look);
    if (found) return std::unexpected(*found);
    return entry(look, observation);
}

} // namespace tidyro

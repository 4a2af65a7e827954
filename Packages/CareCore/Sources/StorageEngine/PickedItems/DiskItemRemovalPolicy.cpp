#include "StorageEngine/PickedItems/DiskItemRemovalPolicy.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <utility>

#include "Base/PathText.h"
#include "Platform/Files/FileLease.h"
#include "StorageEngine/Observation/DatabaseFile.h"
#include "StorageEngine/Observation/LiveDataDetector.h"
#include "StorageEngine/PickedItems/DiskItemContents.h"
#include "StorageEngine/PickedItems/RemovalConsequence.h"
#include "StorageEngine/Places/DesktopFolders.h"
#include "StorageEngine/Places/HomeFolders.h"
#include "StorageEngine/Rules/BuiltInCleanupRules.h"
#include "StorageEngine/Safety/DeterministicSafetyPolicy.h"
#include "StorageEngine/Sorting/DiskGroup.h"

namespace tidyro {

namespace {

using enum DiskItemRefusal;
using platform::ItemKind;

/// Whether a set has the path or, for a folder, the path of anything in it. The set's order keeps
/// these together: they all begin with the folder's path and a "/".
bool hasPath(const SafetyPolicyFacts::PathSet& paths, const std::string& path, bool isFolder) {
    if (paths.contains(path)) return true;
    if (!isFolder) return false;
    const std::string inside = path + "/";
    const auto first = paths.lower_bound(inside);
    return first != paths.end() && first->starts_with(inside);
}

/// By its written path or by its real one.
bool isHeldInEither(const ToolStateFence& fence, const std::string& written,
                    const std::string& real, ItemKind kind) {
    using enum ToolStateFence::Item;
    const auto item = kind == ItemKind::folder ? folder : file;
    return fence.reason(written, item) || (real != written && fence.reason(real, item));
}

} // namespace

DiskItemRemovalPolicy::DiskItemRemovalPolicy(Options options)
    : context_(std::move(options.context)),
      home_(std::move(options.home)),
      observer_(home_, options.volumes),
      bases_(BaseFolders::find(home_)) {
    const auto desktop = DesktopFolders::read(home_);
    if (!desktop) unknown_ = desktopListUnreadable; // also when that left no context
    if (!desktop || context_ == nullptr) return;
    const auto clouds = HomeFolders::findCloudFolders(home_);
    if (!clouds) unknown_ = homeUnreadable;
    if (!clouds) return;
    const auto volumes = options.volumes.mounted().value_or(std::vector<platform::Volume>{});
    const DiskItemPlaces::Options known{.home = home_,
                                        .openedFolders = options.openedFolders,
                                        .desktop = *desktop,
                                        .cloudFolders = *clouds,
                                        .context = *context_,
                                        .volumes = volumes};
    places_.emplace(known);
    realHome_ = FileURL::folder(places_->realHome());
    std::vector<std::string> choosable;
    for (const FileURL& root : context_->choosableRoots()) choosable.push_back(root.path());
    mountedTwice_ = RootPathIndex(choosable);
    folders_ = DiskItemFolders(places_->keptFolders(known));
}

/// Whether a tool's home or store may lie in the picked folder, or the folder in one.
bool DiskItemRemovalPolicy::mayHoldToolState(const Look& look) const {
    const ToolStateFence* fence = context_->toolState();
    if (fence == nullptr) return false;
    const std::string& path = look.question.item.path();
    return std::ranges::any_of(
        std::initializer_list<const std::string*>{&path, &look.real}, [&](const std::string* one) {
            return fence->isNear(LoweredPath(*one).text()) || fence->isBelow(*one);
        });
}

DiskItemRemovalPolicy::Verdict DiskItemRemovalPolicy::byToolState(const Look& look) const {
    if (!mayHoldToolState(look)) return std::nullopt;
    const std::string& path = look.question.item.path();
    return isHeldInEither(*context_->toolState(), path, look.real, look.seen.kind)
               ? Verdict(protectedPlace)
               : std::nullopt;
}

/// A moment that is no finite number would compare as neither before nor after any other.
DiskItemRemovalPolicy::Verdict DiskItemRemovalPolicy::byMoments(const Question& question) {
    const auto isMoment = [](Timestamp at) { return std::isfinite(at.secondsSinceReference()); };
    if (question.built && !isMoment(*question.built)) return changedSinceMeasured;
    return isMoment(question.at) ? Verdict() : inUseLately;
}

DiskItemRemovalPolicy::Verdict DiskItemRemovalPolicy::byKind(const platform::FileMetadata& seen) {
    if (seen.kind == ItemKind::link) return link;
    if (seen.kind == ItemKind::other) return specialFile;
    if (seen.isDataless) return cloudPlaceholder;
    return std::nullopt;
}

/// Whether the person vouches for a volume that is no disk of this machine, by having opened a
/// folder on that very volume. Nobody can vouch for a volume that is not known.
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
    if (!platform::areOnOneMount(look.seen, look.folder.seen)) return mountPointItself;
    look.isInternal = observation.volumeIdentifier && facts.internalLocalVolumeIdentifiers.contains(
                                                          observation.volumeIdentifier->text());
    if (!look.isInternal && !isVouchedFor(look, observation)) return otherVolume;
    return std::nullopt;
}

/// Sticky folders need no check: people may rename their own items in them, and items of others
/// have been refused already. A folder that is to move has to be writable itself, since its ".."
/// changes.
DiskItemRemovalPolicy::Verdict
DiskItemRemovalPolicy::byPermissions(const Look& look, const FileObservation& observation) const {
    if (look.seen.isLocked || look.folder.seen.isLocked) return locked;
    if (!look.folder.isWritable) return closedParent;
    if (look.seen.kind == ItemKind::folder) {
        if (!platform::isWritableFolder(look.real) || folders_.isClosed(look.seen)) {
            return closedFolder;
        }
        if (!observation.isReadable) return unreadableFolder;
    }
    if (observation.isBackupArtifact) return backup;
    return std::nullopt;
}

/// Judges by what the folders above the item are made of. A picked folder is refused when it is a
/// database itself, but not when it is a repository: a whole repository is a whole project.
DiskItemRemovalPolicy::Verdict DiskItemRemovalPolicy::bySurroundings(const Look& look) {
    const std::string& path = look.question.item.path();
    const FolderSurroundings above = observer_.surroundings(std::string(path::parent(path)));
    if (above.isInHistory) return repositoryData;
    if (above.isInDatabase) return liveDatabase;
    const bool isFolder = look.seen.kind == ItemKind::folder;
    return isFolder && observer_.surroundings(path).isInDatabase ? Verdict(liveDatabase)
                                                                 : std::nullopt;
}

/// The paths in use miss a file that is open by another of its names, or by a process that may not
/// be read. So the file itself is asked as well, where its file system answers.
DiskItemRemovalPolicy::Verdict DiskItemRemovalPolicy::byUse(const Look& look) const {
    const std::string& path = look.question.item.path();
    const bool isFolder = look.seen.kind == ItemKind::folder;
    for (const std::string* one : {&path, &look.real}) {
        if (LiveDataDetector::signal(LoweredPath(look.places.names(*one)))) return liveDatabase;
        if (hasPath(context_->facts().openByProcessPaths, *one, isFolder)) return openByProcess;
        if (hasPath(context_->facts().activelyGrowingPaths, *one, isFolder)) return growing;
        if (look.real == path) break;
    }
    const bool isInUse =
        look.seen.kind == ItemKind::regularFile &&
        platform::fileUse(look.parent, look.name.c_str()) == platform::FileUse::inUse;
    return isInUse ? Verdict(openByProcess) : std::nullopt;
}

/// A folder is looked through for databases later on, with all that is in it.
DiskItemRemovalPolicy::Verdict DiskItemRemovalPolicy::byDatabase(const Look& look) {
    if (look.seen.kind != ItemKind::regularFile) return std::nullopt;
    const auto hasJournal = DatabaseFile::hasJournal(look.parent, look.name.c_str());
    if (!hasJournal) return refusalFor(hasJournal.error());
    if (*hasJournal) return liveDatabase;
    if (!DatabaseFile::hasDatabaseLength(look.seen.byteCount)) return std::nullopt;
    const auto is = DatabaseFile::isDatabase(look.parent, look.name.c_str(), look.seen);
    if (!is) return refusalFor(is.error());
    return *is ? Verdict(liveDatabase) : std::nullopt;
}

/// Refuses an item that a link inside a known place leads to: it need not be the place's own.
DiskItemRemovalPolicy::Verdict DiskItemRemovalPolicy::byPlace(const Look& look) {
    const auto& wanted = look.question.placeID;
    if (wanted && (look.place == nullptr || look.place->id != *wanted)) return otherPlace;
    const std::string& path = look.question.item.path();
    if (look.place == nullptr || look.real == path) return std::nullopt;
    std::string_view top = path; // of the place: as many names below the home as its pattern has
    const auto depth = path::components(bases_.moved(look.place->pattern)).size();
    for (auto rest = path::components(path::below(path, home_.path())).size(); rest > depth;
         --rest) {
        top = path::parent(top);
    }
    if (top == path) return std::nullopt;
    const std::string expected = path::joined(folders_.at(top).real, path::below(path, top));
    return expected == look.real ? Verdict() : otherPlace;
}

DiskItemRemovalPolicy::Verdict DiskItemRemovalPolicy::byTime(const Look& look) const {
    const Question& question = look.question;
    auto latest = look.seen.modified;
    if (look.seen.kind == ItemKind::folder) {
        // Both are asked only where they may find something: it takes a while.
        const bool isAmongCaches = look.places.isAmongCaches(question.item.path());
        const ToolStateFence* fence = mayHoldToolState(look) ? context_->toolState() : nullptr;
        std::function<bool(const std::string&, ItemKind)> isKept;
        if (isAmongCaches || fence != nullptr) {
            isKept = [&, isAmongCaches, fence](const std::string& path, ItemKind kind) {
                if (isAmongCaches && look.places.isPeoples(path)) return true;
                return fence != nullptr &&
                       isHeldInEither(*fence, path,
                                      look.real + path.substr(look.question.item.path().size()),
                                      kind);
            };
        }
        const auto inside =
            DiskItemContents::lastModification({.parent = look.parent,
                                                .name = look.name,
                                                .seen = look.seen,
                                                .owner = context_->facts().currentUserID,
                                                .kept = folders_.kept(),
                                                .path = question.item.path(),
                                                .isKept = isKept,
                                                .cancel = question.cancel});
        if (!inside) return inside.error();
        latest = *inside;
    }
    const auto isQuietSince = [&](Timestamp moment) { return latest && *latest <= moment; };
    if (question.built && !isQuietSince(*question.built)) return changedSinceMeasured;
    double quietPeriod = question.quietPeriod;
    for (const KnownPlace* place : {look.place, look.realPlace}) {
        if (place != nullptr) quietPeriod = std::max(quietPeriod, place->quietPeriod);
    }
    if (quietPeriod == 0) return std::nullopt;
    // A moment in the future is no quiet either.
    return isQuietSince(question.at.adding(-quietPeriod)) ? Verdict() : inUseLately;
}

bool DiskItemRemovalPolicy::isElsewhere(const Look& look) const {
    if (look.place == nullptr) return false;
    const std::string& path = look.question.item.path();
    if (mountedTwice_.contains(path) || mountedTwice_.contains(look.real)) return true;
    return look.real != path::joined(realHome_.path(), path::below(path, home_.path()));
}

/// The built-in rule that covers an item where it really lies; null when none does. Rules are made
/// for the first item that may go, since most selections hold some that may not.
const CleanupRule* DiskItemRemovalPolicy::ruleOf(const Look& look) {
    if (!rules_) rules_ = BuiltInCleanupRules::allLocations(home_);
    const FileURL& item = look.question.item;
    const CleanupRule* rule = DeterministicSafetyPolicy::mostSpecificMatchingRule(item, *rules_);
    const bool isCovered = rule != nullptr &&
                           rule->isWithinReach(item.path(), look.seen.kind == ItemKind::folder) &&
                           rule->grantsSafeCleanupAuthority(item);
    return isCovered ? rule : nullptr;
}

/// What lies in a store goes with its owner's command, unless a known place or a rule that is
/// rooted in the store names it.
DiskItemRemovalPolicy::Verdict DiskItemRemovalPolicy::byStore(const Look& look,
                                                              const CleanupRule* rule) {
    const std::string& path = look.question.item.path();
    if (rule != nullptr && rule->mayBeBuiltHere(path)) return builtHere;
    if (look.place != nullptr || look.realPlace != nullptr) return std::nullopt;
    for (const std::string* one : {&path, &look.real}) {
        const auto depth = look.places.storeDepth(*one);
        if (depth && (rule == nullptr || rule->rootDepth() < *depth)) return ownersStore;
    }
    return std::nullopt;
}

/// An item behind a known place that leads elsewhere is what its real place says, and the group
/// that it was sorted into by its written path says nothing. By a folder that is mounted twice
/// nobody can tell which of its places is the real one.
CleanupPlanEntry DiskItemRemovalPolicy::entry(const Look& look, const CleanupRule* rule,
                                              const FileObservation& observation) {
    const Question& question = look.question;
    const bool isMountedTwice = look.isElsewhere && look.real == question.item.path();
    auto group = look.isElsewhere ? std::nullopt : question.group;
    if (!group && look.place != nullptr && !look.isElsewhere) group = look.place->group;
    if (!group && look.realPlace != nullptr && !isMountedTwice) group = look.realPlace->group;
    CleanupCategory category = CleanupCategory::unknown;
    if (group) {
        category = cleanupCategory(*group);
    } else if (!isMountedTwice) {
        FileObservation real = observation;
        real.url = FileURL::file(look.real);
        category = DeterministicSafetyPolicy::category(real);
    }
    // A rule knows better than the names on the way. A group of its category says the same, and
    // more closely.
    if (rule != nullptr && category != rule->category()) {
        category = rule->category();
        group.reset();
    }
    EvidenceCodes codes{EvidenceCode::userReviewRequired, EvidenceCode::currentUserOwned,
                        EvidenceCode::inactive};
    if (look.isInternal) codes.insert(EvidenceCode::internalLocalVolume);
    return {.candidateID = observation.id,
            .sourceURL = observation.url,
            .fingerprint = FileFingerprint::fromObservation(observation),
            .proofCard = {.category = category,
                          .riskTier = RiskTier::reviewCarefully,
                          .evidence = {.codes = codes,
                                       .summary = SharedText::lasting(
                                           RemovalConsequence::sentence(group, category))},
                          .byteCount = question.measuredBytes,
                          .recoveryMethod = SharedText::lasting(
                              recoveryMethod(CleanupExecutionMode::recoverable))},
            .approvalRequirement = ApprovalRequirement::itemLevel,
            .authorization = CleanupAuthorization{
                authorization::DiskItem{.placeID = question.placeID, .itemURL = observation.url}}};
}

std::expected<CleanupPlanEntry, DiskItemRefusal>
DiskItemRemovalPolicy::planEntry(const Question& question) {
    if (question.cancel.stop_requested()) return std::unexpected(cancelled);
    if (!places_) return std::unexpected(unknown_);
    const DiskItemPlaces& places = *places_;
    const std::string& path = question.item.path();
    if (const Verdict found = byMoments(question)) return std::unexpected(*found);
    if (const Verdict found = places.refusal(path)) return std::unexpected(*found);
    // A copy, since the reference is good only until another folder is asked for.
    const DiskItemFolders::Folder folder = folders_.at(path::parent(path));
    if (folder.refusal) return std::unexpected(*folder.refusal);
    std::string name(question.item.lastComponent());
    std::string real = path::joined(folder.real, name);
    if (real != path) {
        if (const Verdict found = places.refusalOfReal(real)) return std::unexpected(*found);
    }
    if (folder.kept) return std::unexpected(*folder.kept);

    const auto parent = folders_.open(folder);
    if (!parent) return std::unexpected(parent.error());
    const auto seen = platform::fileMetadata(*parent, name.c_str());
    if (!seen) return std::unexpected(refusalFor(seen.error()));
    if (const Verdict found = byKind(*seen)) return std::unexpected(*found);
    if (const auto reason = folders_.kept().reason(seen->identity, real)) {
        return std::unexpected(refusalFor(*reason));
    }

    const FileObservation observation = observer_.observation(
        *parent, seen->kind == ItemKind::folder ? FileURL::folder(path) : FileURL::file(path),
        *seen);
    Look look{.question = question,
              .places = places,
              .folder = folder,
              .parent = *parent,
              .name = std::move(name),
              .real = std::move(real),
              .seen = *seen,
              .place = KnownPlaces::place(path, home_),
              .realPlace = nullptr};
    const bool isWrittenAsItIs = look.real == path && realHome_ == home_;
    look.realPlace = isWrittenAsItIs ? look.place : KnownPlaces::place(look.real, realHome_);
    look.isElsewhere = isElsewhere(look);
    Verdict found = byToolState(look);
    if (!found) found = byOrigin(look, observation);
    if (!found) found = byPermissions(look, observation);
    if (!found) found = bySurroundings(look);
    if (!found) found = byUse(look);
    if (!found) found = byDatabase(look);
    if (!found) found = byPlace(look);
    const CleanupRule* rule = found || look.isElsewhere ? nullptr : ruleOf(look);
    if (!found) found = byStore(look, rule);
    if (!found) found = byTime(look);
    if (found) return std::unexpected(*found);
    return entry(look, rule, observation);
}

} // namespace tidyro

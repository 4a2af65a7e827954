#include "StorageEngine/AITools/AIToolAuditor.h"

#include <cerrno>
#include <chrono>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Base/PathText.h"
#include "Platform/Files/FileMetadata.h"
#include "StorageEngine/AITools/AIToolAuditSums.h"
#include "StorageEngine/AITools/AIToolClassifier.h"
#include "StorageEngine/AITools/AIToolVersionState.h"
#include "StorageEngine/Observation/FileObserver.h"

namespace tidyro {

namespace {

using platform::ItemIdentity;
using Components = std::span<const std::string>;
using Failure = AIToolWalker::Error;

struct AuditedStore {
    std::size_t index; ///< in the layout
    FileURL url;
    ItemIdentity identity;
};

/// What a machine counts as of which nothing is known: no item lies on a disk of it, so that no
/// item may go.
SafetyPolicyContext unknownMachine() {
    return SafetyPolicyContext({.currentUserID = platform::currentUserID(),
                                .internalLocalVolumeIdentifiers = {},
                                .activeApplicationRoots = {},
                                .additionalProtectedRoots = {},
                                .activelyGrowingPaths = {},
                                .openByProcessPaths = {}});
}

/// One audit under way.
class Audit {
  public:
    Audit(const AIToolAuditor::Options& options, const AIToolHome& home, Timestamp now,
          const CancelToken& cancel)
        : options_(options),
          cancel_(cancel),
          home_(home),
          layout_(home.layout()),
          stores_(storesOf(home)),
          observer_(home.userHome, options.volumes),
          classifier_(optionsOfClassifier(now)),
          report_{.home = home,
                  .layoutVersion = home.layoutVersion(),
                  .minimumAge = AIToolAgePolicy::effectiveMinimumAge(options.ageFloor),
                  .startedAt = now,
                  .completedAt = now} {}

    [[nodiscard]] std::expected<AIToolAuditReport, Failure> run();

  private:
    [[nodiscard]] static std::vector<AuditedStore> storesOf(const AIToolHome& home);
    [[nodiscard]] AIToolClassifier::Options optionsOfClassifier(Timestamp now);
    [[nodiscard]] std::expected<void, Failure> auditHome();
    [[nodiscard]] std::expected<void, Failure> auditStore(const AuditedStore& store);
    [[nodiscard]] std::expected<void, Failure> walk(const AuditedStore* store);
    void enter(const AIToolWalker::Folder& folder);
    [[nodiscard]] const AIToolVersionState* versionsAround(Components components) const;
    void add(const AIToolWalkEntry& entry);
    [[nodiscard]] std::optional<AIToolVersionState> versions(Components below) const;

    const AIToolAuditor::Options& options_;
    const CancelToken& cancel_;
    const AIToolHome& home_;
    const AIToolLayout& layout_;
    std::vector<AuditedStore> stores_;
    ToolActivitySnapshot activity_; ///< of all processes, for versions
    std::uint32_t ownerUserID_ = 0; ///< whose items may go
    FileObserver observer_;
    AIToolClassifier classifier_;
    AIToolAuditReport report_;
    AIToolAuditSums sums_{report_};
    std::size_t entryCount_ = 0;

    // Of the walk under way.
    std::optional<std::string> realRoot_;
    AIToolLocation at_{.home = home_, .place = {}, .rootURL = home_.url, .components = {}};
    std::map<const AIToolCandidateRoot*, AIToolVersionState> versionStates_; ///< null in a store
    // Of the folder whose entries come, but for the folders in it: each comes when it is entered.
    AIToolWalkEntry::Around around_{.folders = {}};
    const AIToolVersionState* versionState_ = nullptr;
    AIToolClassifier::LastFolder lastFolder_;
    /// Filled anew for each entry; its texts keep their room.
    FileObservation seen_{.id = {},
                          .url = {},
                          .kind = FileKind::other,
                          .byteCount = 0,
                          .isReadable = false,
                          .isCloudPlaceholder = false,
                          .isInProjectRepository = false,
                          .isBackupArtifact = false,
                          .linkCount = 0};
};

/// A store that is the home itself is none: the home's own rules hold there.
std::vector<AuditedStore> Audit::storesOf(const AIToolHome& home) {
    std::vector<AuditedStore> stores;
    for (auto& [index, url] : home.validExternalStores()) {
        const auto seen = AIToolWalker::lstat(url.path());
        if (!seen || seen->identity == ItemIdentity{home.deviceID, home.inode}) continue;
        stores.push_back({.index = index, .url = std::move(url), .identity = seen->identity});
    }
    return stores;
}

AIToolClassifier::Options Audit::optionsOfClassifier(Timestamp now) {
    std::vector<std::string> roots{home_.url.path()};
    for (const AuditedStore& store : stores_) roots.push_back(store.url.path());
    activity_ = options_.activityProvider.snapshot();
    for (const std::string& root : roots) activity_.addWritten(root);
    const auto fresh = options_.freshContext ? options_.freshContext() : nullptr;
    const SafetyPolicyContext machine = fresh != nullptr ? *fresh : unknownMachine();
    ownerUserID_ = machine.facts().currentUserID;
    return {.minimumAge = AIToolAgePolicy::effectiveMinimumAge(options_.ageFloor),
            .context = AIToolClassifier::context(home_, machine),
            .activity = activity_.restricted(roots),
            .now = now,
            .honorsStatusChange = options_.honorsStatusChange,
            // Whoever has a file of the home open is taken for the application, wherever its
            // program lies.
            .isToolAppRunning = activity_.isRunning(layout_.runningAppMarkers) ||
                                activity_.isActive(home_.url.path())};
}

std::expected<AIToolAuditReport, Failure> Audit::run() {
    const auto started = std::chrono::steady_clock::now();
    report_.unreadableProcessCount = activity_.unreadableProcessCount;
    report_.ownerUserID = ownerUserID_;
    if (const auto walked = auditHome(); !walked) return std::unexpected(walked.error());
    for (const AuditedStore& store : stores_) {
        if (const auto walked = auditStore(store); !walked) return std::unexpected(walked.error());
    }
    if (!home_.stillIdentified()) return std::unexpected(SystemError{ESTALE});
    sums_.finish();
    // The time that passed, not the clock, which may have been set meanwhile.
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - started;
    report_.completedAt = report_.startedAt.adding(passed.count());
    return std::move(report_);
}

std::expected<void, Failure> Audit::auditHome() {
    for (const AIToolCandidateRoot& root : layout_.candidateRoots) {
        std::vector<std::string> below;
        for (const std::string_view each : path::components(root.relativePath)) {
            below.emplace_back(each);
        }
        if (auto state = versions(below)) versionStates_.emplace(&root, *std::move(state));
    }
    return walk(nullptr);
}

std::expected<void, Failure> Audit::auditStore(const AuditedStore& store) {
    sums_.beginStore(store.index, store.url);
    at_.place = {.storeIndex = store.index};
    at_.rootURL = store.url;
    versionStates_.clear();
    lastFolder_ = {};
    if (auto state = versions({})) versionStates_.emplace(nullptr, *std::move(state));
    auto walked = walk(&store);
    if (!walked && std::holds_alternative<SystemError>(walked.error())) {
        sums_.addGaps({{.url = store.url,
                        .reason = CoverageGapReason::inaccessible,
                        .detail = std::get<SystemError>(walked.error()).description()}});
        return {};
    }
    return walked;
}

std::optional<AIToolVersionState> Audit::versions(Components below) const {
    AIToolLocation at = at_;
    at.components.assign(below.begin(), below.end());
    return AIToolVersionState::forBuildFolder(at, activity_);
}

/// The home without a store. Roots that lie in each other are walked once each.
std::expected<void, Failure> Audit::walk(const AuditedStore* store) {
    AIToolWalker::Options options{.maxEntries = options_.maxEntries - entryCount_,
                                  .cancel = cancel_};
    const ItemIdentity home{home_.deviceID, home_.inode};
    options.identity = store != nullptr ? store->identity : home;
    if (store != nullptr) options.passedOver.push_back(home);
    for (const AuditedStore& other : stores_) {
        if (&other != store) options.passedOver.push_back(other.identity);
    }
    options.enter = [this](const AIToolWalker::Folder& folder) { enter(folder); };
    const auto real = platform::realPath(at_.rootURL.path());
    realRoot_ = real ? std::optional(*real) : std::nullopt;
    const auto seen = AIToolWalker::lstat(at_.rootURL.path());
    around_.volumeIdentifier =
        seen ? observer_.observation(at_.rootURL, *seen, FileObserver::Readable::yes)
                   .volumeIdentifier
             : std::nullopt;
    auto coverage = AIToolWalker::walk(
        at_.rootURL, [this](const AIToolWalkEntry& entry) { add(entry); }, options);
    if (!coverage) return std::unexpected(coverage.error());
    entryCount_ += coverage->entryCount;
    report_.isTruncated = report_.isTruncated || coverage->isTruncated;
    sums_.addGaps(std::move(coverage->gaps));
    return {};
}

void Audit::enter(const AIToolWalker::Folder& folder) {
    const std::string& path = folder.url.path();
    const std::string& root = at_.rootURL.path();
    if (folder.signs && realRoot_) {
        // No link was followed on the way down from the root.
        observer_.setListed({.folder = path,
                             .real = *realRoot_ + path.substr(root.size()),
                             .signs = *folder.signs});
    }
    around_.folders = observer_.surroundings(path);
    versionState_ = versionsAround(folder.components);
}

const AIToolVersionState* Audit::versionsAround(Components components) const {
    const AIToolCandidateRoot* root = at_.place.storeIndex ? nullptr : layout_.rootOf(components);
    const auto state = versionStates_.find(root);
    return state != versionStates_.end() ? &state->second : nullptr;
}

void Audit::add(const AIToolWalkEntry& entry) {
    using Kind = AIToolWalkEntry::Kind;
    seen_.url = entry.url;
    seen_.kind = FileKind::other;
    if (entry.kind == Kind::regularFile) seen_.kind = FileKind::regularFile;
    if (entry.kind == Kind::directory) seen_.kind = FileKind::directory;
    seen_.byteCount = entry.byteCount;
    seen_.creationDate = entry.creationDate;
    seen_.modificationDate = entry.modificationDate;
    seen_.ownerUserID = entry.ownerUserID;
    seen_.volumeIdentifier = around_.volumeIdentifier;
    seen_.isReadable = entry.isReadable;
    seen_.isCloudPlaceholder = entry.isDataless;
    seen_.isInProjectRepository = around_.folders.isInProjectRepository;
    seen_.isBackupArtifact =
        around_.folders.isInBackup || isBackupByName(entry.url.lastComponent());
    seen_.linkCount = entry.linkCount;
    at_.components = entry.components;
    const bool isFolder = entry.kind == Kind::directory;
    const AIToolClassifier::Verdict found = classifier_.rate(
        seen_, at_,
        {.isSymbolicLink = entry.kind == Kind::symbolicLink,
         .isInaccessible = entry.isInaccessible,
         .isInDatabase = !isFolder && around_.folders.isInDatabase,
         .versionState = isFolder ? versionsAround(entry.components) : versionState_,
         .statusChangeDate = entry.statusChangeDate,
         .lastFolder = &lastFolder_});
    sums_.add(entry, found, around_);
}

} // namespace

std::expected<AIToolAuditReport, AIToolWalker::Error>
AIToolAuditor::audit(const AIToolHome& home, Timestamp now, const CancelToken& cancel) const {
    return Audit(options_, home, now, cancel).run();
}

} // namespace tidyro

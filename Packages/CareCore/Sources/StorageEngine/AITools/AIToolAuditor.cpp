#include "StorageEngine/AITools/AIToolAuditor.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "Base/PathText.h"
#include "Platform/Files/FileMetadata.h"
#include "StorageEngine/AITools/AIToolClassifier.h"
#include "StorageEngine/AITools/AIToolVersionState.h"
#include "StorageEngine/Observation/FileObserver.h"
#include "StorageEngine/Rules/ReviewRequiredScope.h"

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

void sortBySize(std::vector<AIToolPathSummary>& summaries) {
    std::ranges::sort(summaries, [](const AIToolPathSummary& a, const AIToolPathSummary& b) {
        return std::tuple(b.logicalByteCount, std::string_view(a.relativePath)) <
               std::tuple(a.logicalByteCount, std::string_view(b.relativePath));
    });
}

void addEntry(AIToolPathSummary& to, const AIToolWalkEntry& entry, bool isEligible) {
    if (entry.kind == AIToolWalkEntry::Kind::directory) {
        ++to.directoryCount;
        return;
    }
    ++to.fileCount;
    to.logicalByteCount += entry.byteCount;
    to.allocatedByteCount += entry.allocatedByteCount;
    to.newestModification = std::max(to.newestModification, entry.modificationDate);
    if (isEligible) to.eligibleByteCount += entry.byteCount;
}

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
          homePrefix_(loweredHomePrefix(home.userHome)),
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
    void addToChildren(const AIToolWalkEntry& entry, bool isEligible);
    void addToFinding(const AIToolWalkEntry& entry, const AIToolClassifier::Verdict& found);
    void addGaps(std::vector<CoverageGap> gaps);
    [[nodiscard]] AIToolRuleFinding& findingOf(const AIToolClassifier::Verdict& found);
    [[nodiscard]] AIToolChildRole role(Components components) const;
    [[nodiscard]] std::optional<AIToolVersionState> versions(Components below) const;
    void finish();

    const AIToolAuditor::Options& options_;
    const CancelToken& cancel_;
    const AIToolHome& home_;
    const AIToolLayout& layout_;
    std::vector<AuditedStore> stores_;
    ToolActivitySnapshot activity_; ///< of all processes, for versions
    FileObserver observer_;
    AIToolClassifier classifier_;
    std::string homePrefix_;
    AIToolAuditReport report_;
    std::size_t entryCount_ = 0;
    std::map<const AIToolRecognizer*, AIToolRuleFinding> findings_;
    // By decision and by group, which go to the report's maps at the end.
    std::array<AIToolDecisionTally, allCases<AIToolDecision>().size()> tallies_{};
    std::array<AIToolGroupTotal, allCases<AIToolArtifactGroup>().size()> totals_{};

    // Of the walk under way.
    AIToolPathSummary* store_ = nullptr; ///< null in the home
    std::optional<std::string> realRoot_;
    AIToolLocation at_{.home = home_, .place = {}, .rootURL = home_.url, .components = {}};
    std::map<const AIToolCandidateRoot*, AIToolVersionState> versionStates_; ///< null in a store
    // Of the folder whose entries come, but for the folders in it: each comes when it is entered.
    AIToolWalkEntry::Around around_{.folders = {}};
    const AIToolVersionState* versionState_ = nullptr;
    AIToolClassifier::LastFolder lastFolder_;
    std::vector<AIToolPathSummary>* expanded_ = nullptr; ///< of the child whose entries come
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
    const auto machine = options_.freshContext ? options_.freshContext() : nullptr;
    return {.minimumAge = AIToolAgePolicy::effectiveMinimumAge(options_.ageFloor),
            .context =
                AIToolClassifier::context(home_, machine != nullptr ? *machine : unknownMachine()),
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
    report_.ownerUserID = platform::currentUserID();
    if (const auto walked = auditHome(); !walked) return std::unexpected(walked.error());
    for (const AuditedStore& store : stores_) {
        if (const auto walked = auditStore(store); !walked) return std::unexpected(walked.error());
    }
    if (!home_.stillIdentified()) return std::unexpected(SystemError{ESTALE});
    finish();
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
    report_.externalStores.push_back(
        {.relativePath = layout_.externalStores[store.index].relativeToUserHome,
         .role = AIToolChildRole::externalStore,
         .directoryCount = 1});
    store_ = &report_.externalStores.back();
    at_.place = {.storeIndex = store.index};
    at_.rootURL = store.url;
    versionStates_.clear();
    lastFolder_ = {};
    if (auto state = versions({})) versionStates_.emplace(nullptr, *std::move(state));
    auto walked = walk(&store);
    if (!walked && std::holds_alternative<SystemError>(walked.error())) {
        addGaps({{.url = store.url,
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
    addGaps(std::move(coverage->gaps));
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
    const AIToolCandidateRoot* root = store_ == nullptr ? layout_.rootOf(components) : nullptr;
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
    const std::uint64_t bytes = isFolder ? 0 : entry.byteCount;
    AIToolDecisionTally& tally = tallies_[static_cast<std::size_t>(found.decision)];
    ++tally.count;
    tally.logicalByteCount += bytes;
    AIToolGroupTotal& total = totals_[static_cast<std::size_t>(found.group)];
    if (!isFolder) {
        ++total.fileCount;
        total.logicalByteCount += bytes;
        total.allocatedByteCount += entry.allocatedByteCount;
    }
    const bool isEligible = found.decision == AIToolDecision::eligibleDisposable ||
                            found.decision == AIToolDecision::eligibleForReview;
    addToChildren(entry, isEligible);
    if (found.rule != nullptr) addToFinding(entry, found);
}

/// All entries of a child come one after another, the child itself first.
void Audit::addToChildren(const AIToolWalkEntry& entry, bool isEligible) {
    if (store_ != nullptr) return addEntry(*store_, entry, isEligible);
    const Components components = entry.components;
    const bool isLink = entry.kind == AIToolWalkEntry::Kind::symbolicLink;
    if (components.size() == 1) {
        report_.allChildren.push_back(
            {.relativePath = components[0], .role = role(components), .isSymbolicLink = isLink});
    }
    addEntry(report_.allChildren.back(), entry, isEligible);
    if (components.size() == 1) return;
    if (components.size() == 2) {
        expanded_ = &report_.expandedChildren[components[0]];
        expanded_->push_back({.relativePath = path::joined(components[0], components[1]),
                              .role = role(components),
                              .isSymbolicLink = isLink});
    }
    addEntry(expanded_->back(), entry, isEligible);
}

/// Of a child, or of a child's child.
AIToolChildRole Audit::role(Components components) const {
    using enum AIToolChildRole;
    std::string below = components[0];
    if (components.size() > 1) below = path::joined(below, components[1]);
    if (layout_.rootOf(components) != nullptr) return candidateRoot;
    const bool isOnTheWay = std::ranges::any_of(layout_.candidateRoots, [&](const auto& root) {
        return root.relativePath.starts_with(path::joined(below, ""));
    });
    switch (AIToolClassifier::decisionOfTopLevel(layout_, components[0])) {
    case AIToolDecision::namedProtectedState:
        return isOnTheWay && components.size() > 1 ? candidateRoot : protectedState;
    case AIToolDecision::conversationOrHistory: return conversation;
    default: return isOnTheWay ? candidateRoot : unlisted;
    }
}

AIToolRuleFinding& Audit::findingOf(const AIToolClassifier::Verdict& found) {
    const auto known = findings_.find(found.rule);
    if (known != findings_.end()) return known->second;
    const AIToolRecognizer& rule = *found.rule;
    AIToolRuleFinding finding{
        .ruleID = rule.ruleID,
        .title = rule.title,
        .group = rule.group,
        .category = rule.category,
        .consequence = rule.consequence,
        .locationRootURL = at_.rootURL,
        .candidateRootURL = found.root != nullptr
                                ? at_.rootURL.appendingFolder(found.root->relativePath)
                                : at_.rootURL,
        .volumeIdentifier = around_.volumeIdentifier,
        .hasReviewOnlyItems = rule.group == AIToolArtifactGroup::generatedWork};
    return findings_.emplace(&rule, std::move(finding)).first->second;
}

void Audit::addToFinding(const AIToolWalkEntry& entry, const AIToolClassifier::Verdict& found) {
    if (entry.kind != AIToolWalkEntry::Kind::regularFile) return;
    switch (found.decision) {
    case AIToolDecision::tooRecent: {
        AIToolRuleFinding& finding = findingOf(found);
        ++finding.keptRecentCount;
        finding.keptRecentByteCount += entry.byteCount;
        return;
    }
    case AIToolDecision::inUseByProcess: {
        AIToolRuleFinding& finding = findingOf(found);
        ++finding.keptActiveCount;
        finding.keptActiveByteCount += entry.byteCount;
        return;
    }
    case AIToolDecision::eligibleDisposable:
    case AIToolDecision::eligibleForReview: break;
    default: return;
    }
    if (!entry.modificationDate) return; // the classifier holds it
    AIToolRuleFinding& finding = findingOf(found);
    const std::string& path = entry.url.path();
    finding.artifacts.push_back({.relativePath = std::string(path::below(path, at_.rootURL.path())),
                                 .byteCount = entry.byteCount,
                                 .allocatedByteCount = entry.allocatedByteCount,
                                 .deviceID = entry.deviceID,
                                 .inode = entry.inode,
                                 .modificationDate = *entry.modificationDate,
                                 .creationDate = entry.creationDate,
                                 .isInProjectRepository = around_.folders.isInProjectRepository});
    finding.eligibleByteCount += entry.byteCount;
    finding.eligibleAllocatedByteCount += entry.allocatedByteCount;
    finding.hasReviewOnlyItems =
        finding.hasReviewOnlyItems ||
        ReviewRequiredScope::needsReview(path, finding.category, homePrefix_);
}

/// Counts what was not measured for the child or store that it lies in.
void Audit::addGaps(std::vector<CoverageGap> gaps) {
    if (store_ != nullptr) {
        store_->inaccessibleCount += gaps.size();
    } else {
        std::map<std::string_view, AIToolPathSummary*> known;
        for (AIToolPathSummary& child : report_.allChildren) {
            known.emplace(child.relativePath, &child);
        }
        for (auto& [name, inside] : report_.expandedChildren) {
            for (AIToolPathSummary& child : inside) known.emplace(child.relativePath, &child);
        }
        const auto count = [&](std::string_view child) {
            if (const auto found = known.find(child); found != known.end()) {
                ++found->second->inaccessibleCount;
            }
        };
        for (const CoverageGap& gap : gaps) {
            const std::string_view below = path::below(gap.url.path(), home_.url.path());
            const std::size_t first = below.find('/');
            count(below.substr(0, first));
            if (first != below.npos) count(below.substr(0, below.find('/', first + 1)));
        }
    }
    report_.gaps.insert(report_.gaps.end(), std::make_move_iterator(gaps.begin()),
                        std::make_move_iterator(gaps.end()));
}

void Audit::finish() {
    for (const AIToolPathSummary& child : report_.allChildren) {
        report_.totalLogicalByteCount += child.logicalByteCount;
        report_.totalAllocatedByteCount += child.allocatedByteCount;
        report_.fileCount += child.fileCount;
        report_.directoryCount += child.directoryCount;
    }
    for (const AIToolDecision decision : allCases<AIToolDecision>()) {
        const AIToolDecisionTally& tally = tallies_[static_cast<std::size_t>(decision)];
        if (tally.count > 0) report_.decisionTallies.emplace(decision, tally);
    }
    for (const AIToolArtifactGroup group : allCases<AIToolArtifactGroup>()) {
        const AIToolGroupTotal& total = totals_[static_cast<std::size_t>(group)];
        if (total.fileCount > 0) report_.groupTotals.emplace(group, total);
    }
    sortBySize(report_.allChildren);
    for (auto& [name, inside] : report_.expandedChildren) sortBySize(inside);
    const auto shown = std::min(report_.allChildren.size(), AIToolAuditReport::maxLargestChildren);
    report_.largestChildren.assign(report_.allChildren.begin(),
                                   report_.allChildren.begin() +
                                       static_cast<std::ptrdiff_t>(shown));
    const auto take = [&](std::span<const AIToolRecognizer> rules) {
        for (const AIToolRecognizer& rule : rules) {
            const auto found = findings_.find(&rule);
            if (found == findings_.end()) continue;
            std::ranges::sort(found->second.artifacts, {}, &AIToolArtifact::relativePath);
            report_.ruleFindings.push_back(std::move(found->second));
        }
    };
    for (const AIToolCandidateRoot& root : layout_.candidateRoots) take(root.recognizers);
    for (const AIToolExternalStore& store : layout_.externalStores) take(store.recognizers);
}

} // namespace

std::expected<AIToolAuditReport, AIToolWalker::Error>
AIToolAuditor::audit(const AIToolHome& home, Timestamp now, const CancelToken& cancel) const {
    return Audit(options_, home, now, cancel).run();
}

} // namespace tidyro

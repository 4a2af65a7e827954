#include "StorageEngine/AITools/AIToolClassifier.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <map>
#include <mutex>
#include <span>
#include <tuple>
#include <utility>
#include <vector>

#include "Base/PathText.h"
#include "Base/UnicodeText.h"
#include "Platform/Files/FileMetadata.h"
#include "StorageEngine/Rules/ReviewRequiredScope.h"

namespace tidyro {

namespace {

using enum AIToolDecision;

using Components = std::span<const std::string>;

std::string loweredASCII(std::string_view text) {
    std::string lowered(text);
    std::ranges::transform(lowered, lowered.begin(), lowerASCII);
    return lowered;
}

bool isLockOrStaging(std::string_view lowered) {
    return lowered.ends_with(".lock") || lowered == "lock" || lowered.ends_with(".pid");
}

bool isDatabaseName(std::string_view lowered) {
    constexpr auto endings =
        std::to_array<std::string_view>({"-wal", "-shm", "-journal", ".wal", ".shm", ".journal"});
    constexpr auto extensions = std::to_array<std::string_view>(
        {"sqlite", "sqlite3", "db", "db3", "sqlitedb", "realm", "ldb", "mdb"});
    const auto isEnding = [&](std::string_view ending) { return lowered.ends_with(ending); };
    return std::ranges::any_of(endings, isEnding) ||
           std::ranges::find(extensions, path::extensionOf(lowered)) != extensions.end() ||
           lowered.find(".sqlite") != lowered.npos || lowered.find(".db-") != lowered.npos;
}

/// Some disks take names that differ in case or composition for one, so a protected name is
/// protected in all its forms. The tables are plain ASCII, which folds to lower case; this is asked
/// for each entry outside the candidate roots, so nothing is allocated.
bool isAmong(const AIToolLayout::Names& names, std::string_view name, std::string_view folded) {
    if (names.contains(name)) return true;
    return std::ranges::any_of(names, [&](const std::string& each) {
        return std::ranges::equal(each, folded, {}, lowerASCII);
    });
}

bool matchesAny(std::span<const std::string> patterns, std::string_view name,
                std::string_view folded) {
    return NamePattern::matchesAny(patterns, name) ||
           std::ranges::any_of(patterns, [&](const std::string& pattern) {
               return NamePattern::matches(loweredASCII(pattern), folded);
           });
}

AIToolDecision decisionOfTopLevel(const AIToolLayout& layout, std::string_view name) {
    const std::string folded = tidyro::folded(name);
    if (isAmong(layout.protectedNames, name, folded) ||
        matchesAny(layout.protectedTopLevelPatterns, name, folded)) {
        return namedProtectedState;
    }
    return isAmong(layout.conversationTopLevelNames, name, folded) ? conversationOrHistory
                                                                   : outsideAllowlist;
}

bool hasExtension(const AIToolRecognizer& rule, std::string_view name) {
    if (rule.extensions.empty()) return true;
    const std::string lowered = loweredASCII(name);
    if (rule.extensions.contains(path::extensionOf(lowered))) return true;
    return std::ranges::any_of(rule.extensions, [&](const std::string& extension) {
        return extension.find('.') != extension.npos && lowered.ends_with("." + extension) &&
               lowered.size() > extension.size() + 1;
    });
}

AIToolArtifactGroup groupOf(AIToolDecision decision) {
    switch (decision) {
    case namedProtectedState:
    case database:
    case lockOrStaging:
    case currentRuntime:
    case conversationOrHistory:
    case generalPolicy: return AIToolArtifactGroup::protectedState;
    default: return AIToolArtifactGroup::unknownOrUnavailable;
    }
}

AIToolClassification protectedBy(AIToolDecision decision) {
    return {.group = groupOf(decision), .decision = decision};
}

/// The part of a home, or the store, that an entry lies in.
struct Territory {
    const AIToolCandidateRoot* root = nullptr; ///< null in a store
    std::span<const AIToolRecognizer> recognizers;
    std::span<const std::string> protectedChildPatterns;
    AIToolDecision protectedDecision = lockOrStaging;
    bool hasVersions = false;
    Components below; ///< the entry's components below it
};

/// None where nothing may ever be cleaned.
std::optional<Territory> territoryOf(const AIToolLayout& layout, const AIToolLocation::Place& place,
                                     Components components) {
    if (place.storeIndex) {
        const AIToolExternalStore& store = layout.externalStores[*place.storeIndex];
        return Territory{.recognizers = store.recognizers,
                         .protectedChildPatterns = store.protectedChildPatterns,
                         .protectedDecision = store.protectedDecision,
                         .hasVersions = store.kind.launcherRelativePath.has_value(),
                         .below = components};
    }
    const AIToolCandidateRoot* root = layout.rootOf(components);
    if (root == nullptr) return std::nullopt;
    const auto depth = static_cast<std::size_t>(1 + std::ranges::count(root->relativePath, '/'));
    return Territory{.root = root,
                     .recognizers = root->recognizers,
                     .protectedChildPatterns = root->protectedChildPatterns,
                     .hasVersions = root->buildFolders || root->currentLink,
                     .below = components.subspan(depth)};
}

/// The decision that an entry's names alone lead to; none when a rule has to recognise it.
std::optional<AIToolDecision> decisionOfNames(const AIToolLayout& layout, Components components,
                                              const std::optional<Territory>& territory,
                                              const AIToolVersionState* versions) {
    if (!territory) {
        if (components.empty()) return outsideAllowlist; // the home itself
        return decisionOfTopLevel(layout, components.front());
    }
    // What lies in a folder that is named like a database or a lock belongs to it.
    std::optional<AIToolDecision> found;
    for (const std::string& component : territory->below) {
        const std::string lowered = loweredASCII(component);
        if (isDatabaseName(lowered)) return database;
        if (isLockOrStaging(lowered)) found = lockOrStaging;
    }
    if (found || territory->below.empty()) return found;
    const std::string& child = territory->below.front();
    if (matchesAny(territory->protectedChildPatterns, child, tidyro::folded(child))) {
        return territory->protectedDecision;
    }
    if (territory->hasVersions && (versions == nullptr || versions->isCurrent(child))) {
        return currentRuntime;
    }
    return std::nullopt;
}

const AIToolRecognizer* recognizerOf(const Territory& territory) {
    if (territory.below.empty()) return nullptr; // a root itself stays
    for (const AIToolRecognizer& rule : territory.recognizers) {
        if (NamePattern::matches(rule.pattern, territory.below) &&
            hasExtension(rule, territory.below.back())) {
            return &rule;
        }
    }
    return nullptr;
}

/// The tools make these repositories themselves, as scratch or from a plugin's source.
bool isOfRepositories(std::string_view ruleID) {
    return ruleID == "codex-tmp-git-scratch" || ruleID == "claude-removed-plugins";
}

} // namespace

bool AIToolDatabaseNames::isDatabaseOrSidecar(std::string_view name) {
    return isDatabaseName(loweredASCII(name));
}

double AIToolAgePolicy::effectiveMinimumAge(CleanupAgeFloor floor) {
    constexpr double day = 86'400;
    switch (floor) {
    case CleanupAgeFloor::everything: return 0;
    case CleanupAgeFloor::recommended: return day;
    case CleanupAgeFloor::ninetyDays: return 90 * day;
    case CleanupAgeFloor::sixMonths: return 182 * day; // not half of 365
    case CleanupAgeFloor::oneYear: break;
    }
    return 365 * day;
}

std::optional<AIToolDecision> AIToolClassifier::hold(const FileObservation& observation,
                                                     const AIToolCandidateRoot* root,
                                                     const Entry& entry) const {
    const bool isHeldByApp = root != nullptr && root->heldWhileAppRuns && options_.isToolAppRunning;
    if (isHeldByApp || options_.activity.isIncomplete ||
        options_.activity.isActive(observation.url.path())) {
        return inUseByProcess;
    }
    if (!observation.modificationDate) return futureTimestamp; // nobody knows its age
    Timestamp newest = *observation.modificationDate;
    if (options_.honorsStatusChange) {
        if (!entry.statusChangeDate) return futureTimestamp;
        newest = std::max(newest, *entry.statusChangeDate);
    }
    if (newest > options_.now) return futureTimestamp;
    const double age = options_.now.secondsSinceReference() - newest.secondsSinceReference();
    if (age < std::max(options_.minimumAge, AIToolAgePolicy::minAge)) return tooRecent;
    if (observation.linkCount > 1) return hardLinked;
    return std::nullopt;
}

AIToolClassification AIToolClassifier::classify(const FileObservation& observation,
                                                const AIToolLocation& at,
                                                const Entry& entry) const {
    if (entry.isSymbolicLink) return protectedBy(symbolicLink);
    if (observation.kind == FileKind::regularFile && !observation.isReadable) {
        return protectedBy(unreadable);
    }
    if (observation.kind == FileKind::other) return protectedBy(notARegularFile);

    const AIToolLayout& layout = options_.layouts[static_cast<std::size_t>(at.home.tool)];
    const auto territory = territoryOf(layout, at.place, at.components);
    if (const auto decision =
            decisionOfNames(layout, at.components, territory, entry.versionState)) {
        return protectedBy(*decision);
    }
    const AIToolRecognizer* rule = recognizerOf(*territory);
    if (rule == nullptr) return protectedBy(unrecognizedInsideAllowedRoot);

    const FileURL root = territory->root != nullptr
                             ? at.rootURL.appendingFolder(territory->root->relativePath)
                             : at.rootURL;
    AIToolClassification found{.group = rule->group,
                               .decision = rule->group == AIToolArtifactGroup::generatedWork
                                               ? eligibleForReview
                                               : eligibleDisposable,
                               .recognizerID = rule->ruleID,
                               .candidateRootURL = root};
    static const DeterministicSafetyPolicy policy(FileURL{}); // these checks know of no home
    if (policy.protectedAssessment(
            observation, options_.context,
            {.isNoApplicationData = true, .isNoProject = isOfRepositories(rule->ruleID)})) {
        found.group = AIToolArtifactGroup::protectedState;
        found.decision = generalPolicy;
        return found;
    }
    if (const auto held = hold(observation, territory->root, entry)) {
        found.decision = *held;
        return found;
    }
    found.candidate = CleanupCandidate{
        .observation = observation,
        .category = rule->category,
        .assessment = ReviewRequiredScope::capped(
            assessment(rule->group, layout.layoutVersion, displayName(layout.tool)),
            observation.url, rule->category, at.home.userHome),
        .authorization = CleanupAuthorization{
            authorization::AIToolRule{.toolID = std::string(rawValue(layout.tool)),
                                      .ruleID = rule->ruleID,
                                      .rootURL = root}}};
    return found;
}

AIToolClassifier::ByNames AIToolClassifier::byNames(const AIToolLayout& layout,
                                                    const AIToolLocation::Place& place,
                                                    std::span<const std::string> components,
                                                    const AIToolVersionState* versions) {
    const auto territory = territoryOf(layout, place, components);
    const auto decision = decisionOfNames(layout, components, territory, versions);
    return {.decision = decision,
            .recognizer = territory && !decision ? recognizerOf(*territory) : nullptr,
            .below = territory ? territory->below : Components()};
}

std::optional<Timestamp> AIToolClassifier::statusChangeDate(const FileURL& of) {
    const auto seen = platform::fileMetadata(of.path());
    return seen ? seen->changed : std::nullopt;
}

SafetyPolicyContext AIToolClassifier::context(const AIToolHome& forHome,
                                              const SafetyPolicyContext& machine) {
    SafetyPolicyFacts facts = machine.facts();
    std::vector<std::string> own{forHome.url.path()};
    for (const AIToolExternalStore& store : forHome.layout().externalStores) {
        own.push_back(forHome.userHome.appending(store.relativeToUserHome).path());
    }
    std::erase_if(facts.activeApplicationRoots, [&](const FileURL& root) {
        return std::ranges::any_of(own, [&](const std::string& place) {
            return path::isInsideOrEqual(root.path(), place) ||
                   path::isInsideOrEqual(place, root.path());
        });
    });
    return machine.with(std::move(facts));
}

RiskAssessment AIToolClassifier::assessment(AIToolArtifactGroup group,
                                            std::string_view layoutVersion,
                                            std::string_view toolName) {
    using Key = std::tuple<AIToolArtifactGroup, std::string, std::string>;
    static std::mutex mutex;
    static std::map<Key, RiskAssessment> known;
    const std::lock_guard lock(mutex);
    Key key{group, layoutVersion, toolName};
    if (const auto found = known.find(key); found != known.end()) return found->second;
    const std::string tool(toolName);
    const std::string rules = " rule (" + std::string(layoutVersion) + ")";
    const std::string inRules = "(rules " + std::string(layoutVersion) + ")";
    using enum EvidenceCode;
    RiskAssessment made{.tier = RiskTier::protected_, .evidence = {.codes = {}, .summary = {}}};
    switch (group) {
    case AIToolArtifactGroup::disposableCache:
        made = {
            .tier = RiskTier::safeToReclaim,
            .evidence = {.codes = {verifiedBuiltInRule, regenerable, oldEnough, inactive,
                                   currentUserOwned, internalLocalVolume},
                         .summary = SharedText::made("A verified " + tool + rules +
                                                     " recognises this as an old, unused cache or "
                                                     "scratch file.")}};
        break;
    case AIToolArtifactGroup::generatedWork:
        made = {
            .tier = RiskTier::reviewCarefully,
            .evidence = {.codes = {verifiedBuiltInRule, userReviewRequired, oldEnough, inactive,
                                   currentUserOwned, internalLocalVolume},
                         .summary = SharedText::made(tool + " made this for you " + inRules +
                                                     ". Review it before removing; it may not come "
                                                     "back the same.")}};
        break;
    case AIToolArtifactGroup::protectedState:
        made.evidence = {.codes = {protectedLocation},
                         .summary = SharedText::made(tool + " keeps its own state here " + inRules +
                                                     ". Tidyro never removes it.")};
        break;
    case AIToolArtifactGroup::unknownOrUnavailable:
        made.evidence = {.codes = {unknownPurpose},
                         .summary = SharedText::made("The " + tool + " rules (" +
                                                     std::string(layoutVersion) +
                                                     ") do not recognise this, so Tidyro leaves it "
                                                     "alone.")};
        break;
    }
    return known.emplace(std::move(key), std::move(made)).first->second;
}

} // namespace tidyro

#include "StorageEngine/AITools/AIToolClassifier.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
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

/// A name in lower case, as far as it is ASCII. Every component of every entry is asked for, so a
/// name of usual length allocates nothing.
class LoweredName {
  public:
    explicit LoweredName(std::string_view name) {
        if (name.size() > inline_.size()) longer_ = name;
        char* lowered = longer_.empty() ? inline_.data() : longer_.data();
        std::ranges::transform(name, lowered, lowerASCII);
        text_ = {lowered, name.size()};
    }
    LoweredName(const LoweredName&) = delete;
    LoweredName& operator=(const LoweredName&) = delete;

    [[nodiscard]] std::string_view text() const { return text_; }

  private:
    std::array<char, 256> inline_; // NOLINT(cppcoreguidelines-pro-type-member-init)
    std::string longer_;
    std::string_view text_;
};

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
               return NamePattern::matches(LoweredName(pattern).text(), folded);
           });
}

bool hasExtension(const AIToolRecognizer& rule, std::string_view name) {
    if (rule.extensions.empty()) return true;
    const LoweredName lowered(name);
    const std::string_view text = lowered.text();
    if (rule.extensions.contains(path::extensionOf(text))) return true;
    return std::ranges::any_of(rule.extensions, [&](const std::string& extension) {
        return extension.find('.') != extension.npos && text.size() > extension.size() + 1 &&
               text.ends_with(extension) && text[text.size() - extension.size() - 1] == '.';
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

AIToolClassifier::Verdict protectedBy(AIToolDecision decision) {
    return {.group = groupOf(decision), .decision = decision};
}

FileURL candidateRootURL(const AIToolLocation& at, const AIToolCandidateRoot* root) {
    return root != nullptr ? at.rootURL.appendingFolder(root->relativePath) : at.rootURL;
}

std::size_t depthOf(const AIToolCandidateRoot& root) {
    return static_cast<std::size_t>(1 + std::ranges::count(root.relativePath, '/'));
}

/// Whether an entry of a home is a candidate root itself.
bool isCandidateRoot(const AIToolLayout& layout, Components components) {
    const AIToolCandidateRoot* root = layout.rootOf(components);
    return root != nullptr && depthOf(*root) == components.size();
}

const AIToolRecognizer* recognizerOf(std::span<const AIToolRecognizer> rules, Components below) {
    for (const AIToolRecognizer& rule : rules) {
        if (NamePattern::matches(rule.pattern, below) && hasExtension(rule, below.back())) {
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
    return isDatabaseName(LoweredName(name).text());
}

AIToolDecision AIToolClassifier::decisionOfTopLevel(const AIToolLayout& layout,
                                                    std::string_view name) {
    const std::string folded = tidyro::folded(name);
    if (isAmong(layout.protectedNames, name, folded) ||
        matchesAny(layout.protectedTopLevelPatterns, name, folded)) {
        return namedProtectedState;
    }
    return isAmong(layout.conversationTopLevelNames, name, folded) ? conversationOrHistory
                                                                   : outsideAllowlist;
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

AIToolClassifier::Names AIToolClassifier::namesOf(const AIToolLayout& layout,
                                                  const AIToolLocation::Place& place,
                                                  Components components,
                                                  const AIToolVersionState* versions) {
    Names names;
    const Components folder = components.first(components.size() - 1);
    if (place.storeIndex) {
        const AIToolExternalStore& store = layout.externalStores[*place.storeIndex];
        names = {.isInTerritory = true,
                 .recognizers = store.recognizers,
                 .protectedChildPatterns = store.protectedChildPatterns,
                 .protectedDecision = store.protectedDecision,
                 .hasVersions = store.kind.launcherRelativePath.has_value()};
    } else if (const AIToolCandidateRoot* root = layout.rootOf(folder)) {
        names = {.isInTerritory = true,
                 .root = root,
                 .recognizers = root->recognizers,
                 .protectedChildPatterns = root->protectedChildPatterns,
                 .hasVersions = root->buildFolders || root->currentLink,
                 .depth = depthOf(*root)};
    } else {
        if (!folder.empty()) names.decision = decisionOfTopLevel(layout, folder.front());
    }
    names.mayHoldRoots =
        !place.storeIndex && std::ranges::any_of(layout.candidateRoots, [&](const auto& root) {
            return depthOf(root) == components.size();
        });
    if (!names.isInTerritory) return names;
    // What lies in a folder that is named like a database or a lock belongs to it.
    for (const std::string& component : folder.subspan(names.depth)) {
        const LoweredName lowered(component);
        names.hasDatabase = names.hasDatabase || isDatabaseName(lowered.text());
        names.hasLock = names.hasLock || isLockOrStaging(lowered.text());
    }
    if (folder.size() > names.depth) {
        names.decision = decisionOfChild(names, folder[names.depth], versions);
    }
    return names;
}

const AIToolClassifier::Names&
AIToolClassifier::LastFolder::namesOf(const AIToolLayout& layout,
                                      const AIToolLocation::Place& place, Components components,
                                      const AIToolVersionState* versions) {
    const Components folder = components.first(components.size() - 1);
    if (layout_ != &layout || versions_ != versions || place_ != place ||
        !std::ranges::equal(components_, folder)) {
        layout_ = &layout;
        versions_ = versions;
        place_ = place;
        components_.assign(folder.begin(), folder.end());
        names_ = AIToolClassifier::namesOf(layout, place, components, versions);
    }
    return names_;
}

/// The decision for a child of a root or store and for all below it; none when a rule has to
/// recognise it.
std::optional<AIToolDecision>
AIToolClassifier::decisionOfChild(const Names& names, const std::string& child,
                                  const AIToolVersionState* versions) {
    if (matchesAny(names.protectedChildPatterns, child, tidyro::folded(child))) {
        return names.protectedDecision;
    }
    if (names.hasVersions && (versions == nullptr || versions->isCurrent(child))) {
        return currentRuntime;
    }
    return std::nullopt;
}

/// The decision that names alone lead to; none when a rule has to recognise the entry, which is no
/// candidate root itself.
std::optional<AIToolDecision>
AIToolClassifier::decisionOfNames(const AIToolLayout& layout, Components components,
                                  const Names& above, const AIToolVersionState* versions) {
    const std::string& name = components.back();
    if (!above.isInTerritory) {
        return above.decision ? above.decision : decisionOfTopLevel(layout, name);
    }
    const LoweredName lowered(name);
    if (above.hasDatabase || isDatabaseName(lowered.text())) return database;
    if (above.hasLock || isLockOrStaging(lowered.text())) return lockOrStaging;
    const bool isChild = components.size() == above.depth + 1;
    return isChild ? decisionOfChild(above, name, versions) : above.decision;
}

AIToolClassifier::ByNames AIToolClassifier::byNames(const AIToolLayout& layout,
                                                    const AIToolLocation::Place& place,
                                                    Components components,
                                                    const AIToolVersionState* versions) {
    return byNames(layout, place, components, versions, nullptr);
}

AIToolClassifier::ByNames AIToolClassifier::byNames(const AIToolLayout& layout,
                                                    const AIToolLocation::Place& place,
                                                    Components components,
                                                    const AIToolVersionState* versions,
                                                    LastFolder* last) {
    if (components.empty()) { // the home itself, or a store
        if (place.storeIndex) return {};
        return {.decision = outsideAllowlist};
    }
    const Names own = last == nullptr ? namesOf(layout, place, components, versions) : Names{};
    const Names& above = last == nullptr ? own : last->namesOf(layout, place, components, versions);
    // Whatever holds above a candidate root, in it only its own rules count.
    if (above.mayHoldRoots && isCandidateRoot(layout, components)) return {};
    ByNames told{.decision = decisionOfNames(layout, components, above, versions),
                 .below = above.isInTerritory ? components.subspan(above.depth) : Components(),
                 .root = above.root};
    if (!told.decision) told.recognizer = recognizerOf(above.recognizers, told.below);
    return told;
}

std::optional<AIToolDecision> AIToolClassifier::hold(const FileObservation& observation,
                                                     const AIToolLocation& at,
                                                     const AIToolCandidateRoot* root,
                                                     const Entry& entry) const {
    const ToolActivitySnapshot& activity = options_.activity;
    const bool isHeldByApp = root != nullptr && root->heldWhileAppRuns && options_.isToolAppRunning;
    if (isHeldByApp || activity.isIncomplete || activity.isActive(observation.url.path())) {
        return inUseByProcess;
    }
    // Who works in one of the root's folders may reach for anything in it.
    if (!activity.workingDirectories.empty() &&
        activity.isWorkedIn(candidateRootURL(at, root).path())) {
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

AIToolClassifier::Verdict AIToolClassifier::rate(const FileObservation& observation,
                                                 const AIToolLocation& at,
                                                 const Entry& entry) const {
    if (entry.isSymbolicLink) return protectedBy(symbolicLink);
    if (entry.isInaccessible) return protectedBy(inaccessible);
    if (observation.kind == FileKind::regularFile && !observation.isReadable) {
        return protectedBy(unreadable);
    }
    if (observation.kind == FileKind::other) return protectedBy(notARegularFile);

    const AIToolLayout& layout = options_.layouts[static_cast<std::size_t>(at.home.tool)];
    const ByNames told =
        byNames(layout, at.place, at.components, entry.versionState, entry.lastFolder);
    if (told.decision) return protectedBy(*told.decision);
    const AIToolRecognizer* rule = told.recognizer;
    if (rule == nullptr) return protectedBy(unrecognizedInsideAllowedRoot);
    if (entry.isInDatabase) return protectedBy(database);

    Verdict found{.group = rule->group,
                  .decision = rule->group == AIToolArtifactGroup::generatedWork
                                  ? eligibleForReview
                                  : eligibleDisposable,
                  .rule = rule,
                  .root = told.root};
    static const DeterministicSafetyPolicy policy(FileURL{}); // these checks know of no home
    if (policy.protectedAssessment(
            observation, options_.context,
            {.isNoApplicationData = true, .isNoProject = isOfRepositories(rule->ruleID)})) {
        found.group = AIToolArtifactGroup::protectedState;
        found.decision = generalPolicy;
    } else if (const auto held = hold(observation, at, told.root, entry)) {
        found.decision = *held;
    }
    return found;
}

AIToolClassification AIToolClassifier::classify(const FileObservation& observation,
                                                const AIToolLocation& at,
                                                const Entry& entry) const {
    const Verdict found = rate(observation, at, entry);
    AIToolClassification told{.group = found.group, .decision = found.decision};
    if (found.rule == nullptr) return told;
    const AIToolLayout& layout = options_.layouts[static_cast<std::size_t>(at.home.tool)];
    told.recognizerID = found.rule->ruleID;
    told.candidateRootURL = candidateRootURL(at, found.root);
    if (found.decision == eligibleDisposable || found.decision == eligibleForReview) {
        told.candidate = candidate(observation, {.tool = layout.tool,
                                                 .userHome = at.home.userHome,
                                                 .layoutVersion = layout.layoutVersion,
                                                 .ruleID = found.rule->ruleID,
                                                 .group = found.rule->group,
                                                 .category = found.rule->category,
                                                 .candidateRootURL = *told.candidateRootURL});
    }
    return told;
}

CleanupCandidate AIToolClassifier::candidate(FileObservation observation, const Eligible& by) {
    RiskAssessment capped =
        ReviewRequiredScope::capped(assessment(by.group, by.layoutVersion, displayName(by.tool)),
                                    observation.url, by.category, by.userHome);
    return {.observation = std::move(observation),
            .category = by.category,
            .assessment = std::move(capped),
            .authorization = CleanupAuthorization{
                authorization::AIToolRule{.toolID = std::string(rawValue(by.tool)),
                                          .ruleID = std::string(by.ruleID),
                                          .rootURL = by.candidateRootURL}}};
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
    static std::map<Key, RiskAssessment, std::less<>> known;
    const std::lock_guard lock(mutex);
    if (const auto found = known.find(std::tuple(group, layoutVersion, toolName));
        found != known.end()) {
        return found->second;
    }
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
    return known.emplace(Key{group, layoutVersion, toolName}, std::move(made)).first->second;
}

} // namespace tidyro

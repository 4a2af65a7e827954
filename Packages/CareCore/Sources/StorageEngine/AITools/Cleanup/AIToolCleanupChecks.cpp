#include "StorageEngine/AITools/Cleanup/AIToolCleanupChecks.h"

#include <chrono>
#include <map>
#include <string>
#include <utility>
#include <variant>

#include "Base/Cases.h"
#include "Base/PathText.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderReading.h"
#include "StorageEngine/AITools/AIToolClassifier.h"
#include "StorageEngine/Observation/FileObserver.h"
#include "StorageEngine/Places/FolderResolver.h"

namespace tidyro {

namespace {

using enum RevalidationIssue;
using Issue = std::optional<RevalidationIssue>; ///< none: nothing stands against the item

/// The reasons of a classifier, for an item that was eligible when it was audited.
RevalidationIssue issueFor(AIToolDecision decision) {
    switch (decision) {
    case AIToolDecision::inUseByProcess: return inUseByProcess;
    case AIToolDecision::tooRecent:
    case AIToolDecision::hardLinked: return itemChanged;
    case AIToolDecision::futureTimestamp: return authoritativePolicyMismatch; // the clock went back
    case AIToolDecision::unreadable:
    case AIToolDecision::inaccessible: return observationFailed;
    default: return protectedEntry;
    }
}

bool isEligible(AIToolDecision decision) {
    return decision == AIToolDecision::eligibleDisposable ||
           decision == AIToolDecision::eligibleForReview;
}

const authorization::AIToolRule* claimIn(const std::optional<CleanupAuthorization>& claimed) {
    return claimed ? std::get_if<authorization::AIToolRule>(&casesOf(*claimed)) : nullptr;
}

bool isRealFolder(const std::string& path) {
    const auto seen = platform::fileMetadata(path);
    return seen && seen->kind == platform::ItemKind::folder;
}

} // namespace

struct AIToolCleanupChecks::Body {
    /// What is known of one home at one moment.
    struct Home {
        const AIToolHome& home;
        bool isValid;
        AIToolClassifier classifier;
        FileObserver observer;
        bool isToolAppRunning;
        /// By the store, or else by the candidate root.
        std::map<std::pair<std::optional<std::size_t>, const AIToolCandidateRoot*>,
                 std::optional<AIToolVersionState>>
            versions = {};
        std::map<std::string, std::optional<std::string>> realRoots = {};
    };
    struct Moment {
        double takenAt; ///< steady seconds
        Timestamp at;
        const SafetyPolicyContext* given; ///< whose copy the homes have; null for an own one
        ToolActivitySnapshot activity;
        std::vector<Home> homes = {};
        FolderResolver resolver = {};
        AIToolLastLook look;
    };
    struct Verdict {
        AIToolClassification found;
        const AIToolRecognizer* rule; ///< that of the claim
        bool isHeldByApp;
    };

    Options options;
    std::unique_ptr<Moment> last = nullptr;

    [[nodiscard]] bool isFresh(const SafetyPolicyContext* given,
                               std::optional<Timestamp> at) const {
        if (last == nullptr || options.steadySeconds() - last->takenAt >= maxAge) return false;
        return (given == nullptr || given == last->given) && (!at || *at == last->at);
    }

    /// Null when the machine tells nothing.
    [[nodiscard]] Moment* moment(const SafetyPolicyContext* given, std::optional<Timestamp> at) {
        if (isFresh(given, at)) return last.get();
        last.reset();
        std::shared_ptr<const SafetyPolicyContext> own;
        if (given == nullptr && options.freshContext) own = options.freshContext();
        const SafetyPolicyContext* context = given != nullptr ? given : own.get();
        if (context == nullptr) return nullptr;
        const Timestamp now = at ? *at : options.clock();
        auto made = std::make_unique<Moment>(Moment{.takenAt = options.steadySeconds(),
                                                    .at = now,
                                                    .given = given,
                                                    .activity = options.activityProvider.snapshot(),
                                                    .look = AIToolLastLook(options.veto)});
        made->homes.reserve(options.homes.size());
        // Processes have their files by real paths; a home is written as the person has it.
        for (const AIToolHome& home : options.homes) {
            made->activity.addWritten(home.url.path());
            for (const auto& [index, store] : home.validExternalStores()) {
                made->activity.addWritten(store.path());
            }
        }
        for (const AIToolHome& home : options.homes) {
            const AIToolHomeDiscovery discovery{.userHome = home.userHome};
            const auto validated = discovery.validate(home.url, home.tool, home.source);
            // As in an audit, whoever has a file of the home open is taken for the application.
            const bool isRunning = made->activity.isRunning(home.layout().runningAppMarkers) ||
                                   made->activity.isActive(home.url.path());
            made->homes.push_back(
                {.home = home,
                 .isValid = validated && *validated == home,
                 .classifier = AIToolClassifier(
                     {.minimumAge = AIToolAgePolicy::effectiveMinimumAge(options.ageFloor),
                      .context = AIToolClassifier::context(home, *context),
                      .activity = made->activity,
                      .now = now,
                      .honorsStatusChange = options.honorsStatusChange,
                      .isToolAppRunning = isRunning}),
                 .observer = FileObserver(home.userHome, options.volumes),
                 .isToolAppRunning = isRunning});
        }
        last = std::move(made);
        return last.get();
    }

    /// Where the root of a home or store really lies; none when it is a link or is gone.
    [[nodiscard]] static const std::optional<std::string>& realRoot(Home& known,
                                                                    const std::string& root) {
        const auto found = known.realRoots.find(root);
        if (found != known.realRoots.end()) return found->second;
        return known.realRoots
            .emplace(root, isRealFolder(root) ? FolderResolver::resolved(root) : std::nullopt)
            .first->second;
    }

    /// Whether the item is reached from its home or store without a link.
    [[nodiscard]] static bool isReachedWithoutLinks(Moment& now, Home& known,
                                                    const AIToolLocation& at, const FileURL& item) {
        const auto& root = realRoot(known, at.rootURL.path());
        if (!root || at.components.empty()) return false;
        const std::string_view folder = path::parent(item.path());
        const std::string_view below = path::below(folder, at.rootURL.path());
        return now.resolver.isReallyAt(folder, below.empty() ? *root : path::joined(*root, below));
    }

    [[nodiscard]] const std::optional<AIToolVersionState>&
    versions(const Moment& now, Home& known, const AIToolLocation& at) const {
        const AIToolCandidateRoot* root =
            at.place.storeIndex ? nullptr : at.layout().rootOf(at.components);
        const auto key = std::pair(at.place.storeIndex, root);
        const auto found = known.versions.find(key);
        if (found != known.versions.end()) return found->second;
        return known.versions.emplace(key, AIToolVersionState::forBuildFolder(at, now.activity))
            .first->second;
    }

    /// What the classifier says of an item, by the home that the claim speaks of. None when the
    /// claim holds for no known home, whatever the item is.
    [[nodiscard]] std::optional<Verdict> verdict(Moment& now,
                                                 const authorization::AIToolRule& claim,
                                                 const FileObservation& observed) const {
        const auto tool = fromRawValue<AIToolID>(claim.toolID);
        if (!tool) return std::nullopt;
        for (Home& known : now.homes) {
            if (known.home.tool != *tool) continue;
            const auto rule = known.home.layout().recognizer(claim.ruleID);
            const auto at = known.home.locate(observed.url);
            if (!rule || !at || rule->storeIndex != at->place.storeIndex) continue;
            const FileURL root = rule->root != nullptr
                                     ? at->rootURL.appendingFolder(rule->root->relativePath)
                                     : at->rootURL;
            if (root.path() != claim.rootURL.path()) continue;
            if (!known.isValid || !known.home.stillIdentified()) continue;
            if (!isReachedWithoutLinks(now, known, *at, observed.url)) continue;
            const auto& state = versions(now, known, *at);
            const std::string folder(path::parent(observed.url.path()));
            auto found = known.classifier.classify(
                observed, *at,
                {.isInDatabase = known.observer.surroundings(folder).isInDatabase,
                 .versionState = state ? &*state : nullptr,
                 .statusChangeDate = AIToolClassifier::statusChangeDate(observed.url)});
            if (isEligible(found.decision)) {
                const bool isByTheClaim = found.recognizerID == claim.ruleID &&
                                          found.candidateRootURL &&
                                          found.candidateRootURL->path() == claim.rootURL.path();
                if (!isByTheClaim) return std::nullopt;
            }
            const bool isHeldByApp =
                rule->root != nullptr && rule->root->heldWhileAppRuns && known.isToolAppRunning;
            return Verdict{std::move(found), rule->recognizer, isHeldByApp};
        }
        return std::nullopt;
    }

    [[nodiscard]] Issue issue(Moment& now, const authorization::AIToolRule& claim,
                              const FileObservation& observed, const RiskTier& tier,
                              const CleanupEvidence& evidence) const {
        const auto judged = verdict(now, claim, observed);
        if (!judged) return protectedEntry;
        const AIToolClassification& found = judged->found;
        if (!isEligible(found.decision)) {
            // The machine's policy says only that an item in use is protected.
            const bool isInUse = found.decision == AIToolDecision::generalPolicy &&
                                 now.activity.isActive(observed.url.path());
            if (isInUse) return inUseByProcess;
            return found.decision == AIToolDecision::inUseByProcess && judged->isHeldByApp
                       ? runtimeRestriction
                       : issueFor(found.decision);
        }
        if (!found.candidate) return protectedEntry;
        // The evidence names the version of the layout.
        const RiskAssessment& assessment = found.candidate->assessment;
        if (assessment.tier != tier || assessment.evidence != evidence) {
            return authoritativePolicyMismatch;
        }
        if (found.decision == AIToolDecision::eligibleForReview) return std::nullopt;
        const auto vetoed = now.look.reason(*judged->rule, claim.rootURL, observed.url);
        if (!vetoed) return std::nullopt;
        return vetoed == AIToolVeto::Reason::unreadable ? observationFailed : protectedEntry;
    }
};

AIToolCleanupChecks::AIToolCleanupChecks(Options options)
    : body_(std::make_unique<Body>(Body{.options = std::move(options)})) {
    if (!body_->options.steadySeconds) {
        body_->options.steadySeconds = [] {
            const auto since = std::chrono::steady_clock::now().time_since_epoch();
            return std::chrono::duration<double>(since).count();
        };
    }
}
AIToolCleanupChecks::~AIToolCleanupChecks() = default;

void AIToolCleanupChecks::setHomes(std::vector<AIToolHome> homes) {
    body_->last.reset(); // it speaks of those that were known
    body_->options.homes = std::move(homes);
}

bool AIToolCleanupChecks::covers(const authorization::AIToolRule& rule, const FileURL& item) const {
    Body::Moment* now = body_->moment(nullptr, std::nullopt);
    if (now == nullptr) return false;
    for (Body::Home& known : now->homes) {
        if (!known.home.locate(item)) continue;
        const auto observed = known.observer.observation(item);
        const auto judged = observed ? body_->verdict(*now, rule, *observed) : std::nullopt;
        return judged && isEligible(judged->found.decision);
    }
    return false;
}

Issue AIToolCleanupChecks::issue(const CleanupPlanEntry& entry, const FileObservation& observed,
                                 const SafetyPolicyContext& context, Timestamp at) {
    const authorization::AIToolRule* claim = claimIn(entry.authorization);
    if (claim == nullptr) return protectedEntry;
    Body::Moment* now = body_->moment(&context, at);
    if (now == nullptr) return observationFailed;
    return body_->issue(*now, *claim, observed, entry.proofCard.riskTier, entry.proofCard.evidence);
}

Issue AIToolCleanupChecks::issueOf(const CleanupCandidate& candidate, Timestamp at) {
    const authorization::AIToolRule* claim = claimIn(candidate.authorization);
    if (claim == nullptr) return protectedEntry;
    Body::Moment* now = body_->moment(nullptr, at);
    if (now == nullptr) return observationFailed;
    const FileURL& item = candidate.observation.url;
    for (Body::Home& known : now->homes) {
        if (!known.home.locate(item)) continue;
        const auto observed = known.observer.observation(item);
        if (!observed) {
            return platform::hasVanished(observed.error()) ? itemMissing : observationFailed;
        }
        const bool isSame =
            FileFingerprint::fromObservation(candidate.observation).matches(*observed) &&
            observed->creationDate == candidate.observation.creationDate;
        if (!isSame) return itemChanged;
        return body_->issue(*now, *claim, *observed, candidate.assessment.tier,
                            candidate.assessment.evidence);
    }
    return protectedEntry;
}

const ToolActivitySnapshot* AIToolCleanupChecks::activity() {
    const Body::Moment* now = body_->moment(nullptr, std::nullopt);
    return now != nullptr ? &now->activity : nullptr;
}

} // namespace tidyro

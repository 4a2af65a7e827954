#include "StorageEngine/Safety/DeterministicSafetyPolicy.h"

#include <algorithm>
#include <array>
#include <utility>

#include "Base/PathText.h"
#include "Platform/Folders/FolderChanges.h"
#include "StorageEngine/Observation/LiveDataDetector.h"
#include "StorageEngine/Places/SystemPlaces.h"
#include "StorageEngine/Rules/BuiltInRuleRegistry.h"
#include "StorageEngine/Rules/ReviewRequiredScope.h"

namespace tidyro {

namespace {

constexpr char applicationDataStays[] =
    "Application Support data is review-only and cannot be inferred as temporary.";

/// Downloads are not among them: they are rated by their category.
constexpr std::array<std::string_view, 5> personalFolders{"desktop", "documents", "movies", "music",
                                                          "pictures"};

RiskAssessment protectedFor(EvidenceCode code, SharedText summary) {
    return {.tier = RiskTier::protected_,
            .evidence = {.codes = {code}, .summary = std::move(summary)}};
}

RiskAssessment safeAssessment() {
    using enum EvidenceCode;
    return {.tier = RiskTier::safeToReclaim,
            .evidence = {.codes = {verifiedBuiltInRule, regenerable, oldEnough, currentUserOwned,
                                   internalLocalVolume, inactive},
                         .summary =
                             "A verified built-in rule identifies this as old, inactive, and "
                             "regenerable."}};
}

RiskAssessment mayBeInUseAssessment() {
    using enum EvidenceCode;
    return {.tier = RiskTier::reviewCarefully,
            .evidence = {.codes = {verifiedBuiltInRule, regenerable, oldEnough, currentUserOwned,
                                   internalLocalVolume, userReviewRequired},
                         .summary = "This is old and regenerable, but Tidyro runs in a container "
                                    "or sandbox, and a program outside may be using it."}};
}

RiskAssessment fetchedByToolAssessment() {
    using enum EvidenceCode;
    return {.tier = RiskTier::reviewCarefully,
            .evidence = {.codes = {verifiedBuiltInRule, regenerable, oldEnough, currentUserOwned,
                                   internalLocalVolume, inactive, userReviewRequired},
                         .summary = "A package manager fetched this repository for itself and "
                                    "fetches it again. Make sure that nothing in it is yours."}};
}

RiskAssessment reviewOnly(CleanupCategory category) {
    EvidenceCodes codes{EvidenceCode::userReviewRequired};
    if (category == CleanupCategory::exactDuplicate) codes.insert(EvidenceCode::exactByteDuplicate);
    return {
        .tier = RiskTier::reviewCarefully,
        .evidence = {.codes = codes,
                     .summary = "This item is review-only and is never selected by Clean Safely."}};
}

std::optional<RiskAssessment> protectedAsPart(PartOf whole) {
    switch (whole) {
    case PartOf::nothing:
    case PartOf::toolCheckout: return std::nullopt;
    case PartOf::database:
        return protectedFor(EvidenceCode::liveDataStore,
                            SharedText::lasting(explanation(LiveDataSignal::database)));
    case PartOf::repository:
        return protectedFor(EvidenceCode::projectRepository,
                            "This is part of a project's history, which breaks without it.");
    case PartOf::environment:
        return protectedFor(EvidenceCode::projectContent,
                            "This is part of an environment of programs, which breaks without "
                            "it.");
    }
    return std::nullopt;
}

bool isReviewOnly(CleanupCategory category) {
    return category == CleanupCategory::download || category == CleanupCategory::exactDuplicate ||
           category == CleanupCategory::largeFile || category == CleanupCategory::applicationBundle;
}

bool isPersonal(const LoweredPath& path) {
    return path.hasComponent([](std::string_view component) {
        return std::ranges::find(personalFolders, component) != personalFolders.end();
    });
}

bool isApplicationData(const LoweredPath& path, bool isFolder) {
    return path.text().find("/library/application support/") != std::string_view::npos &&
           !BuiltInRuleRegistry::isApplicationSupportCache(path.text(), isFolder);
}

bool hasDownloads(std::string_view path) {
    return LoweredPath(path).hasComponent(
        [](std::string_view component) { return component == "downloads"; });
}

/// Whether a path says "downloads" by the root of its rule alone: then it is what the rule says,
/// and no person put it there.
bool isDownloadOfItsRule(std::string_view path, const CleanupRule& rule, const FileURL& home) {
    if (!path::isInsideOrEqual(rule.rootPath(), home.path())) return false;
    if (path.size() <= rule.rootPrefix().size() || hasDownloads(home.path())) return false;
    return !hasDownloads(path.substr(rule.rootPrefix().size()));
}

bool isBuildStore(const LoweredPath& path) {
    constexpr std::string_view derivedData = "/library/developer/xcode/deriveddata/";
    const std::size_t at = path.text().find(derivedData);
    if (at == std::string_view::npos) return false;
    const std::string_view rest = path.text().substr(at + derivedData.size());
    const std::string_view first = rest.substr(0, rest.find('/'));
    const std::string_view behind = rest.substr(std::min(first.size() + 1, rest.size()));
    return first == "compilationcache.noindex" ||
           behind.substr(0, behind.find('/')) == "sourcepackages";
}

CleanupCategory categoryOf(const FileObservation& observation, const LoweredPath& path) {
    if (observation.isCloudPlaceholder) return CleanupCategory::cloudPlaceholder;
    if (observation.isInProjectRepository) return CleanupCategory::projectRepository;
    if (observation.isBackupArtifact) return CleanupCategory::backup;
    bool isInCaches = false;
    bool isInLogs = false;
    const bool isDownload = path.hasComponent([&](std::string_view component) {
        isInCaches = isInCaches || component == "caches";
        isInLogs = isInLogs || component == "logs";
        return component == "downloads";
    });
    if (isDownload) return CleanupCategory::download;
    if (isInCaches) return CleanupCategory::regenerableCache;
    return isInLogs ? CleanupCategory::expiredLog : CleanupCategory::unknown;
}

} // namespace

DeterministicSafetyPolicy::DeterministicSafetyPolicy(FileURL home)
    : home_(std::move(home)),
      homePrefix_(loweredHomePrefix(home_)),
      kept_(home_),
      bases_(BaseFolders::ofKeptPlaces(home_)),
      safe_(safeAssessment()),
      reviewRequired_(ReviewRequiredScope::downgraded(safe_)),
      fetchedByTool_(fetchedByToolAssessment()),
      mayBeInUse_(mayBeInUseAssessment()) {}

CleanupCategory DeterministicSafetyPolicy::category(const FileObservation& observation) {
    return categoryOf(observation, LoweredPath(observation.url.path()));
}

bool DeterministicSafetyPolicy::isSystemProtected(const FileURL& url) {
    return std::ranges::any_of(SystemPlaces::protectedFromRules(), [&](std::string_view root) {
        return path::isInsideOrEqual(url.path(), root);
    });
}

bool DeterministicSafetyPolicy::isPersonalProtected(const FileURL& url) {
    return isPersonal(LoweredPath(url.path()));
}

bool DeterministicSafetyPolicy::isApplicationSupport(const FileURL& url) {
    return isApplicationData(LoweredPath(url.path()), url.isFolder());
}

bool DeterministicSafetyPolicy::isNonRegeneratingBuildStore(const FileURL& url) {
    return isBuildStore(LoweredPath(url.path()));
}

const CleanupRule*
DeterministicSafetyPolicy::mostSpecificMatchingRule(std::string_view path,
                                                    std::span<const CleanupRule> rules) {
    const CleanupRule* best = nullptr;
    for (const CleanupRule& rule : rules) {
        if ((best == nullptr || rule.rootDepth() > best->rootDepth()) && rule.matches(path)) {
            best = &rule;
        }
    }
    return best;
}

void DeterministicSafetyPolicy::remember(LastFolder& last, std::string_view path,
                                         const LoweredPath& lowered,
                                         const Question& question) const {
    const std::span<const CleanupRule> rules = question.rules;
    const ToolStateFence* toolState = question.context.toolState();
    const std::string_view folder = path::parent(path);
    const std::string_view loweredFolder = path::parent(lowered.text());
    if (last.policy_ == this && last.toolState_ == toolState &&
        last.rules_.data() == rules.data() && last.rules_.size() == rules.size() &&
        last.path_ == folder && last.loweredPath_ == loweredFolder) {
        return;
    }
    last.policy_ = this;
    last.rules_ = rules;
    last.path_ = folder;
    last.loweredPath_ = loweredFolder;
    last.rule_ = mostSpecificMatchingRule(folder, rules);
    last.hasRootInIt_ = std::ranges::any_of(
        rules, [&](const CleanupRule& rule) { return path::parent(rule.rootPath()) == folder; });
    last.toolState_ = toolState;
    last.isNearToolState_ = toolState != nullptr && toolState->isNear(loweredFolder);
    last.isKeptByNamesOnly_ = kept_.isDecidedByNamesIn(loweredFolder);
}

std::optional<RiskAssessment> DeterministicSafetyPolicy::protectedAssessment(
    const FileObservation& observation, const SafetyPolicyContext& context, Settled settled) const {
    return protectedBy(observation, LoweredPath(observation.url.path()),
                       {.rules = {}, .context = context, .now = {}}, settled);
}

std::optional<RiskAssessment>
DeterministicSafetyPolicy::protectedBy(const FileObservation& observation,
                                       const LoweredPath& lowered, const Question& question,
                                       Settled settled) {
    using enum EvidenceCode;
    const SafetyPolicyContext& context = question.context;
    const std::string& path = observation.url.path();
    if (observation.kind != FileKind::regularFile) {
        return protectedFor(unknownPurpose,
                            "Only verified regular files may be cleanup candidates.");
    }
    if (!observation.isReadable) {
        return protectedFor(unreadable, "Unreadable items remain protected.");
    }
    if (observation.ownerUserID != context.facts().currentUserID) {
        return protectedFor(ownershipUnverified, "Current-user ownership could not be verified.");
    }
    if (!observation.volumeIdentifier || !context.facts().internalLocalVolumeIdentifiers.contains(
                                             observation.volumeIdentifier->text())) {
        return protectedFor(
            outsideInternalVolume,
            "The item is not verified on the current user's internal local volume.");
    }
    if (observation.isCloudPlaceholder) {
        return protectedFor(
            cloudPlaceholder,
            "Cloud placeholders remain protected and are never downloaded for cleanup.");
    }
    if (observation.isInProjectRepository && question.partOf != PartOf::toolCheckout &&
        !settled.isNoProject) {
        return protectedFor(projectRepository,
                            "Project repositories remain protected regardless of other evidence.");
    }
    if (observation.isBackupArtifact) {
        return protectedFor(backupArtifact,
                            "Backup data remains protected regardless of other evidence.");
    }
    if (isSystemProtected(observation.url) || platform::PrivateFolder::isInOne(lowered.text()) ||
        context.additionalProtectedRootIndex().contains(path)) {
        return protectedFor(protectedLocation,
                            "This location is outside Tidyro's cleanup authority.");
    }
    if (context.activeApplicationRootIndex().contains(path)) {
        return protectedFor(activeApplicationData, context.reasonOfActiveApplication(path));
    }
    if (question.use == platform::FileUse::inUse ||
        context.facts().openByProcessPaths.contains(path)) {
        return protectedFor(openByProcess,
                            "A running process has this file open or is running it.");
    }
    if (isPersonal(lowered)) {
        return protectedFor(personalLocation,
                            "Personal content remains protected from deterministic cleanup.");
    }
    if (const auto signal = LiveDataDetector::signal(lowered)) {
        return protectedFor(liveDataStore, SharedText::lasting(explanation(*signal)));
    }
    if (question.isGrowing || context.facts().activelyGrowingPaths.contains(path)) {
        return protectedFor(activeGrowth,
                            SharedText::lasting(explanation(LiveDataSignal::activeGrowth)));
    }
    constexpr bool isFolder = false; // only regular files come this far
    if (!settled.isNoApplicationData && isApplicationData(lowered, isFolder)) {
        return protectedFor(protectedLocation, applicationDataStays);
    }
    if (isBuildStore(lowered)) {
        return protectedFor(protectedLocation,
                            "Xcode does not download or rebuild these again when part is missing, "
                            "so removing some files breaks the project's builds.");
    }
    return std::nullopt;
}

CleanupCandidate DeterministicSafetyPolicy::classify(FileObservation observation,
                                                     const Question& question) const {
    Verdict reached = verdict(observation, question);
    return {.observation = std::move(observation),
            .category = reached.category,
            .assessment = std::move(reached.assessment)};
}

DeterministicSafetyPolicy::Verdict
DeterministicSafetyPolicy::verdict(const FileObservation& observation,
                                   const Question& question) const {
    const LoweredPath lowered(observation.url.path());
    const CleanupCategory category =
        question.categoryHint ? *question.categoryHint : categoryOf(observation, lowered);
    if (auto assessment = protectedBy(observation, lowered, question, Settled{})) {
        return {category, *std::move(assessment)};
    }
    if (auto assessment = protectedAsPart(question.partOf)) {
        return {category, *std::move(assessment)};
    }
    const LastFolder* last = question.lastFolder;
    if (last != nullptr) {
        remember(*question.lastFolder, observation.url.path(), lowered, question);
    }
    if (const ToolStateFence* fence = question.context.toolState();
        fence != nullptr &&
        (last != nullptr ? last->isNearToolState_ : fence->isNear(lowered.text()))) {
        if (auto reason = fence->reason(observation.url.path(), ToolStateFence::Item::file)) {
            return {category, protectedFor(EvidenceCode::protectedLocation, *std::move(reason))};
        }
    }
    const CleanupRule* rule = last != nullptr && !last->hasRootInIt_
                                  ? last->rule_
                                  : mostSpecificMatchingRule(observation.url, question.rules);
    // A rule that is rooted in a store names just what may go there.
    if (const auto kept = last != nullptr && last->isKeptByNamesOnly_
                              ? kept_.findByName(lowered.text())
                              : kept_.find(lowered.text());
        kept && !(kept->storeDepth && rule != nullptr && rule->rootDepth() >= *kept->storeDepth)) {
        return {category,
                protectedFor(EvidenceCode::protectedLocation, SharedText::lasting(kept->reason))};
    }
    if (rule == nullptr && kept_.isApplicationSupport(lowered.text())) {
        return {category, protectedFor(EvidenceCode::protectedLocation, applicationDataStays)};
    }
    if (rule != nullptr && !rule->isWithinReach(observation.url.path(), /*isFolder=*/false)) {
        return {rule->category(),
                protectedFor(EvidenceCode::protectedLocation, applicationDataStays)};
    }
    const bool isOfRule = !question.categoryHint && category == CleanupCategory::download &&
                          rule != nullptr &&
                          isDownloadOfItsRule(observation.url.path(), *rule, home_);
    if (isReviewOnly(category) && !isOfRule) return {category, reviewOnly(category)};
    return byRule(observation, lowered, rule, question, category);
}

/// The review roots are named as most homes have them, so a path is asked by that name as well.
bool DeterministicSafetyPolicy::touchesReviewRoot(std::string_view path,
                                                  const LoweredPath& lowered) const {
    if (ReviewRequiredScope::touchesReviewRoot(lowered, homePrefix_)) return true;
    if (!bases_.areMoved() || !path::isInsideOrEqual(path, home_.path())) return false;
    const std::string named =
        path::joined(home_.path(), bases_.named(path::below(path, home_.path())));
    return ReviewRequiredScope::touchesReviewRoot(named, homePrefix_);
}

DeterministicSafetyPolicy::Verdict
DeterministicSafetyPolicy::byRule(const FileObservation& observation, const LoweredPath& lowered,
                                  const CleanupRule* rule, const Question& question,
                                  CleanupCategory category) const {
    using enum EvidenceCode;
    const FileURL& url = observation.url;
    if (rule == nullptr) {
        return {category,
                protectedFor(
                    unknownPurpose,
                    "No verified cleanup rule establishes that this item can be regenerated.")};
    }
    category = rule->category();
    const bool isGranted = question.folders != nullptr
                               ? rule->grantsSafeCleanupAuthority(url, *question.folders)
                               : rule->grantsSafeCleanupAuthority(url);
    if (!isGranted) {
        return {category, protectedFor(unverifiedRule,
                                       "An unverified rule cannot grant cleanup eligibility.")};
    }
    if (!mayBeAllowlistedForSafeCleanup(category) || !rule->isRegenerable()) {
        return {
            category,
            protectedFor(unknownPurpose,
                         "The matching rule does not prove that this category is regenerable.")};
    }
    if (rule->mayBeBuiltHere(url.path())) {
        return {category,
                protectedFor(protectedLocation,
                             "This was built on this machine, and nobody can download it again.")};
    }
    const auto isOldEnough = [&](const std::optional<Timestamp>& since) {
        return since && question.now.secondsSinceReference() - since->secondsSinceReference() >=
                            rule->minimumAge();
    };
    if (!isOldEnough(observation.modificationDate)) {
        return {category, protectedFor(insufficientAge,
                                       "The item has not met the cleanup rule's minimum age.")};
    }
    if (question.ageCount == AgeCount::sinceModificationAndCreation && observation.creationDate &&
        !isOldEnough(observation.creationDate)) {
        return {category,
                protectedFor(insufficientAge, "The item looks old, but it was put here within the "
                                              "cleanup rule's minimum age.")};
    }
    if (question.partOf == PartOf::toolCheckout) return {category, fetchedByTool_};
    if (rule->alwaysNeedsReview() || touchesReviewRoot(url.path(), lowered)) {
        return {category, reviewRequired_};
    }
    const bool mayBeInUse =
        question.context.areProcessesHidden() &&
        (question.use != platform::FileUse::free ||
         question.context.mayBeUsedByHidden(url.path(), observation.volumeIdentifier));
    return {category, mayBeInUse ? mayBeInUse_ : safe_};
}

} // namespace tidyro

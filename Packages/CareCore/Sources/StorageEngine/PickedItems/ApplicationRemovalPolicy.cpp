#include "StorageEngine/PickedItems/ApplicationRemovalPolicy.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "Base/Fault.h"
#include "Base/LoweredPath.h"
#include "Base/PathText.h"
#include "Platform/Processes/BundleIdentifier.h"
#include "StorageEngine/PickedItems/DiskItemContents.h"
#include "StorageEngine/PickedItems/DiskItemFolders.h"
#include "StorageEngine/PickedItems/RemovalConsequence.h"

namespace tidyro {

namespace {

using ApplicationReason = ApplicationRemovalPolicy::Reason;
using enum DiskItemRefusal;

constexpr std::string_view packageEnding = ".app";

struct ExplainApplication {
    std::string_view operator()(ApplicationReason reason) const {
        switch (reason) {
        case ApplicationReason::installedOtherwise:
            return platform::systemText(SystemText::appIsInstalledOtherwise);
        case ApplicationReason::notAnApplication:
        case ApplicationReason::notChecked:
            return "This application could not be checked before removal.";
        case ApplicationReason::anotherApplication:
            return "The plan named a different application from the one it points at.";
        case ApplicationReason::running:
            return "This application is running. Quit it and try again.";
        }
        fault("a reason that does not exist");
    }
    std::string_view operator()(DiskItemRefusal refusal) const { return explanation(refusal); }
};

/// A helper inside an application has the application's identifier and more.
bool isOneOf(const platform::RunningApplication& running, const FileURL& bundle,
             std::string_view identifier) {
    const std::string& other = running.bundleIdentifier;
    return other == identifier ||
           (other.size() > identifier.size() && other.starts_with(identifier) &&
            other[identifier.size()] == '.') ||
           path::isInsideOrEqual(running.executable, bundle.path());
}

} // namespace

std::string_view explanation(const ApplicationRemovalPolicy::Refusal& refusal) {
    return std::visit(ExplainApplication{}, refusal);
}

ApplicationRemovalPolicy::ApplicationRemovalPolicy(Options options)
    : options_(std::move(options)), observer_(options_.home, options_.volumes) {}

std::optional<ApplicationReason>
ApplicationRemovalPolicy::reasonAgainst(const FileURL& bundle,
                                        const std::string& identifier) const {
    // People and installers put applications into these two. One anywhere else belongs to the
    // system or to another application.
    const FileURL folder = bundle.parent();
    if (folder.path() != "/Applications" &&
        folder.path() != options_.home.appending("Applications").path()) {
        return ApplicationReason::installedOtherwise;
    }
    const auto running = options_.applications.running();
    if (!running) return ApplicationReason::notChecked;
    const bool isRunning =
        std::ranges::any_of(*running, [&](const platform::RunningApplication& one) {
            return isOneOf(one, bundle, identifier);
        });
    return isRunning ? std::optional(ApplicationReason::running) : std::nullopt;
}

/// Everything about the package is asked through the open folder that it lies in.
std::expected<FileObservation, DiskItemRefusal>
ApplicationRemovalPolicy::lookThrough(const Question& question) {
    const FileURL& bundle = question.bundle;
    const SafetyPolicyFacts& facts = options_.context->facts();
    if (options_.context->additionalProtectedRootIndex().contains(bundle.path())) {
        return std::unexpected(protectedPlace);
    }
    // Neither is there one in a folder of applications, nor such a folder in one.
    const ToolStateFence* fence = options_.context->toolState();
    if (fence != nullptr &&
        (fence->isNear(LoweredPath(bundle.path()).text()) || fence->isBelow(bundle.path()))) {
        return std::unexpected(holdsProtectedPlace);
    }
    DiskItemFolders folders{KeptFolders()};
    const DiskItemFolders::Folder folder = folders.at(bundle.parent().path());
    if (folder.refusal) return std::unexpected(*folder.refusal);
    const auto parent = folders.open(folder);
    if (!parent) return std::unexpected(parent.error());
    const std::string name(bundle.lastComponent());
    const auto seen = platform::fileMetadata(*parent, name.c_str());
    if (!seen) return std::unexpected(refusalFor(seen.error()));
    if (seen->kind == platform::ItemKind::link) return std::unexpected(link);
    if (seen->kind != platform::ItemKind::folder) return std::unexpected(specialFile);
    FileObservation observation =
        observer_.observation(*parent, FileURL::folder(bundle.path()), *seen);
    if (observation.ownerUserID != facts.currentUserID) return std::unexpected(otherOwner);
    if (!platform::areOnOneMount(*seen, folder.seen)) return std::unexpected(mountPointItself);
    if (!observation.volumeIdentifier ||
        !facts.internalLocalVolumeIdentifiers.contains(observation.volumeIdentifier->text())) {
        return std::unexpected(otherVolume);
    }
    if (seen->isLocked || folder.seen.isLocked) return std::unexpected(locked);
    if (!folder.isWritable) return std::unexpected(closedParent);
    if (!platform::isWritableFolder(*parent, name.c_str()) || folders.isClosed(*seen)) {
        return std::unexpected(closedFolder);
    }
    const auto latest = DiskItemContents::lastModification({.parent = *parent,
                                                            .name = name,
                                                            .seen = *seen,
                                                            .owner = facts.currentUserID,
                                                            .kept = folders.kept(),
                                                            .cancel = question.cancel});
    if (!latest) return std::unexpected(latest.error());
    if (question.built && !(*latest <= *question.built)) {
        return std::unexpected(changedSinceMeasured);
    }
    return observation;
}

std::expected<CleanupPlanEntry, ApplicationRemovalPolicy::Refusal>
ApplicationRemovalPolicy::planEntry(const Question& question) {
    if (options_.system != OperatingSystem::macOS) {
        return std::unexpected(ApplicationReason::installedOtherwise);
    }
    const FileURL& bundle = question.bundle;
    if (options_.context == nullptr) return std::unexpected(nothingKnown);
    const std::string_view name = bundle.lastComponent();
    if (!name.ends_with(packageEnding) || name.size() == packageEnding.size()) {
        return std::unexpected(ApplicationReason::notAnApplication);
    }
    const auto identifier = platform::bundleIdentifierOf(bundle.path());
    // Without one nobody can tell whether it runs.
    if (!identifier) return std::unexpected(ApplicationReason::notChecked);
    if (question.bundleIdentifier && question.bundleIdentifier != identifier) {
        return std::unexpected(ApplicationReason::anotherApplication);
    }
    if (const auto reason = reasonAgainst(bundle, *identifier)) return std::unexpected(*reason);
    auto observation = lookThrough(question);
    if (!observation) return std::unexpected(observation.error());
    constexpr auto category = CleanupCategory::applicationBundle;
    using enum EvidenceCode;
    FileFingerprint fingerprint = FileFingerprint::fromObservation(*observation);
    return CleanupPlanEntry{
        .candidateID = std::move(observation->id),
        .sourceURL = observation->url,
        .fingerprint = std::move(fingerprint),
        .proofCard = {.category = category,
                      .riskTier = RiskTier::reviewCarefully,
                      .evidence = {.codes = {userReviewRequired, currentUserOwned,
                                             internalLocalVolume, inactive},
                                   .summary = SharedText::lasting(
                                       RemovalConsequence::sentence(std::nullopt, category))},
                      .byteCount = question.measuredBytes,
                      .recoveryMethod =
                          SharedText::lasting(recoveryMethod(CleanupExecutionMode::recoverable))},
        .approvalRequirement = ApprovalRequirement::itemLevel,
        .authorization = CleanupAuthorization{authorization::UserSelectedApplication{
            .bundleURL = observation->url, .bundleIdentifier = identifier}}};
}

} // namespace tidyro

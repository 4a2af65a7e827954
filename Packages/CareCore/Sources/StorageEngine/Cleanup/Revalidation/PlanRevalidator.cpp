#include "StorageEngine/Cleanup/Revalidation/PlanRevalidator.h"

#include <algorithm>
#include <span>
#include <string>
#include <utility>
#include <variant>

#include "Base/Cases.h"
#include "Base/Fault.h"
#include "Base/PathText.h"
#include "Base/StringTable.h"
#include "Platform/Files/FileLease.h"
#include "Platform/Folders/FolderReading.h"
#include "StorageEngine/Observation/FileObserver.h"
#include "StorageEngine/PickedItems/ApplicationRemovalPolicy.h"
#include "StorageEngine/PickedItems/DiskItemRemovalPolicy.h"
#include "StorageEngine/PickedItems/ProjectArtifactRemovalPolicy.h"
#include "StorageEngine/Places/FolderResolver.h"
#include "StorageEngine/Safety/DeterministicSafetyPolicy.h"

namespace tidyro {

namespace {

using enum RevalidationIssue;
using Issue = std::optional<RevalidationIssue>; ///< none: nothing was found against the entry

/// The words of a picked item's refusal, in the few words of a plan's issues.
RevalidationIssue issueFor(DiskItemRefusal refusal) {
    switch (refusal) {
    case DiskItemRefusal::vanished: return itemMissing;
    case DiskItemRefusal::nothingKnown:
    case DiskItemRefusal::desktopListUnreadable:
    case DiskItemRefusal::homeUnreadable:
    case DiskItemRefusal::unreadable:
    case DiskItemRefusal::unreadableFolder:
    case DiskItemRefusal::unreadableInside:
    case DiskItemRefusal::tooDeepInside:
    case DiskItemRefusal::cancelled: return observationFailed;
    case DiskItemRefusal::changedSinceMeasured: return itemChanged;
    case DiskItemRefusal::openByProcess:
    case DiskItemRefusal::growing: return inUseByProcess;
    case DiskItemRefusal::activeApplication: return runtimeRestriction;
    case DiskItemRefusal::homeFolder:
    case DiskItemRefusal::openedFolder:
    case DiskItemRefusal::outsideChosenFolders:
    case DiskItemRefusal::inTrash:
    case DiskItemRefusal::standardFolder:
    case DiskItemRefusal::sharedFolder:
    case DiskItemRefusal::inCloudFolder:
    case DiskItemRefusal::holdsCloudFolder:
    case DiskItemRefusal::systemPlace:
    case DiskItemRefusal::protectedPlace:
    case DiskItemRefusal::holdsProtectedPlace:
    case DiskItemRefusal::insidePackage:
    case DiskItemRefusal::repositoryData:
    case DiskItemRefusal::homeElsewhere:
    case DiskItemRefusal::link:
    case DiskItemRefusal::specialFile:
    case DiskItemRefusal::cloudPlaceholder:
    case DiskItemRefusal::otherOwner:
    case DiskItemRefusal::mountPointItself:
    case DiskItemRefusal::otherVolume:
    case DiskItemRefusal::closedParent:
    case DiskItemRefusal::locked:
    case DiskItemRefusal::closedFolder:
    case DiskItemRefusal::backup:
    case DiskItemRefusal::liveDatabase:
    case DiskItemRefusal::otherPlace:
    case DiskItemRefusal::mountPointInside:
    case DiskItemRefusal::otherOwnerInside:
    case DiskItemRefusal::lockedInside:
    case DiskItemRefusal::specialFileInside:
    case DiskItemRefusal::placeholderInside:
    case DiskItemRefusal::backupInside:
    case DiskItemRefusal::databaseInside:
    case DiskItemRefusal::ownersStore:
    case DiskItemRefusal::builtHere:
    case DiskItemRefusal::inUseLately: break;
    }
    return protectedEntry;
}

RevalidationIssue issueFor(ProjectArtifactRemovalPolicy::Reason reason) {
    return reason == ProjectArtifactRemovalPolicy::Reason::historyUnknown ? observationFailed
                                                                          : protectedEntry;
}

RevalidationIssue issueFor(ApplicationRemovalPolicy::Reason reason) {
    switch (reason) {
    case ApplicationRemovalPolicy::Reason::anotherApplication: return itemChanged;
    case ApplicationRemovalPolicy::Reason::running: return runtimeRestriction;
    case ApplicationRemovalPolicy::Reason::notChecked: return observationFailed;
    case ApplicationRemovalPolicy::Reason::installedOtherwise:
    case ApplicationRemovalPolicy::Reason::notAnApplication: break;
    }
    return protectedEntry;
}

template <class... Reason>
RevalidationIssue issueFor(const std::variant<Reason...>& refusal) {
    return std::visit([](auto reason) { return issueFor(reason); }, refusal);
}

/// What the entry's own policy says now, against what the person approved.
template <class Refusal>
Issue issueOf(const std::expected<CleanupPlanEntry, Refusal>& now, const CleanupPlanEntry& entry) {
    if (!now) return issueFor(now.error());
    if (now->fingerprint != entry.fingerprint) return itemChanged; // just now
    return now->proofCard.riskTier == entry.proofCard.riskTier ? Issue()
                                                               : authoritativePolicyMismatch;
}

bool isByAIToolRule(const CleanupPlanEntry& entry) {
    return entry.authorization &&
           std::holds_alternative<authorization::AIToolRule>(casesOf(*entry.authorization));
}

/// Whether the set has the path or, for a folder, the path of anything in it.
bool isInUse(const SafetyPolicyFacts::PathSet& paths, const std::string& path, bool isFolder) {
    const auto found = paths.lower_bound(path);
    if (found != paths.end() && *found == path) return true;
    if (!isFolder) return false;
    const std::string inside = path + "/";
    const auto first = paths.lower_bound(inside);
    return first != paths.end() && first->starts_with(inside);
}

} // namespace

std::string_view explanation(RevalidationIssue issue) {
    switch (issue) {
    case planExpired: return "The plan expired. Scan again and review it.";
    case itemMissing: return "The item is no longer where it was when it was scanned.";
    case itemChanged: return "The item changed after it was scanned.";
    case protectedEntry: return "Local policy now protects this item.";
    case runtimeRestriction:
        return "The app that owns this data is running. Quit it and try again.";
    case authoritativePolicyMismatch:
        return "The evidence on screen no longer matches the file. Scan again.";
    case observationFailed: return "The item could not be read for its final check.";
    case inUseByProcess: return "A running process is using this item. Try again when it finishes.";
    }
    fault("an issue that does not exist");
}

/// One check of a plan: what it finds out about the machine and about folders is asked once.
class DefaultPlanRevalidator::Run {
  public:
    Run(const Options& options, const CleanupPlan& plan, Timestamp at,
        std::shared_ptr<const SafetyPolicyContext> context, const CancelToken& cancel)
        : options_(options),
          plan_(plan),
          at_(at),
          context_(std::move(context)),
          cancel_(cancel),
          policy_(options.home),
          observer_(options.home, options.volumes) {}

    [[nodiscard]] Issue issue(const CleanupPlanEntry& entry) {
        const std::string& path = entry.sourceURL.path();
        const auto& folder = folders_.at(path::parent(path));
        if (!folder) return issueOfLook(folder.error());
        name_ = entry.sourceURL.lastComponent();
        const auto seen = platform::fileMetadata(*folder, name_.c_str());
        if (!seen) return issueOfLook(seen.error());
        const bool isFolder = seen->kind == platform::ItemKind::folder;
        const FileURL above = entry.sourceURL.parent();
        const platform::FileAccess access = accessTo(*folder, *seen);
        FileObservation observed = observer_.observation(
            isFolder ? above.appendingFolder(name_) : above.appending(name_), *seen,
            access.isReadable ? FileObserver::Readable::yes : FileObserver::Readable::no);
        if (observed.url.path() != path || !entry.fingerprint.matches(observed)) {
            return itemChanged;
        }
        const platform::FileUse use = access.use;
        if (use == platform::FileUse::inUse ||
            isInUse(context_->facts().openByProcessPaths, path, isFolder)) {
            return inUseByProcess;
        }
        // That the tool itself runs holds some parts of its home and not others, which only its own
        // rules tell apart.
        if (!isByAIToolRule(entry) && context_->activeApplicationRootIndex().contains(path)) {
            return runtimeRestriction;
        }
        return issueByPolicy(entry, *folder, std::move(observed), use);
    }

  private:
    /// Keeps folders open. A plan is in order of size, so the files of one folder are spread over
    /// it.
    class FoldersInUse {
      public:
        [[nodiscard]] const std::expected<platform::FolderDescriptor, SystemError>&
        at(std::string_view path) {
            auto known = opened_.find(path);
            if (known != opened_.end()) return known->second;
            if (opened_.size() >= max_) opened_.clear();
            std::string folder(path);
            auto opened = platform::FolderDescriptor::openRoot(folder);
            return opened_.emplace(std::move(folder), std::move(opened)).first->second;
        }

      private:
        // The rest is for whatever looks through whole folders meanwhile.
        std::size_t max_ = std::max<std::size_t>(platform::openFolderBudget() / 4, 1);
        StringMap<std::expected<platform::FolderDescriptor, SystemError>> opened_;
    };

    /// Of the item that has the name by now. To open it tells both whether it may be read and
    /// whether somebody uses it.
    [[nodiscard]] platform::FileAccess accessTo(const platform::FolderDescriptor& folder,
                                                const platform::FileMetadata& seen) {
        if (seen.kind != platform::ItemKind::regularFile) {
            return {.isReadable = platform::isReadable(folder, name_.c_str()),
                    .use = platform::FileUse::unknown};
        }
        asker_.begin(folder);
        return asker_.ask(name_.c_str(), seen);
    }

    [[nodiscard]] static Issue issueOfLook(SystemError error) {
        return platform::hasVanished(error) ? itemMissing : observationFailed;
    }

    [[nodiscard]] Issue issueByPolicy(const CleanupPlanEntry& entry,
                                      const platform::FolderDescriptor& folder,
                                      FileObservation observed, platform::FileUse use) {
        if (entry.authorization) {
            const auto& claim = casesOf(*entry.authorization);
            if (const auto* item = std::get_if<authorization::DiskItem>(&claim)) {
                return issueOfItem(entry, *item);
            }
            if (const auto* made = std::get_if<authorization::ProjectArtifact>(&claim)) {
                return issueOfArtifact(entry, *made);
            }
            if (const auto* app = std::get_if<authorization::UserSelectedApplication>(&claim)) {
                return issueOfApplication(entry, *app);
            }
            if (isByAIToolRule(entry)) {
                if (options_.aiTools == nullptr) return protectedEntry;
                return options_.aiTools->issue(entry, observed, *context_, at_);
            }
        }
        return issueOfFile(entry, folder, std::move(observed), use);
    }

    [[nodiscard]] Issue issueOfFile(const CleanupPlanEntry& entry,
                                    const platform::FolderDescriptor& folder,
                                    FileObservation observed, platform::FileUse use) {
        const PartOf partOf = observed.kind == FileKind::regularFile
                                  ? observer_.partOf(folder, observed)
                                  : PartOf::nothing;
        // The age is counted as when the item was suggested, so that an item that was unpacked
        // lately is not let through here.
        using enum DeterministicSafetyPolicy::AgeCount;
        const CleanupCandidate rated =
            policy_.classify(std::move(observed), {.categoryHint = entry.proofCard.category,
                                                   .rules = options_.rules,
                                                   .context = *context_,
                                                   .now = at_,
                                                   .folders = &resolver_,
                                                   .partOf = partOf,
                                                   .ageCount = sinceModificationAndCreation,
                                                   .use = use});
        if (rated.assessment.tier == RiskTier::protected_) return protectedEntry;
        return rated.assessment.tier == entry.proofCard.riskTier ? Issue()
                                                                 : authoritativePolicyMismatch;
    }

    [[nodiscard]] DiskItemRemovalPolicy::Options itemOptions() const {
        return {.home = options_.home,
                .openedFolders = options_.sessionRoots,
                .context = context_,
                .volumes = options_.volumes};
    }

    [[nodiscard]] Issue issueOfItem(const CleanupPlanEntry& entry,
                                    const authorization::DiskItem& claim) {
        if (!items_) items_.emplace(itemOptions());
        return issueOf(items_->planEntry({.item = entry.sourceURL,
                                          .placeID = claim.placeID,
                                          .measuredBytes = entry.proofCard.byteCount,
                                          .built = plan_.createdAt,
                                          .at = at_,
                                          .cancel = cancel_}),
                       entry);
    }

    [[nodiscard]] Issue issueOfArtifact(const CleanupPlanEntry& entry,
                                        const authorization::ProjectArtifact& claim) {
        if (path::joined(claim.projectURL.path(), claim.folderName) != entry.sourceURL.path()) {
            return protectedEntry;
        }
        if (!artifacts_) artifacts_.emplace(itemOptions());
        return issueOf(artifacts_->planEntry({.artifact = claim,
                                              .measuredBytes = entry.proofCard.byteCount,
                                              .built = plan_.createdAt,
                                              .at = at_,
                                              .cancel = cancel_}),
                       entry);
    }

    [[nodiscard]] Issue issueOfApplication(const CleanupPlanEntry& entry,
                                           const authorization::UserSelectedApplication& claim) {
        if (!applications_) {
            applications_.emplace(
                ApplicationRemovalPolicy::Options{.home = options_.home,
                                                  .context = context_,
                                                  .volumes = options_.volumes,
                                                  .applications = options_.applications});
        }
        return issueOf(applications_->planEntry({.bundle = entry.sourceURL,
                                                 .bundleIdentifier = claim.bundleIdentifier,
                                                 .measuredBytes = entry.proofCard.byteCount,
                                                 .built = plan_.createdAt,
                                                 .at = at_,
                                                 .cancel = cancel_}),
                       entry);
    }

    const Options& options_;
    const CleanupPlan& plan_;
    Timestamp at_;
    std::shared_ptr<const SafetyPolicyContext> context_;
    const CancelToken& cancel_;
    DeterministicSafetyPolicy policy_;
    FileObserver observer_;
    FolderResolver resolver_;
    FoldersInUse folders_;
    platform::FileAccessAsker asker_;
    std::string name_;
    // Made for the first entry that needs them.
    std::optional<DiskItemRemovalPolicy> items_;
    std::optional<ProjectArtifactRemovalPolicy> artifacts_;
    std::optional<ApplicationRemovalPolicy> applications_;
};

DefaultPlanRevalidator::DefaultPlanRevalidator(Options options) : options_(std::move(options)) {}

std::expected<PlanRevalidationReport, CancellationError>
DefaultPlanRevalidator::revalidate(const CleanupPlan& plan, Timestamp at, const Scope& scope) {
    PlanRevalidationReport report{.planID = plan.id, .checkedAt = at, .entries = {}};
    const std::size_t first = std::min(scope.firstEntry, plan.entries.size());
    report.entries.reserve(plan.entries.size() - first);
    const auto add = [&](const CleanupPlanEntry& entry, Issue issue) {
        report.entries.push_back({.candidateID = entry.candidateID, .issue = issue});
    };
    const std::span entries = std::span(plan.entries).subspan(first);
    // A plan from the future is one that was made before the clock was set back, and may be of any
    // age. A moment that is no number is neither earlier nor later than another.
    const bool isCurrent = plan.createdAt <= at && at < plan.expiresAt;
    if (scope.expiry == Expiry::judged && !isCurrent) {
        for (const CleanupPlanEntry& entry : entries) add(entry, planExpired);
        return report;
    }
    auto context = options_.freshContext ? options_.freshContext() : nullptr;
    if (context == nullptr) {
        for (const CleanupPlanEntry& entry : entries) add(entry, observationFailed);
        return report;
    }
    Run run(options_, plan, at, std::move(context), scope.cancel);
    for (const CleanupPlanEntry& entry : entries) {
        const Issue issue = run.issue(entry);
        if (scope.cancel.stop_requested()) return std::unexpected(CancellationError{});
        add(entry, issue);
    }
    return report;
}

} // namespace tidyro

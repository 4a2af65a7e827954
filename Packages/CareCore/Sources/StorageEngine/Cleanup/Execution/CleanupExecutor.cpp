#include "StorageEngine/Cleanup/Execution/CleanupExecutor.h"

#include <algorithm>
#include <chrono>
#include <set>
#include <string_view>
#include <utility>

#include "Platform/Machine/RandomUUID.h"
#include "StorageEngine/Cleanup/Execution/CleanupRun.h"
#include "StorageEngine/Rules/BuiltInCleanupRules.h"

namespace tidyro {

namespace {

using Error = CleanupExecutionError;

template <class Case>
std::unexpected<Error> refusedBecause(Case why) {
    return std::unexpected(Error{std::move(why)});
}

/// Every id once, and the sheet tells of the same items in the same order.
bool isWellFormed(const CleanupPlan& plan, const CleanupPlanSheet* sheet) {
    if (plan.entries.empty()) return false;
    std::set<std::string_view> ids;
    for (const CleanupPlanEntry& entry : plan.entries) {
        if (!ids.insert(entry.candidateID.rawValue).second) return false;
    }
    if (sheet == nullptr) return true;
    return sheet->planID == plan.id &&
           std::ranges::equal(sheet->entries, plan.entries, {}, &CleanupSheetEntry::candidateID,
                              &CleanupPlanEntry::candidateID);
}

CleanupIntent intentOf(const CleanupPlan& plan, Timestamp at) {
    CleanupIntent intent{.id = platform::randomUUID(),
                         .planID = plan.id,
                         .createdAt = at,
                         .mode = plan.mode,
                         .entries = {}};
    intent.entries.reserve(plan.entries.size());
    for (const CleanupPlanEntry& entry : plan.entries) {
        intent.entries.push_back({.candidateID = entry.candidateID,
                                  .sourceURL = entry.sourceURL,
                                  .fingerprint = entry.fingerprint});
    }
    return intent;
}

} // namespace

CleanupExecutor::CleanupExecutor(CleanupExecutionMode mode, Options options, Machine machine)
    : mode_(mode), options_(std::move(options)), machine_(std::move(machine)) {
    options_.receiptRetention = std::max(1.0, options_.receiptRetention);
    if (!machine_.steadySeconds) {
        machine_.steadySeconds = [] {
            const auto since = std::chrono::steady_clock::now().time_since_epoch();
            return std::chrono::duration<double>(since).count();
        };
    }
}

CleanupExecutor CleanupExecutor::recoverable(Options options, Machine machine) {
    return {CleanupExecutionMode::recoverable, std::move(options), std::move(machine)};
}
CleanupExecutor CleanupExecutor::permanent(Options options, Machine machine) {
    return {CleanupExecutionMode::permanent, std::move(options), std::move(machine)};
}
CleanupExecutor CleanupExecutor::simulation(Options options, Machine machine) {
    return {CleanupExecutionMode::simulation, std::move(options), std::move(machine)};
}

CleanupExecutor::Checked CleanupExecutor::validateMode(const Request& request) const {
    const CleanupPlan& plan = request.plan;
    if (plan.mode != mode_) {
        return refusedBecause(Error::PlanModeMismatch{.expected = mode_, .found = plan.mode});
    }
    if (mode_ != CleanupExecutionMode::permanent) return {};
    const auto unsafe = std::ranges::find_if(plan.entries, [](const CleanupPlanEntry& entry) {
        return entry.proofCard.riskTier != RiskTier::safeToReclaim;
    });
    if (unsafe != plan.entries.end()) {
        return refusedBecause(Error::PermanentCleanupRefusedItem{unsafe->candidateID});
    }
    if (!request.acknowledgement) return refusedBecause(Error::MissingPermanentAcknowledgement{});
    const PermanentCleanupAcknowledgement& told = *request.acknowledgement;
    const bool isOfThisPlan = told.planID == plan.id &&
                              std::cmp_equal(told.itemCount, plan.entries.size()) &&
                              told.byteCount == plan.potentiallyReclaimableByteCount() &&
                              plan.createdAt <= told.acknowledgedAt;
    if (!isOfThisPlan) return refusedBecause(Error::PermanentAcknowledgementDoesNotMatchPlan{});
    return {};
}

CleanupExecutor::Checked CleanupExecutor::validateApproval(const Request& request) {
    const CleanupPlan& plan = request.plan;
    const CleanupApproval& approval = request.approval;
    if (!isWellFormed(plan, request.sheet)) return refusedBecause(Error::InvalidPlan{});
    if (approval.planID != plan.id) return refusedBecause(Error::ApprovalForDifferentPlan{});
    const Timestamp approved = approval.approvedAt;
    if (!(plan.createdAt <= approved && approved <= request.at && approved < plan.expiresAt)) {
        return refusedBecause(Error::InvalidApprovalTimestamp{});
    }
    const bool isSameSet = approval.approvedCandidateIDs.size() == plan.entries.size() &&
                           std::ranges::all_of(plan.entries, [&](const CleanupPlanEntry& entry) {
                               return approval.approvedCandidateIDs.contains(entry.candidateID);
                           });
    if (!isSameSet) return refusedBecause(Error::ApprovalDoesNotMatchPlan{});
    for (const CleanupPlanEntry& entry : plan.entries) {
        // Whatever the plan demands, an item that needs review is approved by itself.
        const bool isOneByOne = entry.approvalRequirement == ApprovalRequirement::itemLevel ||
                                entry.proofCard.riskTier != RiskTier::safeToReclaim;
        if (isOneByOne && !approval.itemLevelApprovedCandidateIDs.contains(entry.candidateID)) {
            return refusedBecause(Error::MissingItemLevelApproval{entry.candidateID});
        }
    }
    return {};
}

std::expected<CleanupReceipt, CleanupExecutionError>
CleanupExecutor::execute(const Request& request) {
    if (auto checked = validateMode(request); !checked) return std::unexpected(checked.error());
    if (auto checked = validateApproval(request); !checked) {
        return std::unexpected(checked.error());
    }
    const CleanupPlan& plan = request.plan;
    auto rules = BuiltInCleanupRules::currentUser(options_.home, options_.ageFloor);
    const CleanupAuthorizationVerifier verifier({.home = options_.home,
                                                 .rules = rules,
                                                 .sessionRoots = options_.sessionRoots,
                                                 .aiToolRules = options_.aiToolRules});
    DefaultPlanRevalidator standard({.home = options_.home,
                                     .rules = std::move(rules),
                                     .sessionRoots = options_.sessionRoots,
                                     .freshContext = machine_.freshContext,
                                     .volumes = machine_.volumes,
                                     .applications = machine_.applications,
                                     .aiTools = options_.aiTools});
    PlanRevalidator& revalidator =
        machine_.revalidator != nullptr ? *machine_.revalidator : standard;
    auto report = revalidator.revalidate(plan, request.at, {.cancel = request.cancel});
    CleanupIntent intent = intentOf(plan, request.at);
    CleanupRun run({.request = request,
                    .options = options_,
                    .machine = machine_,
                    .verifier = verifier,
                    .revalidator = revalidator,
                    .intentID = intent.id});
    if (!report) {
        return refusedBecause(Error::CancelledAfterPartialExecution{run.receiptOfNothing()});
    }
    if (std::ranges::all_of(report->entries, [](const EntryRevalidation& entry) {
            return entry.issue.has_value();
        })) {
        return refusedBecause(Error::RevalidationFailed{std::move(report->entries)});
    }
    if (changesTheFilesystem(mode_) &&
        (options_.journal == nullptr || options_.flushes == nullptr)) {
        return refusedBecause(Error::JournalUnavailable{.reason = "there is no journal"});
    }
    if (options_.journal != nullptr) {
        if (const auto begun = options_.journal->begin(intent); !begun) {
            return std::unexpected(Error::fromBegin(begun.error()));
        }
    }
    intent.entries = {}; // the journal has it now
    return run.carryOut(*std::move(report));
}

} // namespace tidyro

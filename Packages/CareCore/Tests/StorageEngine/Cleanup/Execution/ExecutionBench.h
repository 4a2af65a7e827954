#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Machine/RandomUUID.h"
#include "Platform/Testing/FakeRunningApplications.h"
#include "Platform/Testing/FakeVolumes.h"
#include "Platform/Testing/ScheduledChangeGate.h"
#include "Platform/Testing/ScheduledFolderChanges.h"
#include "StorageEngine/Cleanup/Execution/CleanupExecutor.h"
#include "StorageEngine/Cleanup/Planning/CleanupPlanner.h"
#include "StorageEngine/Cleanup/Planning/CleanupSheetMaker.h"
#include "StorageEngine/Observation/FileObserver.h"
#include "StorageEngine/PickedItems/DiskItemRemovalPolicy.h"
#include "StorageEngine/Recovery/FileCleanupIntentJournal.h"
#include "StorageEngine/Rules/BuiltInCleanupRules.h"
#include "StorageEngine/Safety/DeterministicSafetyPolicy.h"
#include "Support/QuietMachine.h"
#include "Support/TemporaryFolder.h"

namespace tidyro::testing {

/// A home with old cache files, a folder that the person opened, and everything that carries out a
/// cleanup there: a journal, a ledger, a Trash, and changes that a schedule may disturb. As its
/// clock has it, all was made a year ago.
struct ExecutionBench {
    std::unique_ptr<TemporaryFolder> owned = std::make_unique<TemporaryFolder>();
    const TemporaryFolder& place;
    platform::testing::FakeVolumes volumes;
    platform::testing::FakeRunningApplications applications;
    SafetyPolicyFacts facts = quietMachine();
    std::vector<FileURL> opened;
    const Timestamp planned = Timestamp::now().adding(365 * 86'400.0);
    const Timestamp now = planned.adding(60);

    ChangeSchedule schedule;
    ScheduledFolderChanges changes{schedule};
    ScheduledChangeGate gate{schedule};
    platform::FolderFlushes flushes{changes};
    std::unique_ptr<FileCleanupIntentJournal> journal;
    InMemoryRecoveryLedger memory;
    RecoveryLedger* ledger = &memory;
    PlanRevalidator* revalidator = nullptr;
    std::optional<double> clock; ///< stands still in place of the running system's

    CleanupPlan plan;
    CleanupPlanSheet sheet;
    CleanupApproval approval;
    std::optional<PermanentCleanupAcknowledgement> acknowledgement;

    ExecutionBench() : ExecutionBench(nullptr, {}) {}
    explicit ExecutionBench(const TemporaryFolder* at, ChangeSchedule::Plan disturbance)
        : place(at != nullptr ? *at : *owned), schedule(std::move(disturbance)) {
        volumes = platform::testing::FakeVolumes::withOneAt(place.path());
        place.folder("home/.npm/_cacache");
        place.folder("opened");
        place.folder("home/.local/share");
        opened = {FileURL::folder(place / "opened")};
        FileCleanupIntentJournal::Options options;
        options.flushChanges = [this] { return flushes.flush(); };
        options.reserveByteCount = 0;
        options.gate = &gate;
        journal = std::make_unique<FileCleanupIntentJournal>(
            FileURL::folder(place / "home/.local/share/Harborline/intents"), options);
    }

    [[nodiscard]] FileURL home() const { return FileURL::folder(place / "home"); }
    [[nodiscard]] static std::string cached(const std::string& name) {
        return "home/.npm/_cacache/" + name;
    }
    [[nodiscard]] std::shared_ptr<const SafetyPolicyContext> context() const {
        return std::make_shared<const SafetyPolicyContext>(facts, std::vector<FileURL>{},
                                                           std::optional<HiddenProcesses>{});
    }

    /// Makes cache files of these names and plans them, in this order.
    void planFiles(const std::vector<std::string>& names,
                   CleanupExecutionMode mode = CleanupExecutionMode::recoverable) {
        for (const std::string& name : names) {
            if (!std::filesystem::exists(place / cached(name))) {
                place.file(cached(name), "contents of " + name);
            }
        }
        planThese(names, mode);
    }
    void planThese(const std::vector<std::string>& names, CleanupExecutionMode mode) {
        const auto rules = BuiltInCleanupRules::currentUser(home());
        const DeterministicSafetyPolicy policy(home());
        std::vector<CleanupCandidate> candidates;
        std::vector<LocalItemID> order;
        FileObserver observer(home(), volumes);
        for (const std::string& name : names) {
            const auto seen = observer.observation(FileURL::file(place / cached(name)));
            order.push_back(seen->id);
            candidates.push_back(
                policy.classify(*seen, {.rules = rules, .context = *context(), .now = planned})
                    .authorized(CleanupAuthorization{authorization::BuiltInRule{
                        .id = "npm-cache", .rootURL = home().appendingFolder(".npm/_cacache")}}));
        }
        setPlan(*CleanupPlanner(CleanupPlanner::hour, home())
                     .makePlan({.goal = {.byteCount = 0},
                                .candidates = candidates,
                                .mode = mode,
                                .preferredOrder = order,
                                .includeEveryEligibleCandidate = true,
                                .now = planned}));
    }
    /// Plans files and folders that the person picked in the opened folder.
    void planItems(const std::vector<std::string>& names) {
        DiskItemRemovalPolicy policy(
            {.home = home(), .openedFolders = opened, .context = context(), .volumes = volumes});
        CleanupPlan made{.id = platform::randomUUID(),
                         .goal = {.byteCount = 1},
                         .entries = {},
                         .createdAt = planned,
                         .expiresAt = planned.adding(CleanupPlanner::hour),
                         .mode = CleanupExecutionMode::recoverable};
        for (const std::string& name : names) {
            made.entries.push_back(
                policy
                    .planEntry(
                        {.item = FileURL::file(place / name), .measuredBytes = 1, .at = planned})
                    .value());
        }
        setPlan(std::move(made));
    }
    void setPlan(CleanupPlan made) {
        plan = std::move(made);
        sheet = CleanupSheetMaker::sheetFor({.plan = plan});
        approve();
    }
    void approve() {
        approval = {.planID = plan.id,
                    .approvedCandidateIDs = {},
                    .itemLevelApprovedCandidateIDs = {},
                    .approvedAt = planned.adding(30)};
        for (const CleanupPlanEntry& entry : plan.entries) {
            approval.approvedCandidateIDs.insert(entry.candidateID);
            if (entry.approvalRequirement == ApprovalRequirement::itemLevel) {
                approval.itemLevelApprovedCandidateIDs.insert(entry.candidateID);
            }
        }
        acknowledgement = PermanentCleanupAcknowledgement{
            .planID = plan.id,
            .itemCount = static_cast<std::int64_t>(plan.entries.size()),
            .byteCount = plan.potentiallyReclaimableByteCount(),
            .acknowledgedAt = planned.adding(30)};
    }

    [[nodiscard]] CleanupExecutor executor() { return executor(plan.mode); }
    [[nodiscard]] CleanupExecutor executor(CleanupExecutionMode mode) {
        CleanupExecutor::Options options{.home = home(),
                                         .sessionRoots = opened,
                                         .ledger = *ledger,
                                         .journal = journal.get(),
                                         .flushes = &flushes};
        CleanupExecutor::Machine machine{.volumes = volumes,
                                         .applications = applications,
                                         .freshContext = [this] { return context(); },
                                         .changes = changes,
                                         .gate = &gate,
                                         .trashHome =
                                             FileURL::folder(place / "home/.local/share/Trash"),
                                         .revalidator = revalidator};
        if (clock) machine.steadySeconds = [this] { return *clock; };
        switch (mode) {
        case CleanupExecutionMode::recoverable:
            return CleanupExecutor::recoverable(std::move(options), std::move(machine));
        case CleanupExecutionMode::permanent:
            return CleanupExecutor::permanent(std::move(options), std::move(machine));
        case CleanupExecutionMode::simulation: break;
        }
        options.journal = nullptr;
        options.flushes = nullptr;
        return CleanupExecutor::simulation(std::move(options), std::move(machine));
    }
    using Outcome = std::expected<CleanupReceipt, CleanupExecutionError>;
    [[nodiscard]] Outcome execute(CancelToken cancel = {}) {
        return executor().execute({.plan = plan,
                                   .sheet = &sheet,
                                   .approval = approval,
                                   .acknowledgement = acknowledgement,
                                   .at = now,
                                   .cancel = std::move(cancel)});
    }

    [[nodiscard]] bool isThere(const std::string& name) const {
        return std::filesystem::exists(std::filesystem::symlink_status(place / name));
    }
    [[nodiscard]] std::string contents(const std::string& name) const {
        std::ifstream file(place / name);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    /// The names below a folder, sorted, with a blank between them.
    [[nodiscard]] std::string names(const std::string& folder) const {
        std::set<std::string> found;
        std::error_code none;
        for (const auto& entry : std::filesystem::directory_iterator(place / folder, none)) {
            found.insert(entry.path().filename().string());
        }
        std::string all;
        for (const std::string& name : found) all += (all.empty() ? "" : " ") + name;
        return all;
    }
    [[nodiscard]] std::string trashed() const { return names("home/.local/share/Trash/files"); }
    [[nodiscard]] std::string notes() const { return names("home/.local/share/Trash/info"); }
};

/// What became of each entry: "movedToTrash", "refused: The item changed after it was reviewed."
inline std::vector<std::string> outcomes(const CleanupReceipt& receipt) {
    std::vector<std::string> all;
    for (const CleanupReceiptEntry& entry : receipt.entries) {
        std::string text(rawValue(entry.disposition));
        if (entry.failureDescription) text += ": " + *entry.failureDescription;
        all.push_back(std::move(text));
    }
    return all;
}

} // namespace tidyro::testing

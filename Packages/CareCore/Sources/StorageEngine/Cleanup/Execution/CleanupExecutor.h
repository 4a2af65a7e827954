#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "Base/Cancellation.h"
#include "Base/FileURL.h"
#include "Base/Timestamp.h"
#include "CareDomain/CleanupApproval.h"
#include "CareDomain/CleanupPlan.h"
#include "CareDomain/CleanupPlanSheet.h"
#include "CareDomain/CleanupReceipt.h"
#include "CareDomain/PermanentCleanupAcknowledgement.h"
#include "Platform/Folders/FolderFlushes.h"
#include "Platform/Folders/Trash.h"
#include "Platform/Mounts/Volumes.h"
#include "Platform/Processes/RunningApplications.h"
#include "StorageEngine/Cleanup/Execution/CleanupExecutionError.h"
#include "StorageEngine/Cleanup/Planning/CleanupAuthorizationVerifier.h"
#include "StorageEngine/Cleanup/Revalidation/PlanRevalidator.h"
#include "StorageEngine/Recovery/CleanupIntentJournal.h"
#include "StorageEngine/Recovery/RecoveryLedger.h"
#include "StorageEngine/Rules/CleanupAgeFloor.h"
#include "StorageEngine/Safety/SafetyPolicyContext.h"

namespace tidyro {

/// Carries out one approved plan, item by item, and returns a receipt of what became of each.
///
///     platform::LiveFolderChanges changes;
///     platform::FolderFlushes flushes(changes);
///     FileCleanupIntentJournal journal(folder, {.flushChanges = [&] { return flushes.flush(); }});
///     auto executor = CleanupExecutor::recoverable({.home = home,
///                                                   .sessionRoots = opened,
///                                                   .ledger = ledger,
///                                                   .journal = &journal,
///                                                   .flushes = &flushes},
///                                                  machine);
///     const auto receipt = executor.execute(
///         {.plan = plan, .sheet = &sheet, .approval = approval, .at = Timestamp::now()});
///     if (!receipt) show(receipt.error().description());
///
/// It believes nothing that was found out before. The mode, the acknowledgement and the approval
/// are checked, then every item is looked at again and rated again, and all that is intended is
/// written down. Right before an item is touched, its authorization is verified, the folder that it
/// lies in is opened beneath the authorized root, and the item is compared with the plan; after it
/// was moved it is compared once more, and goes back if it is another one. What fails for one item
/// leaves the others to go on.
///
/// A simulation takes the same way; only the last step of each item is left out. Used by one
/// thread.
class CleanupExecutor {
  public:
    static constexpr double day = 86'400;
    /// What a receipt tells of an item that the check before the run holds, and of one to which a
    /// run that ended early did not come.
    static constexpr std::string_view heldText = "The final safety check did not pass.";
    static constexpr std::string_view notReachedText =
        "The cleanup stopped before it reached this item.";

    struct Options {
        FileURL home;
        std::vector<FileURL> sessionRoots = {}; ///< opened by the person in this run
        CleanupAgeFloor ageFloor = CleanupAgeFloor::recommended;
        RecoveryLedger& ledger;
        /// Has to be there for a mode that changes anything.
        CleanupIntentJournaling* journal = nullptr;
        /// The same as the journal flushes through. Has to be there with the journal.
        platform::FolderFlushes* flushes = nullptr;
        double receiptRetention = 90 * day; ///< seconds; less than 1 counts as 1
        const AIToolRuleVerifier* aiToolRules = nullptr;
        AIToolEntryRevalidator* aiTools = nullptr;
    };
    /// What the machine is asked and changed through. All of it outlives the executor.
    struct Machine {
        const platform::Volumes& volumes;
        const platform::RunningApplications& applications;
        /// A view of what runs that was taken just now; null when there is none.
        std::function<std::shared_ptr<const SafetyPolicyContext>()> freshContext;
        platform::FolderChanges& changes;
        // For tests.
        platform::ChangeGate* gate = &platform::ChangeGate::open();
        std::optional<FileURL> trashHome = std::nullopt; ///< none: the person's own Trash
        std::function<double()> steadySeconds = nullptr;
        PlanRevalidator* revalidator = nullptr; ///< none: the default one
    };

    /// Moves to the Trash.
    [[nodiscard]] static CleanupExecutor recoverable(Options options, Machine machine);
    /// Removes for good; regular files that are Safe to Reclaim, nothing else.
    [[nodiscard]] static CleanupExecutor permanent(Options options, Machine machine);
    /// Touches nothing. Without a journal it writes nothing down either.
    [[nodiscard]] static CleanupExecutor simulation(Options options, Machine machine);

    [[nodiscard]] CleanupExecutionMode executionMode() const { return mode_; }

    /// After each item that was dealt with.
    struct Progress {
        std::size_t itemsCompleted; ///< however it went
        std::size_t itemsTotal;
        std::size_t itemsRefused; ///< or failed
        /// Removed for good or moved to the Trash, where it frees nothing until it is emptied.
        std::uint64_t bytesReclaimed;
    };
    struct Request {
        const CleanupPlan& plan;
        /// What was noted of the items when they were planned. Without it extra copies are refused.
        const CleanupPlanSheet* sheet = nullptr;
        const CleanupApproval& approval;
        std::optional<PermanentCleanupAcknowledgement> acknowledgement = std::nullopt;
        Timestamp at; ///< now
        std::function<void(const Progress&)> onProgress = nullptr;
        CancelToken cancel = {};
    };
    [[nodiscard]] std::expected<CleanupReceipt, CleanupExecutionError>
    execute(const Request& request);

  private:
    CleanupExecutor(CleanupExecutionMode mode, Options options, Machine machine);

    using Checked = std::expected<void, CleanupExecutionError>;
    [[nodiscard]] Checked validateMode(const Request& request) const;
    [[nodiscard]] static Checked validateApproval(const Request& request);

    CleanupExecutionMode mode_;
    Options options_;
    Machine machine_;
};

} // namespace tidyro

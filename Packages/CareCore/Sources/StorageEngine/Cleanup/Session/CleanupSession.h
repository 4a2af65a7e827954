#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "Base/Cancellation.h"
#include "Base/FileURL.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"
#include "CareDomain/CleanupApproval.h"
#include "CareDomain/CleanupPlan.h"
#include "CareDomain/CleanupPlanSheet.h"
#include "CareDomain/CleanupReceipt.h"
#include "CareDomain/PermanentCleanupAcknowledgement.h"
#include "Platform/Folders/FolderChanges.h"
#include "Platform/Mounts/Volumes.h"
#include "Platform/Processes/RunningApplications.h"
#include "Platform/Processes/RunningProcesses.h"
#include "StorageEngine/Cleanup/Emptying/TrashEmptier.h"
#include "StorageEngine/Cleanup/Execution/CleanupExecutor.h"
#include "StorageEngine/Cleanup/Planning/CleanupPlanFile.h"
#include "StorageEngine/Cleanup/Planning/CleanupPlanner.h"
#include "StorageEngine/Cleanup/Session/SuggestionSummary.h"
#include "StorageEngine/Cleanup/Settling/CleanupSettlement.h"
#include "StorageEngine/Recovery/CleanupHistoryIndex.h"
#include "StorageEngine/Sorting/DiskGroup.h"
#include "StorageEngine/Suggestions/SmartCleanupScan.h"
#include "StorageEngine/Trash/TrashRestorer.h"

namespace tidyro {

/// A plan that waits for a person's approval, with all that was noted of its items.
struct PreparedCleanup {
    CleanupPlan plan;
    CleanupPlanSheet sheet;
    std::string digest; ///< of both; the approval names it
};

/// A person's approval. It holds for the plan and the sheet of one digest, and for no others.
struct CleanupSessionApproval {
    std::string digest;
    CleanupApproval approval;
    /// For a plan that removes items for good.
    std::optional<PermanentCleanupAcknowledgement> acknowledgement = std::nullopt;
};

/// Why a step of a session was not taken.
struct CleanupSessionError {
    /// The receipt is not in the history.
    struct UnknownReceipt {
        bool operator==(const UnknownReceipt&) const = default;
    };
    using Cases = std::variant<CleanupExecutionError, RecoveryLedgerError, CleanupSettlementError,
                               CleanupIntentJournalError, CleanupPlanFileError, UnknownReceipt>;
    Cases value;

    /// For people.
    [[nodiscard]] std::string description() const;
    /// What a cleanup did until it ended early; null when nothing was begun.
    [[nodiscard]] const CleanupReceipt* receipt() const;
};

/// A whole cleanup, from suggestions to a receipt and back again, without anybody at a screen:
/// whoever shows it to people decides nothing.
///
///     CleanupSession session(CleanupSession::Options{.home = platform::homeFolder()});
///     const auto found = session.suggest();
///     auto prepared = session.plan({.candidates = found->candidates(),
///                                   .mode = CleanupExecutionMode::recoverable});
///     ... show prepared->plan, and ask ...
///     const auto approval = CleanupSession::approve(*prepared, {}, Timestamp::now());
///     const auto receipt = session.carryOut(*prepared, approval);
///     session.putBack(receipt->id);
///
/// Looking changes nothing but the summary of the last suggestions. Whoever acts puts interrupted
/// cleanups in order first. One cleanup runs at a time, whatever process it is in. Used by one
/// thread.
class CleanupSession {
  public:
    template <class T>
    using Result = std::expected<T, CleanupSessionError>;

    /// What the machine is asked and changed through; the running system's own where it is null.
    struct Machine {
        const platform::Volumes* volumes = nullptr;
        const platform::RunningProcesses* processes = nullptr;
        const platform::RunningApplications* applications = nullptr;
        platform::FolderChanges* changes = nullptr;
        platform::ChangeGate* gate = &platform::ChangeGate::open();
        std::function<Timestamp()> clock = Timestamp::now;
        std::optional<FileURL> trashHome = std::nullopt;
        double secondsBetweenLooks = 1;
    };
    struct Options {
        FileURL home;
        /// Where journal, ledger, key and plans are kept; none for "Harborline" in the person's
        /// Application Support folder.
        std::optional<FileURL> support = std::nullopt;
        std::vector<FileURL> openedFolders = {}; ///< by the person, in this run
        CleanupAgeFloor ageFloor = CleanupAgeFloor::recommended;
        const AIToolRuleVerifier* aiToolRules = nullptr;
        AIToolEntryRevalidator* aiTools = nullptr;
        Machine machine = {};
    };
    explicit CleanupSession(Options options);
    ~CleanupSession();
    CleanupSession(const CleanupSession&) = delete;
    CleanupSession& operator=(const CleanupSession&) = delete;

    // Suggesting ------------------------------------------------------------------------------

    [[nodiscard]] std::expected<SmartCleanupReport, SmartCleanupScan::ScanError>
    suggest(const SmartCleanupScan::ProgressHandler& progress = nullptr,
            const CancelToken& cancel = {});
    /// What the last search found, in whatever process it was made.
    [[nodiscard]] std::optional<SuggestionSummary> lastSuggestions() const;

    // Planning --------------------------------------------------------------------------------

    struct Selection {
        std::vector<CleanupCandidate> candidates;
        CleanupExecutionMode mode;
        /// Bytes to free; none for everything that is eligible.
        std::optional<std::uint64_t> goal = std::nullopt;
        std::optional<std::string> purpose = std::nullopt;
        /// Items to review that the person let through one by one.
        std::set<LocalItemID> reviewed = {};
        std::vector<LocalItemID> preferredOrder = {};
        double lifetime = CleanupPlanner::hour; ///< seconds
    };
    [[nodiscard]] std::expected<PreparedCleanup, CleanupPlanningError> plan(Selection selection);

    /// A file or folder that a person picked.
    struct Pick {
        FileURL item;
        std::uint64_t measuredBytes;
        std::optional<Timestamp> measuredAt = std::nullopt; ///< when the measurement began
        std::optional<std::string> placeID = std::nullopt;  ///< see `DiskItemRemovalPolicy`
        std::optional<DiskGroup> group = std::nullopt;
        /// For a folder that a project's tools generated.
        std::optional<authorization::ProjectArtifact> artifact = std::nullopt;
        bool isApplication = false;
        /// For an extra copy: the one that stays, as it was when the two were compared.
        std::optional<KeptCopy> keptCopy = std::nullopt;
    };
    struct RefusedPick {
        FileURL item;
        std::string reason; ///< for people
    };
    struct PickedCleanup {
        std::optional<PreparedCleanup> prepared; ///< none when every pick was refused
        std::vector<RefusedPick> refused;
    };
    /// Picked items only ever go to the Trash. What lies in a folder that was picked as well is
    /// refused, whichever was named first.
    [[nodiscard]] PickedCleanup planPicks(const std::vector<Pick>& picks,
                                          double lifetime = CleanupPlanner::hour);

    /// Approves a whole plan, and one by one the entries that were reviewed. For permanent removal
    /// it acknowledges the plan's own counts, so it is called with what the person confirmed.
    [[nodiscard]] static CleanupSessionApproval
    approve(const PreparedCleanup& prepared, const std::set<LocalItemID>& reviewed, Timestamp at);

    // Acting ----------------------------------------------------------------------------------

    /// In the plan's mode. A simulation writes nothing down.
    [[nodiscard]] Result<CleanupReceipt>
    carryOut(const PreparedCleanup& prepared, const CleanupSessionApproval& approval,
             const std::function<void(const CleanupExecutor::Progress&)>& progress = nullptr,
             const CancelToken& cancel = {});

    struct PutBack {
        LocalItemID candidateID;
        FileURL originalURL;
        FileURL url; ///< where it lies again, when it is back: mostly where it was
        std::expected<void, TrashRestorer::Error> done;
    };
    enum class WhenTaken : std::uint8_t {
        tell,      ///< the item stays in the Trash; the error names a free place beside its own
        putBeside, ///< the item goes there
    };
    /// Puts items of a receipt back from the Trash; all of them when none is named. Nothing is ever
    /// replaced.
    [[nodiscard]] Result<std::vector<PutBack>> putBack(const UUID& receiptID,
                                                       const std::set<LocalItemID>& items = {},
                                                       WhenTaken whenTaken = WhenTaken::tell);

    /// What cleanups moved to the Trash and is still known to be there.
    [[nodiscard]] Result<TrashEmptyingPlan> planEmptying();
    [[nodiscard]] Result<CleanupReceipt>
    emptyTrash(const TrashEmptyingPlan& plan, const PermanentCleanupAcknowledgement& told,
               const std::function<void(const TrashEmptier::Progress&)>& progress = nullptr,
               const CancelToken& cancel = {});

    // What was done -----------------------------------------------------------------------------

    [[nodiscard]] Result<CleanupHistoryIndex::History> history();
    /// Every receipt of the ledger, oldest first.
    [[nodiscard]] Result<std::vector<CleanupReceipt>> receipts();
    /// What interrupted cleanups left, and what settling would do. Nothing is changed. What a
    /// person has to know of items that cannot be found is in each cleanup's `openQuestions`.
    [[nodiscard]] Result<CleanupSettlement::Report> interrupted();
    /// Puts in order what interrupted cleanups left, and puts back what lies in a private folder of
    /// any cleanup, since it could not go back then.
    [[nodiscard]] Result<CleanupSettlement::Report> settle();

  private:
    struct Body;
    std::unique_ptr<Body> body_;
};

} // namespace tidyro

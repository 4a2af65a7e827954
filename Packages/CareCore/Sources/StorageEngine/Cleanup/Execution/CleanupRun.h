#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Base/UUID.h"
#include "StorageEngine/Cleanup/Execution/CleanupExecutor.h"
#include "StorageEngine/Cleanup/Execution/MutationIdentityGuard.h"
#include "StorageEngine/Cleanup/Execution/PermanentRemover.h"
#include "StorageEngine/Places/FolderResolver.h"
#include "StorageEngine/Trash/KeptCopies.h"

namespace tidyro {

/// One run over the entries of a plan that was checked, approved and journaled. It belongs to
/// `CleanupExecutor`, which makes one for each execution.
class CleanupRun {
  public:
    struct Parts {
        const CleanupExecutor::Request& request;
        const CleanupExecutor::Options& options;
        const CleanupExecutor::Machine& machine;
        const CleanupAuthorizationVerifier& verifier;
        PlanRevalidator& revalidator;
        UUID intentID;
    };
    explicit CleanupRun(const Parts& parts);

    /// Deals with every entry, stores the receipt and closes the intent, however it ends.
    [[nodiscard]] std::expected<CleanupReceipt, CleanupExecutionError>
    carryOut(PlanRevalidationReport report);

    /// The receipt of a run that never began.
    [[nodiscard]] CleanupReceipt receiptOfNothing() const;

  private:
    /// Why a run ends before its last entry.
    using Stop = std::optional<CleanupExecutionError::Cases>;
    using Mutated = std::expected<void, CleanupMutationError>;

    /// What became of an entry that was not carried out.
    struct Left {
        CleanupMoveDisposition disposition;
        std::string told;     ///< in the receipt
        std::string recorded; ///< in the journal
        /// Something lies where it did not before, which `told` tells.
        bool isElsewhere = false;
    };
    [[nodiscard]] static Left failureOf(const CleanupMutationError& error,
                                        CleanupMoveDisposition disposition);

    [[nodiscard]] Stop dealWithAll();
    [[nodiscard]] Stop dealWith(std::size_t index);
    [[nodiscard]] Stop revalidateRest(std::size_t from);
    [[nodiscard]] bool isMinuteOver() const;

    [[nodiscard]] std::optional<Left> reasonToLeave(std::size_t index) const;
    [[nodiscard]] std::optional<std::string> refusalByPolicy(const CleanupPlanEntry& entry);
    [[nodiscard]] std::shared_ptr<const SafetyPolicyContext> recentContext();
    [[nodiscard]] std::expected<VerifiedItem, Left> verified(std::size_t index);
    /// Why an extra copy has to stay: the one that is kept is not there.
    [[nodiscard]] std::optional<std::string_view> refusalOfCopy(std::size_t index,
                                                                const VerifiedItem& item);

    [[nodiscard]] Mutated prepareMove(VerifiedItem& item) const;
    [[nodiscard]] std::expected<FileURL, CleanupMutationError>
    moveToTrash(VerifiedItem item, const CleanupPlanEntry& entry);
    [[nodiscard]] std::expected<platform::TrashSlot, platform::TrashError>
    reserve(const platform::TrashItem& item);
    /// Removes for good what was set aside, once the journal tells it for good.
    [[nodiscard]] Stop removeSetAside();
    void putBackSetAside();

    [[nodiscard]] Stop record(std::size_t index, const CleanupIntentEntry::Outcome& outcome);
    [[nodiscard]] Stop leave(std::size_t index, const Left& left);
    void add(std::size_t index, CleanupMoveDisposition disposition,
             std::optional<FileURL> trashURL = std::nullopt,
             std::optional<std::string> failure = std::nullopt);
    [[nodiscard]] CleanupReceiptEntry entryNotReached(std::size_t index) const;
    void report(std::uint64_t byteCount);

    [[nodiscard]] CleanupReceipt receipt();
    [[nodiscard]] std::expected<CleanupReceipt, CleanupExecutionError> finish(Stop stop);

    struct SetAside {
        std::size_t index;
        SystemPermanentRemover::SetAside file;
    };

    Parts parts_;
    const CleanupPlan& plan_;
    std::vector<std::optional<RevalidationIssue>> issues_; ///< of each entry, as of the last look
    std::vector<std::optional<CleanupReceiptEntry>> told_; ///< of each entry, once it is over
    MutationIdentityGuard guard_;
    FolderResolver resolver_;
    std::optional<KeptCopies> keptCopies_; ///< once it was needed
    platform::Trash trash_;
    std::unique_ptr<SystemPermanentRemover> remover_; ///< in a permanent run
    std::vector<SetAside> setAside_;
    std::set<platform::ItemIdentity> severalNamesSetAside_; ///< files with other names
    double startedAt_;
    double setAsideSince_ = 0;
    double revalidatedAt_ = 0;
    std::shared_ptr<const SafetyPolicyContext> context_;
    double contextTakenAt_ = 0;
    std::uint64_t freedBytes_ = 0;
    bool isSomethingElsewhere_ = false;
    CleanupExecutor::Progress progress_;
};

} // namespace tidyro

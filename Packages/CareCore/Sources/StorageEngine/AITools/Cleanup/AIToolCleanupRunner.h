#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Base/Cancellation.h"
#include "Base/FileURL.h"
#include "Base/Timestamp.h"
#include "CareDomain/CleanupReceipt.h"
#include "Platform/Folders/FolderChanges.h"
#include "StorageEngine/AITools/AIToolAuditor.h"
#include "StorageEngine/AITools/Cleanup/AIToolCleanupChecks.h"
#include "StorageEngine/AITools/Cleanup/AIToolCleanupManifest.h"
#include "StorageEngine/Cleanup/Session/CleanupSession.h"
#include "SystemCare/SystemCare.h"

namespace tidyro {

/// What became of a manifest, item by item.
struct AIToolCleanupOutcome {
    struct Line {
        std::string path;
        std::uint64_t byteCount;
        std::optional<CleanupMoveDisposition> disposition = std::nullopt; ///< none: not reached
        std::optional<std::string> reason = std::nullopt;

        bool operator==(const Line&) const = default;
    };

    AIToolCleanupManifest manifest;
    std::vector<CleanupReceipt> receipts = {}; ///< at most one for each operation
    std::vector<Line> lines = {};              ///< one for each entry, in the manifest's order
    std::size_t removedEmptyFolderCount = 0;
    std::uint64_t toolBytesBefore;
    std::optional<std::uint64_t> toolBytesAfter = std::nullopt; ///< when it could be measured
    std::optional<std::uint64_t> volumeAvailableBefore = std::nullopt;
    std::optional<std::uint64_t> volumeAvailableAfter = std::nullopt;
    std::optional<std::string> stopReason = std::nullopt; ///< for people

    [[nodiscard]] std::size_t completedCount() const; ///< moved, removed or simulated
    [[nodiscard]] std::size_t refusedCount() const;
    [[nodiscard]] std::size_t failedCount() const;
    [[nodiscard]] std::size_t untouchedCount() const; ///< not reached
    [[nodiscard]] std::uint64_t movedToTrashByteCount() const;
    [[nodiscard]] std::uint64_t permanentlyRemovedByteCount() const;
};

/// Carries out the approved manifest of one home. Whoever has a session of cleanups hands that in,
/// so that the journal, the receipts and putting back are those of every other cleanup.
///
///     AIToolCleanupRunner runner({.auditor = auditor,
///                                 .checks = checks,
///                                 .carryOut = AIToolCleanupRunner::through(session)});
///     const auto approval = AIToolCleanupApproval::approve(*manifest, Timestamp::now());
///     const auto outcome = runner.execute({.manifest = *manifest,
///                                          .approval = approval,
///                                          .toolBytesBefore = bytes,
///                                          .at = Timestamp::now()});
///     if (!outcome) return show(description(outcome.error()));
///     for (const CleanupReceipt& receipt : outcome->receipts) session.putBack(receipt.id);
///
/// The session has the same checks as its `aiToolRules` and its `aiTools`, and they know the home.
/// Used by one thread.
class AIToolCleanupRunner {
  public:
    using Progress = std::function<void(const CleanupExecutor::Progress&)>;
    using CarryOut = std::function<CleanupSession::Result<CleanupReceipt>(
        const PreparedCleanup&, const CleanupSessionApproval&, const Progress&,
        const CancelToken&)>;
    /// The bytes that are free on the volume of a folder; none when that is not known.
    using Capacity = std::function<std::optional<std::uint64_t>(const FileURL& folder)>;

    struct Options {
        const AIToolAuditor& auditor; ///< it and what follows outlive the runner
        AIToolCleanupChecks& checks;
        CarryOut carryOut;
        Capacity capacity = nullptr;
        platform::FolderChanges* changes = nullptr; ///< none: the running system's own
    };
    explicit AIToolCleanupRunner(Options options) : options_(std::move(options)) {}

    /// The session outlives the runner.
    [[nodiscard]] static CarryOut through(CleanupSession& session);
    [[nodiscard]] static Capacity capacityReader(const SystemCare& care);

    /// As `AIToolCleanupManifest::make`.
    [[nodiscard]] static std::expected<AIToolCleanupManifest, AIToolCleanupError>
    makeManifest(const AIToolAuditReport& from, const AIToolCleanupSelection& selection,
                 Timestamp now) {
        return AIToolCleanupManifest::make(from, selection, now);
    }

    struct Request {
        const AIToolCleanupManifest& manifest;
        const AIToolCleanupApproval& approval;
        std::uint64_t toolBytesBefore;
        Timestamp at; ///< now
        Progress onProgress = nullptr;
        CancelToken cancel = {};
    };
    /// Each error comes before anything is touched. What stands against single items becomes their
    /// lines, and whatever ends a run early its stop reason.
    [[nodiscard]] std::expected<AIToolCleanupOutcome, AIToolCleanupError>
    execute(const Request& request);

    /// Removes the folders that held the items and are empty by now, from the deepest up, and tells
    /// how many. The roots of rules stay, and so do folders that a process has in use. When an item
    /// is put back from the Trash its folders are made again, as the plan's sheet noted them.
    std::size_t removeEmptiedFolders(const AIToolCleanupManifest& manifest,
                                     std::span<const CleanupReceiptEntry> reached);

  private:
    class Run;

    Options options_;
};

} // namespace tidyro

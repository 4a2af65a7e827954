#pragma once

#include <functional>
#include <string>
#include <vector>

#include "StorageEngine/Recovery/CleanupIntentJournal.h"
#include "StorageEngine/Recovery/InterruptedCleanupReport.h"

namespace tidyro {

/// Turns each cleanup that never ended into a report for people. It reads the journal and asks
/// whether files are there; it changes nothing.
///
///     CleanupRecoveryReconciler reconciler{.journal = &journal};
///     const auto reports = reconciler.pendingReports();
///     if (reports) for (const auto& report : *reports) show(report.summary());
///
/// It looks for an item at its place only. An item of which the crash took the record, but not the
/// move, is told as unaccounted for.
struct CleanupRecoveryReconciler {
    CleanupIntentJournaling* journal;
    std::function<bool(const std::string& path)> fileExists = isThere;

    /// Oldest first. A cleanup that runs right now is none of them. Damaged intents are not either:
    /// `CleanupIntentJournaling::openIntents` tells them.
    [[nodiscard]] CleanupIntentJournaling::Result<std::vector<InterruptedCleanupReport>>
    pendingReports() const;

    [[nodiscard]] InterruptedCleanupReport report(const RecordedIntent& recorded) const;

    /// Whether a path leads to an item. A link counts as such, wherever it leads.
    [[nodiscard]] static bool isThere(const std::string& path);
};

} // namespace tidyro

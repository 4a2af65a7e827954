#pragma once

#include <expected>
#include <functional>
#include <memory>
#include <string>
#include <variant>

#include "Base/Cancellation.h"
#include "Rooms/Duplicates/Search/DuplicateProgress.h"
#include "Rooms/Duplicates/Search/DuplicateReport.h"
#include "Rooms/Duplicates/Search/DuplicateSearchOptions.h"
#include "StorageEngine/DiskTree/DiskTree.h"
#include "StorageEngine/DiskTree/DiskTreeScanner.h"
#include "StorageEngine/Safety/SafetyPolicyContext.h"

namespace tidyro {

/// Finds files with the same contents. It tells which of the copies take space of their own, and
/// which have to stay.
///
///     const auto report = DuplicateEngine().run({.roots = {folder}, .home = home});
///     if (!report) return show(DuplicateEngine::description(report.error()));
///     for (const DuplicateGroup& group : report->groups) show(group.name(), group.wastedBytes());
///
/// It opens only files whose size another file has, and reads their beginning. Of the files that
/// still agree it reads both ends. Files whose ends agree are read whole and proven by SHA-256. A
/// file that vanishes, changes, is replaced or cannot be read meanwhile drops out. All names of one
/// file count as one copy.
///
/// Reading leaves no trace in the system's cache of files. Any thread may run a search, and several
/// may run at once. A search has threads of its own and returns when they have ended.
class DuplicateEngine {
  public:
    using Error = std::variant<DiskTreeScanner::NotADirectory, DiskTreeScanner::Unreadable,
                               CancellationError>;
    /// One sentence for people.
    [[nodiscard]] static std::string description(const Error& error);

    struct Settings {
        /// Tells what runs on the machine, since that decides whether a copy may be removed. It is
        /// asked once, after everything was read, and returns null when it cannot tell. Absent: the
        /// running system is asked.
        std::function<std::shared_ptr<const SafetyPolicyContext>()> context = nullptr;
        double progressInterval = 0.1; ///< seconds between reports
        /// Runs between listing and reading, for tests and diagnostics.
        std::function<void()> afterListing = nullptr;
    };
    /// Called from the search's threads, never from two at once.
    using ProgressHandler = std::function<void(const DuplicateProgress&)>;

    DuplicateEngine() = default;
    explicit DuplicateEngine(Settings settings) : settings_(std::move(settings)) {}

    /// `scanned`: the tree of a finished scan. It is searched in place of the roots, and may be
    /// null.
    [[nodiscard]] std::expected<DuplicateReport, Error>
    run(const DuplicateSearchOptions& options, const DiskTree* scanned = nullptr,
        const ProgressHandler& progress = nullptr, const CancelToken& cancel = {}) const;

  private:
    Settings settings_;
};

} // namespace tidyro

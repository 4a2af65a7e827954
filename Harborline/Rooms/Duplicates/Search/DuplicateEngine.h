#pragma once

#include <expected>
#include <functional>
#include <memory>
#include <string>
#include <variant>

#include "Base/Cancellation.h"
#include "Rooms/Duplicates/Report/DuplicateReport.h"
#include "Rooms/Duplicates/Search/DuplicateProgress.h"
#include "Rooms/Duplicates/Search/DuplicateSearchOptions.h"
#include "StorageEngine/DiskTree/DiskTree.h"
#include "StorageEngine/DiskTree/DiskTreeScanner.h"
#include "StorageEngine/Safety/SafetyPolicyContext.h"

namespace tidyro {

/// Finds files with the same contents, and tells which of the copies take space of their own and
/// which have to stay.
///
///     const auto report = DuplicateEngine().run({.roots = {folder}, .home = home});
///     if (!report) show(DuplicateEngine::description(report.error()));
///
/// Only files of a size that another one has are opened. Of those the beginning is read, of what
/// still agrees both ends, and only what agrees in that is read whole and proven by SHA-256. What
/// vanishes, changes, is replaced or cannot be read meanwhile drops out. Names of one file are one
/// copy, whatever way leads to them.
///
/// Reading leaves no trace in the system's cache of files. Any thread may run a search, and
/// several at once; it has threads of its own and returns when they have ended.
class DuplicateEngine {
  public:
    using Error = std::variant<DiskTreeScanner::NotADirectory, DiskTreeScanner::Unreadable,
                               CancellationError>;
    /// One sentence for people.
    [[nodiscard]] static std::string description(const Error& error);

    struct Settings {
        /// What runs on the machine, for the question whether a copy may be removed; asked once,
        /// after everything was read, and null when it is not known. Absent: the running system.
        std::function<std::shared_ptr<const SafetyPolicyContext>()> context = nullptr;
        double progressInterval = 0.1; ///< seconds between reports
        /// Runs between listing and reading, for tests and diagnostics.
        std::function<void()> afterListing = nullptr;
    };
    /// Called from the search's threads, never from two at once.
    using ProgressHandler = std::function<void(const DuplicateProgress&)>;

    DuplicateEngine() = default;
    explicit DuplicateEngine(Settings settings) : settings_(std::move(settings)) {}

    /// `scanned`: the tree of a finished scan, which is then searched in place of the roots.
    [[nodiscard]] std::expected<DuplicateReport, Error>
    run(const DuplicateSearchOptions& options, const DiskTree* scanned = nullptr,
        const ProgressHandler& progress = nullptr, const CancelToken& cancel = {}) const;

  private:
    Settings settings_;
};

} // namespace tidyro

#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>
#include <string>
#include <variant>

#include "Base/Cancellation.h"
#include "Base/FileURL.h"
#include "Base/Timestamp.h"
#include "Platform/Mounts/Volumes.h"
#include "StorageEngine/Rules/CleanupAgeFloor.h"
#include "StorageEngine/Safety/LocalRuntimeSafetyContextProvider.h"
#include "StorageEngine/Suggestions/SmartCleanupReport.h"

namespace tidyro {

/// Goes through the places of the shipped cleanup rules in a home and tells which files may be
/// cleaned, grouped by rule.
///
///     LocalRuntimeSafetyContextProvider contexts(home);
///     const platform::LiveVolumes volumes;
///     const SmartCleanupScan scan(home, contexts, volumes, {});
///     const auto report = scan.run();
///     if (!report) show(SmartCleanupScan::description(report.error()));
///
/// Every file that a first look finds eligible is looked at a second time, some time later and with
/// a fresh view of what runs. A file that changed between the looks is being written to and stays;
/// so does one whose folder was replaced by a link. The second look also asks each file itself who
/// has it open, since a path in use says nothing of the file's other names. It holds the parts of
/// databases, repositories and environments. A file that was created within its rule's age stays
/// too: it was unpacked lately, however old it says it is. A file that passes both looks is a
/// candidate with the authorization of its rule. Nothing on the disk is changed.
///
/// `run` returns when all is done. Up to three more threads look at folders meanwhile; the clock,
/// the progress handler and `betweenLooks` are called on the caller's.
class SmartCleanupScan {
  public:
    /// There is no context to rate files with: it could not be found out what runs, what is mounted
    /// or what is protected.
    struct ContextUnavailable {
        MissingPiece missing = MissingPiece::applications;
        bool operator==(const ContextUnavailable&) const = default;
    };
    using ScanError = std::variant<ContextUnavailable, CancellationError>;
    /// One sentence for people.
    [[nodiscard]] static std::string description(const ScanError& error);

    /// Bounds for very large places. A coverage gap tells where one of them ended a walk.
    struct Budget {
        std::uint64_t entriesPerPlace = 500'000;
        /// In all. Each takes some 300 bytes of memory and twice its path.
        std::uint64_t candidates = 500'000;
        std::size_t depth = 128; ///< folders of a place, one inside the other
    };
    struct Options {
        CleanupAgeFloor ageFloor = CleanupAgeFloor::recommended;
        Budget budget = {};
        /// At least so many seconds pass between the two looks at a file: a log that is written to
        /// now and then has to show it.
        double secondsBetweenLooks = 1;
        double progressInterval = 0.1; ///< seconds between reports
        std::function<Timestamp()> clock = Timestamp::now;
        std::function<void()> betweenLooks = nullptr; ///< for tests and diagnostics
    };

    struct Progress {
        enum class Phase : std::uint8_t { looking, confirming };
        Phase phase = Phase::looking;
        std::uint64_t done = 0;  ///< places looked through, or files confirmed
        std::uint64_t total = 0; ///< of them
        std::uint64_t entriesRead = 0;
        std::string currentPath;
        bool operator==(const Progress&) const = default;
    };
    /// Called on the thread that runs the scan.
    using ProgressHandler = std::function<void(const Progress&)>;

    /// The provider and the volumes outlive the scan.
    SmartCleanupScan(FileURL home, LocalRuntimeSafetyContextProvider& contexts,
                     const platform::Volumes& volumes, Options options);

    [[nodiscard]] std::expected<SmartCleanupReport, ScanError>
    run(const ProgressHandler& progress = nullptr, const CancelToken& cancel = {}) const;

  private:
    FileURL home_;
    LocalRuntimeSafetyContextProvider& contexts_;
    const platform::Volumes& volumes_;
    Options options_;
};

} // namespace tidyro

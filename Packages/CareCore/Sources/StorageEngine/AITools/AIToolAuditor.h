#pragma once

#include <cstddef>
#include <expected>
#include <functional>
#include <memory>
#include <utility>

#include "Base/Cancellation.h"
#include "Base/Timestamp.h"
#include "Platform/Mounts/Volumes.h"
#include "StorageEngine/AITools/AIToolAuditReport.h"
#include "StorageEngine/AITools/AIToolHome.h"
#include "StorageEngine/AITools/AIToolWalker.h"
#include "StorageEngine/AITools/ToolActivityProbe.h"
#include "StorageEngine/Rules/CleanupAgeFloor.h"
#include "StorageEngine/Safety/SafetyPolicyContext.h"

namespace tidyro {

/// Measures a tool's home with its stores, and decides of each entry whether it may go.
///
///     AIToolAuditor auditor({.ageFloor = CleanupAgeFloor::recommended,
///                            .activityProvider = activity,
///                            .volumes = volumes,
///                            .freshContext = [&] { return contexts.freshContext(); }});
///     const auto report = auditor.audit(home, Timestamp::now());
///     if (report) show(report->ruleFindings);
///
/// It changes nothing. Any thread may ask, also several at once.
class AIToolAuditor {
  public:
    struct Options {
        CleanupAgeFloor ageFloor = CleanupAgeFloor::recommended;
        ToolActivityProviding& activityProvider; ///< it and what follows outlive the auditor
        const platform::Volumes& volumes;
        /// Null for none; then nothing is eligible.
        std::function<std::shared_ptr<const SafetyPolicyContext>()> freshContext;
        bool honorsStatusChange = true;
        std::size_t maxEntries = AIToolWalker::maxEntries; ///< of the home and its stores together
    };
    explicit AIToolAuditor(Options options) : options_(std::move(options)) {}

    /// ESTALE when the home is no longer the folder that was validated. A store that cannot be read
    /// is a gap.
    [[nodiscard]] std::expected<AIToolAuditReport, AIToolWalker::Error>
    audit(const AIToolHome& home, Timestamp now, const CancelToken& cancel = {}) const;

  private:
    Options options_;
};

} // namespace tidyro

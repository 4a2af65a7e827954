#pragma once

#include <map>
#include <set>
#include <span>
#include <string>

#include "CareDomain/CleanupPlan.h"
#include "CareDomain/CleanupPlanSheet.h"

namespace tidyro {

/// Makes the sheet that stands beside a plan: looks at each item once and notes what the plan's own
/// records leave out.
///
///     const CleanupPlanSheet sheet = CleanupSheetMaker::sheetFor(
///         {.plan = plan, .keptCopies = &kept, .reviewed = &approved});
///
/// An item that cannot be looked at has no dates in the sheet. It is refused when the plan is
/// carried out, unless it is what was planned all the same.
struct CleanupSheetMaker {
    struct Request {
        const CleanupPlan& plan;
        const std::map<LocalItemID, KeptCopy>* keptCopies = nullptr; ///< for extra copies
        const std::set<LocalItemID>* reviewed = nullptr;             ///< let through one by one
    };
    [[nodiscard]] static CleanupPlanSheet sheetFor(const Request& request);

    /// The note of a copy that is kept; its fingerprint is the one that was found when the copies
    /// were compared.
    [[nodiscard]] static KeptCopy keptCopy(const FileURL& url, FileFingerprint fingerprint);
};

} // namespace tidyro

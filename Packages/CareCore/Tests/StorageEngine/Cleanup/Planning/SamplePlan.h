#pragma once

#include <string>

#include "CareDomain/CleanupPlan.h"
#include "CareDomain/CleanupPlanSheet.h"
#include "CareDomain/SampleRecords.h"

namespace tidyro::testing {

struct SamplePlan {
    CleanupPlan plan;
    CleanupPlanSheet sheet;
};

/// A plan with a sheet that goes with it, both filled to the brim.
inline SamplePlan samplePlan(std::uint64_t seed = 1) {
    SamplePlan made{.plan = sample<CleanupPlan>(seed), .sheet = sample<CleanupPlanSheet>(seed)};
    made.sheet.planID = made.plan.id;
    for (std::size_t i = 0; i < made.plan.entries.size(); ++i) {
        made.sheet.entries[i].candidateID = made.plan.entries[i].candidateID;
    }
    return made;
}

} // namespace tidyro::testing

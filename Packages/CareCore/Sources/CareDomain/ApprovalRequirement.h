#pragma once

#include "Base/RawValues.h"

namespace tidyro {

/// What it takes to approve an entry of a plan.
enum class ApprovalRequirement {
    planLevel, ///< the approval of the plan as a whole covers it
    itemLevel, ///< it must be approved by itself
};

constexpr RawValueTable<ApprovalRequirement, 2> rawValues(RawValueTag<ApprovalRequirement>) {
    return {{{{ApprovalRequirement::planLevel, "planLevel"},
              {ApprovalRequirement::itemLevel, "itemLevel"}}}};
}

} // namespace tidyro

#include "CareDomain/CleanupCandidate.h"

#include <utility>

namespace tidyro {

CleanupCandidate CleanupCandidate::authorized(CleanupAuthorization by) const& {
    return {.observation = observation,
            .category = category,
            .assessment = assessment,
            .authorization = std::move(by)};
}

CleanupCandidate CleanupCandidate::authorized(CleanupAuthorization by) && {
    authorization = std::move(by);
    return std::move(*this);
}

} // namespace tidyro

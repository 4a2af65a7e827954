#pragma once

#include "Base/Record.h"
#include "Base/SharedText.h"
#include "CareDomain/EvidenceCodes.h"

namespace tidyro {

/// Why an item was rated as it was.
///
///     CleanupEvidence{.codes = {EvidenceCode::oldEnough, EvidenceCode::regenerable},
///                     .summary = "A cache that its application rebuilds."}
///
/// `EvidenceCodes` brings the codes into one order and drops repetitions, also when they come from
/// JSON. So the record needs no constructor and stays a plain aggregate.
struct CleanupEvidence {
    EvidenceCodes codes;
    SharedText summary; ///< one sentence for people; many items share it

    static constexpr auto fields() {
        return fieldList<CleanupEvidence>(field("codes", &CleanupEvidence::codes),
                                          field("summary", &CleanupEvidence::summary));
    }
    bool operator==(const CleanupEvidence&) const = default;
};

} // namespace tidyro

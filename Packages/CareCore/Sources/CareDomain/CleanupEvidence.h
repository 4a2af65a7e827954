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
/// Two evidences from the same codes are equal, in whatever order and however often they came. The
/// record needs no constructor for it and stays a plain aggregate: the list of codes itself knows
/// no form but the normal one, wherever it comes from, and JSON reads it through the same door.
struct CleanupEvidence {
    EvidenceCodes codes;
    SharedText summary; ///< one sentence, shown to people; most are shared by many items

    static constexpr auto fields() {
        return fieldList<CleanupEvidence>(field("codes", &CleanupEvidence::codes),
                                          field("summary", &CleanupEvidence::summary));
    }
    bool operator==(const CleanupEvidence&) const = default;
};

} // namespace tidyro

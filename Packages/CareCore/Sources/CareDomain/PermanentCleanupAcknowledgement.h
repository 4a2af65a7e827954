#pragma once

#include <cstdint>
#include <string>

#include "Base/LocaleText.h"
#include "Base/Record.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"

namespace tidyro {

/// The user's confirmation that a plan may remove files for good, in addition to the approval. The
/// counts are those that the confirmation showed. It is void for a plan with other counts.
struct PermanentCleanupAcknowledgement {
    UUID planID;
    std::int64_t itemCount;
    std::uint64_t byteCount;
    Timestamp acknowledgedAt;

    /// The title of the button that confirms it: "Permanently delete 1,234 items".
    [[nodiscard]] static std::string
    destructiveActionTitle(std::int64_t itemCount,
                           const LocaleText& locale = LocaleText::current());

    static constexpr auto fields() {
        using Self = PermanentCleanupAcknowledgement;
        return fieldList<Self>(field("planID", &Self::planID), field("itemCount", &Self::itemCount),
                               field("byteCount", &Self::byteCount),
                               field("acknowledgedAt", &Self::acknowledgedAt));
    }
    bool operator==(const PermanentCleanupAcknowledgement&) const = default;
};

} // namespace tidyro

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Base/Record.h"
#include "Base/Saturating.h"
#include "CareDomain/FileObservation.h"

namespace tidyro {

/// A set of copies: files whose contents are the same, byte for byte.
struct ExactDuplicateGroup {
    std::string contentDigest; ///< lower-case hexadecimal
    std::uint64_t byteCountPerItem;
    std::vector<FileObservation> members;

    /// The bytes of all copies but one, saturating. A set of fewer than two frees nothing.
    [[nodiscard]] std::uint64_t potentiallyReclaimableByteCount() const {
        return saturatingMultiply(byteCountPerItem,
                                  saturatingSubtract<std::uint64_t>(members.size(), 1));
    }

    static constexpr auto fields() {
        using Self = ExactDuplicateGroup;
        return fieldList<Self>(field("contentDigest", &Self::contentDigest),
                               field("byteCountPerItem", &Self::byteCountPerItem),
                               field("members", &Self::members));
    }
    bool operator==(const ExactDuplicateGroup&) const = default;
};

} // namespace tidyro

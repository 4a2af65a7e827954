#pragma once

#include <cstdint>
#include <string_view>

#include "Rooms/Find/Services/Index/FindIndexStorage.h"

namespace tidyro {

/// Where the text that was typed stands in a name, the best place first.
enum class FindNameRank : std::uint8_t {
    wholeName,     ///< it is the name
    withoutSuffix, ///< it is the name without its extension
    beginning,     ///< at the beginning of the name
    word,          ///< at the beginning of a word in the name
    anywhere,
};

/// The rank of an entry whose folded name holds the needle. The needle is folded and not empty.
[[nodiscard]] FindNameRank nameRank(const FindIndexStorage& storage, std::uint32_t entry,
                                    std::string_view needle);

/// Whether a word begins at this byte of an entry's folded name, which must not be the first byte.
/// Words begin behind bytes that are no letter or digit, and where a capital follows a small
/// letter. The latter is seen in ASCII names only: in others the folded name may have its letters
/// elsewhere.
[[nodiscard]] bool isWordStart(const FindIndexStorage& storage, std::uint32_t entry,
                               std::size_t at);

} // namespace tidyro

#pragma once

#include <cstdint>
#include <string_view>

#include "Rooms/Find/Services/Index/FindIndexStorage.h"

namespace tidyro {

/// How well a name fits what was typed, the best first.
enum class FindNameRank : std::uint8_t {
    wholeName,     ///< it is the name
    withoutSuffix, ///< it is the name without its extension
    beginning,     ///< the name begins with it
    word, ///< a word in the name does: after what is no letter or digit, or a change of case
    anywhere,
};

/// The rank of an entry whose folded name holds the needle, which is folded and not empty. Changes
/// of case are looked for in plain ASCII names only: elsewhere the folded name need not have the
/// letters of the name in their places.
[[nodiscard]] FindNameRank nameRank(const FindIndexStorage& storage, std::uint32_t entry,
                                    std::string_view needle);

/// Whether a word begins in the folded name of an entry at this byte, which is not its first.
[[nodiscard]] bool beginsWord(const FindIndexStorage& storage, std::uint32_t entry, std::size_t at);

} // namespace tidyro

#pragma once

#include <cstdint>
#include <string_view>

#include "Base/RawValues.h"
#include "Rooms/Duplicates/Search/DuplicateReport.h"

namespace tidyro {

/// Which of the copies with the same contents stays when nobody chose one by hand.
enum class KeepRule : std::uint8_t {
    oldest,          ///< made first; where that is not known, modified first
    newest,          ///< modified last
    shortestPath,    ///< the fewest characters
    preferredFolder, ///< one in the folder that the person set; of several there, the oldest
};

constexpr RawValueTable<KeepRule, 4> rawValues(RawValueTag<KeepRule>) {
    using enum KeepRule;
    return {{{{oldest, "oldest"},
              {newest, "newest"},
              {shortestPath, "shortestPath"},
              {preferredFolder, "preferredFolder"}}}};
}

/// Whether a file's name says that it is a copy of another one, as file managers and browsers name
/// them: "x (1).jpg", "x copy.jpg", "x - Kopie (2).jpg", "Copy of x.jpg".
[[nodiscard]] bool isNamedAsCopy(std::string_view fileName);

/// Whether the rule prefers one copy to another. Where it prefers none, the path that is smaller in
/// bytes wins. Characters are code points; a sequence of bytes that is no UTF-8 counts as one. The
/// preferred folder is not looked at here.
[[nodiscard]] bool isBetterToKeep(const DuplicateCopy& copy, const DuplicateCopy& than,
                                  KeepRule rule);

} // namespace tidyro

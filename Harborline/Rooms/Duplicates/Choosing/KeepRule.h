#pragma once

#include <cstdint>

#include "Base/RawValues.h"
#include "Rooms/Duplicates/Report/DuplicateReport.h"

namespace tidyro {

/// Which of the copies with the same contents stays when nobody chose one by hand.
enum class KeepRule : std::uint8_t {
    oldest,          ///< made first; where that is not known, modified first
    newest,          ///< modified last
    shortestPath,    ///< the fewest characters
    preferredFolder, ///< one in a folder that the person set, and of several there the oldest
};

constexpr RawValueTable<KeepRule, 4> rawValues(RawValueTag<KeepRule>) {
    using enum KeepRule;
    return {{{{oldest, "oldest"},
              {newest, "newest"},
              {shortestPath, "shortestPath"},
              {preferredFolder, "preferredFolder"}}}};
}

/// Whether the rule prefers one copy to another. What it cannot tell apart the paths decide: the
/// smaller one in bytes. Characters are the code points of the path; a sequence of bytes that is no
/// UTF-8 counts as one. In which folder the copies lie is not looked at.
[[nodiscard]] bool isBetterToKeep(const DuplicateCopy& copy, const DuplicateCopy& than,
                                  KeepRule rule);

} // namespace tidyro

#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "Rooms/Find/Services/Matching/FindSubject.h"

namespace tidyro {

/// Where words begin and end in a name: at both ends of it, beside everything that is no letter or
/// digit, where a capital letter follows a small one, and between letters and digits. Marks belong
/// to the letter before them.
///
///     "IMG_2026 myPhoto" has the words "IMG", "2026", "my", "Photo"
class FindWordBoundaries {
  public:
    /// In `folded`, or in `own` bytes if `inOwn`. The subject's text outlives it.
    FindWordBoundaries(const FindSubject& subject, bool inOwn);

    [[nodiscard]] bool isAt(std::size_t offset) const;

  private:
    std::string_view own_;
    bool isASCII_;
    std::vector<std::size_t> offsets_; ///< in order; of text that is not ASCII
};

} // namespace tidyro

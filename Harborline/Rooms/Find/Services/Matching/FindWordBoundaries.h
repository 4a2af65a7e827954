#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "Rooms/Find/Services/Matching/FindSubject.h"

namespace tidyro {

/// Where words begin and end in a name: at its two ends, beside every character that is no letter
/// or digit, where a capital letter follows a small one, and between letters and digits. A mark
/// belongs to the letter before it.
///
///     "IMG_2026 myPhoto" has the words "IMG", "2026", "my", "Photo"
class FindWordBoundaries {
  public:
    /// Offsets are those of the subject's `own` bytes when case counts, and of its `folded` bytes
    /// otherwise. The subject's texts have to outlive it.
    FindWordBoundaries(const FindSubject& subject, bool isCaseSensitive);

    [[nodiscard]] bool isAt(std::size_t offset) const;

  private:
    std::string_view own_;
    bool isASCII_;
    std::vector<std::size_t> offsets_; ///< in order; of text that is not ASCII
};

} // namespace tidyro

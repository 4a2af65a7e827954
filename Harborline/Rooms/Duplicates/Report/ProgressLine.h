#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "Base/Stopwatch.h"
#include "Rooms/Duplicates/Search/DuplicateProgress.h"

namespace tidyro {

/// One line on a terminal that shows how far a search is and how long it may still take. Each
/// report overwrites the line. `show` is called by one thread at a time.
class ProgressLine {
  public:
    explicit ProgressLine(std::function<void(std::string_view)> write) : write_(std::move(write)) {}

    void show(const DuplicateProgress& progress);
    /// Wipes the line out.
    void clear();

    /// "Comparing  42 %, about 12 s left". `elapsed`: seconds since the phase began.
    [[nodiscard]] static std::string text(const DuplicateProgress& progress, double elapsed);

  private:
    std::function<void(std::string_view)> write_;
    DuplicateProgress::Phase phase_ = DuplicateProgress::Phase::listing;
    Stopwatch sincePhaseBegan_;
    std::size_t width_ = 0;
};

} // namespace tidyro

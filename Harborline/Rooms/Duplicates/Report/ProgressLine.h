#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "Rooms/Duplicates/Search/DuplicateProgress.h"

namespace tidyro {

/// One line on a terminal that tells how far a search is and how long it may still take, written
/// over again and again.
class ProgressLine {
  public:
    explicit ProgressLine(std::function<void(std::string_view)> write) : write_(std::move(write)) {}

    /// Not from two threads at once.
    void show(const DuplicateProgress& progress);
    /// Takes the line away.
    void clear();

    /// "Comparing  42 %, about 12 s left". `elapsed`: seconds since the phase began.
    [[nodiscard]] static std::string text(const DuplicateProgress& progress, double elapsed);

  private:
    using Clock = std::chrono::steady_clock;

    std::function<void(std::string_view)> write_;
    DuplicateProgress::Phase phase_ = DuplicateProgress::Phase::listing;
    Clock::time_point phaseBegan_ = Clock::now();
    std::size_t width_ = 0;
};

} // namespace tidyro

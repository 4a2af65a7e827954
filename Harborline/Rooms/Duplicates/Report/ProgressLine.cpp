#include "Rooms/Duplicates/Report/ProgressLine.h"

#include <algorithm>

#include <fmt/format.h>

namespace tidyro {

namespace {

std::string_view phaseTitle(DuplicateProgress::Phase phase) {
    switch (phase) {
    case DuplicateProgress::Phase::listing: return "Listing";
    case DuplicateProgress::Phase::sampling: return "Sampling";
    case DuplicateProgress::Phase::verifying: return "Comparing";
    }
    return "";
}

std::string durationText(double seconds) {
    constexpr double minute = 60;
    constexpr double hour = 3'600;
    if (seconds < minute) return fmt::format("{:.0f} s", seconds);
    if (seconds < hour) return fmt::format("{:.0f} min", seconds / minute);
    return fmt::format("{:.1f} h", seconds / hour);
}

} // namespace

std::string ProgressLine::text(const DuplicateProgress& progress, double elapsed) {
    const auto fraction = progress.fraction();
    if (!fraction) return fmt::format("{} …", phaseTitle(progress.phase));
    std::string text = fmt::format("{} {:3.0f} %", phaseTitle(progress.phase), 100 * *fraction);
    // Earlier the guess would jump about.
    if (*fraction > 0.01 && elapsed > 1) {
        text += fmt::format(", about {} left", durationText(elapsed * (1 - *fraction) / *fraction));
    }
    return text;
}

void ProgressLine::show(const DuplicateProgress& progress) {
    if (progress.phase != phase_) {
        phase_ = progress.phase;
        sincePhaseBegan_.restart();
    }
    const std::string line = text(progress, sincePhaseBegan_.seconds());
    // Blanks overwrite the rest of a longer line. The width counts bytes, so they may be too many.
    write_(fmt::format("\r{:<{}}", line, std::max(width_, line.size())));
    width_ = line.size();
}

void ProgressLine::clear() {
    if (width_ > 0) write_(fmt::format("\r{:<{}}\r", "", width_));
    width_ = 0;
}

} // namespace tidyro

#include "Rooms/Duplicates/Report/ProgressLine.h"

#include <algorithm>

#include <fmt/format.h>

namespace tidyro {

namespace {

std::string_view title(DuplicateProgress::Phase phase) {
    switch (phase) {
    case DuplicateProgress::Phase::listing: return "Listing";
    case DuplicateProgress::Phase::sampling: return "Sampling";
    case DuplicateProgress::Phase::verifying: return "Comparing";
    }
    return "";
}

std::string duration(double seconds) {
    constexpr double minute = 60;
    constexpr double hour = 3'600;
    if (seconds < minute) return fmt::format("{:.0f} s", seconds);
    if (seconds < hour) return fmt::format("{:.0f} min", seconds / minute);
    return fmt::format("{:.1f} h", seconds / hour);
}

} // namespace

std::string ProgressLine::text(const DuplicateProgress& progress, double elapsed) {
    const auto fraction = progress.fraction();
    if (!fraction) return fmt::format("{} …", title(progress.phase));
    std::string text = fmt::format("{} {:3.0f} %", title(progress.phase), 100 * *fraction);
    // Too early a guess would only be corrected again and again.
    if (*fraction > 0.01 && elapsed > 1) {
        text += fmt::format(", about {} left", duration(elapsed * (1 - *fraction) / *fraction));
    }
    return text;
}

void ProgressLine::show(const DuplicateProgress& progress) {
    if (progress.phase != phase_) {
        phase_ = progress.phase;
        phaseBegan_ = Clock::now();
    }
    const double elapsed = std::chrono::duration<double>(Clock::now() - phaseBegan_).count();
    const std::string line = text(progress, elapsed);
    // Blanks go over what is left of a longer line; a byte too many does no harm.
    write_(fmt::format("\r{:<{}}", line, std::max(width_, line.size())));
    width_ = line.size();
}

void ProgressLine::clear() {
    if (width_ > 0) write_(fmt::format("\r{:<{}}\r", "", width_));
    width_ = 0;
}

} // namespace tidyro

#pragma once

#include <chrono>

namespace tidyro {

/// Measures from where it is made.
class Stopwatch {
  public:
    [[nodiscard]] double seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    }
    [[nodiscard]] double milliseconds() const { return seconds() * 1'000; }

  private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

} // namespace tidyro

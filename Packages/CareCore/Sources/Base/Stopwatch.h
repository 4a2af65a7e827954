#pragma once

#include <chrono>

namespace tidyro {

/// Tells how much time has passed since it was made or last restarted. The clock never goes back.
class Stopwatch {
  public:
    [[nodiscard]] double seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    }
    [[nodiscard]] double milliseconds() const { return seconds() * 1'000; }
    void restart() { start_ = std::chrono::steady_clock::now(); }

  private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

} // namespace tidyro

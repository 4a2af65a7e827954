#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <thread>

namespace tidyro::platform {

enum class Quality : unsigned {
    userInitiated = 25, ///< somebody waits for the result
    utility = 17,
};

/// A thread of its own with a name that debuggers and profilers show. Joins when it goes.
class DedicatedThread {
  public:
    DedicatedThread(std::string name, Quality quality, std::function<void()> work);

  private:
    std::jthread thread_;
};

/// Names the calling thread; a system that keeps short names only gets the beginning and the
/// trailing number.
void nameThisThread(const std::string& name, Quality quality);

/// How often the calling thread had to wait for something so far, a disk for example, rather than
/// being taken off its processor. Always 0 on a system that does not count it.
[[nodiscard]] std::uint64_t waitCountOfThisThread();

} // namespace tidyro::platform

#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <thread>

namespace tidyro::platform {

enum class Quality : unsigned {
    userInitiated = 25, ///< somebody waits for the result
    utility = 17,       ///< nobody waits for it
};

/// A thread with a name that debuggers and profilers show. Joins when it goes.
class DedicatedThread {
  public:
    DedicatedThread(std::string name, Quality quality, std::function<void()> work);

  private:
    std::jthread thread_;
};

/// Names the calling thread. Where the system takes short names only, the name is cut in the
/// middle, so that its beginning and the number at its end remain.
void nameThisThread(const std::string& name, Quality quality);

/// How often the calling thread has waited so far, for a disk for example. Times at which the
/// system took the processor away do not count. Always 0 on a system that does not count waits.
[[nodiscard]] std::uint64_t waitCountOfThisThread();

} // namespace tidyro::platform

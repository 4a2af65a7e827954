#include "Platform/Machine/DedicatedThread.h"

#include <utility>

namespace tidyro::platform {

DedicatedThread::DedicatedThread(std::string name, Quality quality, std::function<void()> work)
    : thread_([name = std::move(name), quality, work = std::move(work)] {
          nameThisThread(name, quality);
          work();
      }) {}

} // namespace tidyro::platform

#include "FolderWalk/WalkThreads.h"

#include <system_error>

#include <fmt/format.h>

namespace tidyro {

void WalkThreads::run() {
    std::vector<platform::DedicatedThread> workers;
    while (workers.size() < options_.workers && start(workers, options_.name)) {}
    if (workers.empty()) options_.work();
    workers.clear(); // joins; nobody takes on stand-ins any more
    standIns_.clear();
}

void WalkThreads::takeOnStandIn() {
    if (!mayTakeOnStandIn()) return;
    if (!start(standIns_, "Tidyro read-ahead")) options_.standIns = standIns_.size();
}

bool WalkThreads::start(std::vector<platform::DedicatedThread>& threads, const std::string& name) {
    try {
        threads.emplace_back(fmt::format("{} {}", name, threads.size() + 1),
                             platform::Quality::userInitiated, options_.work);
        return true;
    } catch (const std::system_error&) {
        return false; // the limit on threads; those that run do the work
    }
}

} // namespace tidyro

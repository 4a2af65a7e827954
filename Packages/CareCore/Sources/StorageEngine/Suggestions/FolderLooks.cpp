#include "StorageEngine/Suggestions/FolderLooks.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <system_error>
#include <thread>

#include "Platform/Machine/DedicatedThread.h"
#include "StorageEngine/Observation/FolderSigns.h"

namespace tidyro {

std::expected<platform::FolderDescriptor, SystemError> Looker::open(const std::string& folder) {
    auto direct = top ? top->openBelow(folder.substr(1)) : std::unexpected(top.error());
    // A link is on the way, or the system does not say: where the folder lies is found out by those
    // who rate its files.
    if (!direct) return platform::FolderDescriptor::openRoot(folder);
    FolderSigns signs;
    lister.begin(*direct);
    while (const platform::FolderEntry* entry = lister.next()) {
        signs.add(*entry);
    }
    if (lister.error().code == 0) setListed({.folder = folder, .real = folder, .signs = signs});
    return direct;
}

Lookers::Lookers(const FileURL& home, const platform::Volumes& volumes) {
    const unsigned wanted = std::clamp(std::thread::hardware_concurrency(), 1U, maxThreads);
    for (unsigned i = 0; i < wanted; ++i) all_.emplace_back(home, volumes);
}

void Lookers::forEach(std::size_t count, const std::function<void(std::size_t, Looker&)>& look) {
    std::atomic<std::size_t> next = 0;
    const auto work = [&](Looker& looker) {
        for (std::size_t i = next++; i < count; i = next++) look(i, looker);
    };
    std::vector<platform::DedicatedThread> others;
    const auto start = [&](Looker& looker) {
        try {
            others.emplace_back("Tidyro look", platform::Quality::userInitiated,
                                [&work, by = &looker] { work(*by); });
        } catch (const std::system_error&) {
            return false; // the limit on threads; those that run do the work
        }
        return true;
    };
    for (auto at = std::next(all_.begin()); at != all_.end() && others.size() + 1 < count; ++at) {
        if (!start(*at)) break;
    }
    work(all_.front());
}

} // namespace tidyro

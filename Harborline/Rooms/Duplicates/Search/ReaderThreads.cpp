#include "Rooms/Duplicates/Search/ReaderThreads.h"

#include <algorithm>
#include <system_error>
#include <thread>

#include <fmt/format.h>

namespace tidyro {

struct ReaderThreads::Round {
    const ReaderThreads& owner;
    std::string_view name;
    std::size_t count;
    std::size_t part;
    const Work& work;
    std::atomic<std::size_t> next = 0;
    std::mutex mutex = {};
    std::condition_variable ended = {};
    std::vector<platform::DedicatedThread> threads = {}; ///< guarded
    std::size_t running = 0;                             ///< likewise
};

std::size_t processorCount() {
    return std::max<std::size_t>(std::thread::hardware_concurrency(), 1);
}

/// With the mutex held.
bool ReaderThreads::startThread(Round& round) {
    const std::size_t reader = round.threads.size();
    if (reader >= round.owner.limits_.most) return false;
    try {
        round.threads.emplace_back(fmt::format("{} {}", round.name, reader + 1),
                                   platform::Quality::userInitiated,
                                   [&round, reader] { round.owner.work(round, reader); });
    } catch (const std::system_error&) {
        return false; // the limit on threads; those that run do the work
    }
    ++round.running;
    return true;
}

void ReaderThreads::run(std::string_view name, std::size_t count, std::size_t part,
                        const Work& work) {
    if (count == 0) return;
    Round round{.owner = *this, .name = name, .count = count, .part = part, .work = work};
    {
        std::unique_lock lock(round.mutex);
        round.threads.reserve(limits_.most);
        const std::size_t parts = (count + part - 1) / part;
        for (std::size_t i = 0; i < std::min(limits_.first, parts); ++i) {
            if (!startThread(round)) break;
        }
        if (round.running == 0) {
            lock.unlock();
            for (std::size_t from = 0; from < count; from += part) {
                if (limits_.cancel.stop_requested()) return;
                work(0, from, std::min(from + part, count));
            }
            return;
        }
        // Only one that runs takes on another, so once none runs there will be none.
        round.ended.wait(lock, [&] { return round.running == 0; });
    }
    round.threads.clear(); // joins
}

void ReaderThreads::work(Round& round, std::size_t reader) const {
    std::uint64_t waits = platform::waitCountOfThisThread();
    while (!limits_.cancel.stop_requested()) {
        const std::size_t from = round.next.fetch_add(round.part);
        if (from >= round.count) break;
        round.work(reader, from, std::min(from + round.part, round.count));
        const std::uint64_t now = platform::waitCountOfThisThread();
        if (now != waits && round.next < round.count) {
            const std::scoped_lock lock(round.mutex);
            static_cast<void>(startThread(round));
        }
        waits = now;
    }
    const std::scoped_lock lock(round.mutex);
    if (--round.running == 0) round.ended.notify_all();
}

} // namespace tidyro

#include "Rooms/Duplicates/Search/ReaderThreads.h"

#include <algorithm>
#include <system_error>
#include <thread>

#include <fmt/format.h>

namespace tidyro {

struct ReaderThreads::Round {
    const ReaderThreads& owner;
    const Job& job;
    const NumberedWork& work;
    std::atomic<std::size_t> next = 0;
    std::mutex mutex = {};
    std::condition_variable ended = {};
    std::vector<platform::DedicatedThread> threads = {}; ///< guarded
    std::size_t running = 0;                             ///< guarded
};

std::size_t processorCount() {
    return std::max<std::size_t>(std::thread::hardware_concurrency(), 1);
}

/// The caller holds the mutex.
bool ReaderThreads::startThread(Round& round) {
    const std::size_t number = round.threads.size();
    if (number >= round.owner.maxThreads()) return false;
    try {
        round.threads.emplace_back(fmt::format("{} {}", round.job.name, number + 1),
                                   platform::Quality::userInitiated,
                                   [&round, number] { round.owner.work(round, number); });
    } catch (const std::system_error&) {
        return false; // the system allows no more threads; those that run do the work
    }
    ++round.running;
    return true;
}

void ReaderThreads::runNumbered(const Job& job, const NumberedWork& work) {
    const std::size_t count = job.count;
    const std::size_t part = job.part;
    if (count == 0) return;
    Round round{.owner = *this, .job = job, .work = work};
    {
        std::unique_lock lock(round.mutex);
        round.threads.reserve(maxThreads());
        const std::size_t parts = (count + part - 1) / part;
        for (std::size_t i = 0; i < std::min(limits_.atFirst, parts); ++i) {
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
        // A thread is started only by one that runs, so once none runs, none will.
        round.ended.wait(lock, [&] { return round.running == 0; });
    }
    round.threads.clear(); // joins
}

void ReaderThreads::work(Round& round, std::size_t number) const {
    std::uint64_t waits = platform::waitCountOfThisThread();
    while (!limits_.cancel.stop_requested()) {
        const std::size_t from = round.next.fetch_add(round.job.part);
        if (from >= round.job.count) break;
        round.work(number, from, std::min(from + round.job.part, round.job.count));
        const std::uint64_t now = platform::waitCountOfThisThread();
        if (now != waits && round.next < round.job.count) {
            const std::scoped_lock lock(round.mutex);
            static_cast<void>(startThread(round));
        }
        waits = now;
    }
    const std::scoped_lock lock(round.mutex);
    if (--round.running == 0) round.ended.notify_all();
}

} // namespace tidyro

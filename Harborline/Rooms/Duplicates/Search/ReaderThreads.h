#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include "Base/Cancellation.h"
#include "Platform/Machine/DedicatedThread.h"

namespace tidyro {

/// Threads that share a list of files to read, part by part in its order.
///
///     ReaderThreads threads({.atFirst = 2, .maxThreads = 16, .cancel = cancel});
///     const auto readers = threads.run(
///         {.name = "Tidyro sample", .count = files.size(), .part = 64},
///         [&] { return std::make_unique<Reader>(listing); },
///         [&](Reader& reader, std::size_t from, std::size_t to) { ... });
///
/// A thread that had to wait for the disk starts another one, since a disk that is asked for many
/// things at once answers more of them in the same time. While everything comes from memory, the
/// threads that run at first stay alone.
class ReaderThreads {
  public:
    struct Limits {
        std::size_t atFirst; ///< at least 1
        std::size_t maxThreads;
        const CancelToken& cancel;
    };
    explicit ReaderThreads(Limits limits) : limits_(limits) {}

    [[nodiscard]] std::size_t maxThreads() const { return limits_.maxThreads; }

    struct Job {
        std::string_view name; ///< of the threads, which are numbered
        std::size_t count;     ///< of the files in the list
        std::size_t part;      ///< how many of them a thread takes at a time
    };
    /// Each thread makes a reader for itself when it begins, by `make`, and calls `work` with it
    /// and with the bounds of one part after another. Returns the readers once all parts are done,
    /// or, after a cancellation, those parts that were begun.
    template <class Make, class Work>
    auto run(const Job& job, Make make, Work work) {
        std::vector<decltype(make())> readers(maxThreads());
        runNumbered(job, [&](std::size_t number, std::size_t from, std::size_t to) {
            auto& reader = readers[number];
            if (!reader) reader = make();
            work(*reader, from, to);
        });
        std::erase(readers, nullptr);
        return readers;
    }

  private:
    struct Round;
    /// The number of the thread is below `maxThreads`; no two threads have the same.
    using NumberedWork = std::function<void(std::size_t, std::size_t from, std::size_t to)>;

    void runNumbered(const Job& job, const NumberedWork& work);
    [[nodiscard]] static bool startThread(Round& round);
    void work(Round& round, std::size_t number) const;

    Limits limits_;
};

/// The processors of the machine, at least 1.
[[nodiscard]] std::size_t processorCount();

} // namespace tidyro

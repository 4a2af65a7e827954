#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string_view>
#include <vector>

#include "Base/Cancellation.h"
#include "Platform/Machine/DedicatedThread.h"

namespace tidyro {

/// Threads that share a list of files to read, part by part in its order.
///
///     ReaderThreads threads({.first = 2, .most = 16, .cancel = cancel});
///     threads.run("Tidyro sample", files.size(), 64,
///                 [&](std::size_t reader, std::size_t from, std::size_t to) { ... });
///
/// There are as many as work the processors while everything comes from memory. A thread that had
/// to wait for the disk takes on another one: a disk that is asked for many things at once answers
/// more of them in the same time.
class ReaderThreads {
  public:
    struct Limits {
        std::size_t first; ///< at least 1
        std::size_t most;
        const CancelToken& cancel;
    };
    explicit ReaderThreads(Limits limits) : limits_(limits) {}

    [[nodiscard]] std::size_t most() const { return limits_.most; }

    /// `reader` is below `limits.most` and no two threads have the same.
    using Work = std::function<void(std::size_t reader, std::size_t from, std::size_t to)>;

    /// Returns when all parts are done, or, once it is cancelled, those that were begun.
    void run(std::string_view name, std::size_t count, std::size_t part, const Work& work);

  private:
    struct Round;

    [[nodiscard]] static bool startThread(Round& round);
    void work(Round& round, std::size_t reader) const;

    Limits limits_;
};

/// The processors of the machine, at least 1.
[[nodiscard]] std::size_t processorCount();

} // namespace tidyro

#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <utility>

namespace tidyro {

/// Reports a walk's progress. The worker that finishes a folder when a report is due calls the
/// handler. No two workers call it at once, and no older record follows a newer one.
///
///     if (progress.isDue()) progress.report(lock, [&] { return recordSoFar(); });
template <class Record>
class WalkProgress {
  public:
    using Handler = std::function<void(const Record&)>;

    /// The handler may be null. `interval`: seconds before the first report and between two.
    WalkProgress(Handler handler, double interval)
        : handler_(std::move(handler)), interval_(interval) {}

    [[nodiscard]] bool hasHandler() const { return handler_ != nullptr; }

    /// Under the walk's lock.
    [[nodiscard]] bool isDue() const {
        if (!hasHandler()) return false;
        const std::chrono::duration<double> since = Clock::now() - lastAt_;
        return since.count() >= interval_;
    }
    /// Under the walk's lock, which is let go while the handler runs. A handler slower than the
    /// interval misses reports, rather than holding up the walk.
    template <class Copy>
    void report(std::unique_lock<std::mutex>& lock, const Copy& copy) {
        // Taken before the record is copied, so that whoever copies it tells it first.
        std::unique_lock once(reporting_, std::try_to_lock);
        if (!once.owns_lock()) return;
        lastAt_ = Clock::now();
        const Record record = copy();
        lock.unlock();
        handler_(record);
        once.unlock();
        lock.lock();
    }
    /// When no worker is left.
    void reportLast(const Record& record) const { handler_(record); }

  private:
    using Clock = std::chrono::steady_clock;

    Handler handler_;
    double interval_;
    Clock::time_point lastAt_ = Clock::now();
    std::mutex reporting_;
};

} // namespace tidyro

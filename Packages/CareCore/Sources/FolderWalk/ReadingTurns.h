#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace tidyro {

/// Decides what a worker of a walk does when the process has no descriptor left for its folder:
/// whether it waits for the others, tries again or gives up.
///
/// Such a worker puts its folder back and waits until another worker has finished one, since that
/// closes files. When nobody else is reading by then, the other may have ended only now, so trying
/// again may help. When somebody is, that is no reason to go on either: two workers that fail in
/// turn would keep each other trying for ever. So only those readings count against the walk that
/// failed although they were alone from beginning to end. Even then something else may have had a
/// file open in passing, as the system's library does when a thread first asks for memory. So the
/// walk gives up only when such failures go on for a while and no folder is finished in between.
///
///     ready.wait(lock, [&] { return !jobs.empty() && turns.mayBegin(turn); });
///     turns.begin(turn);
///     // reads without the lock
///     if (!hasRunOut) turns.finish();
///     else if (turns.postpone(turn)) jobs.insert(jobs.begin(), job);
///     else fail();
///
/// The walk's lock guards all of it. A worker that is not reading keeps no folder open, since the
/// others may be waiting for a descriptor.
class ReadingTurns {
  public:
    /// The last reading of one worker.
    struct Turn {
        std::uint64_t number = 0;         ///< among all readings
        std::uint64_t finishedBefore = 0; ///< how many folders were done with when it began
        bool beganAlone = false;
        bool isPostponed = false;
    };

    /// Whether it makes sense that this worker takes another folder now.
    [[nodiscard]] bool mayBegin(const Turn& last) const {
        return !last.isPostponed || finished_ != last.finishedBefore || active_ == 0;
    }
    void begin(Turn& turn) {
        if (turn.isPostponed) --postponed_;
        turn = {.number = ++begun_, .finishedBefore = finished_, .beganAlone = active_ == 0};
        ++active_;
    }
    /// The folder is done with, read or not. Those who postponed theirs are then to be woken.
    void finish() {
        --active_;
        ++finished_;
        outOfFilesSince_.reset();
    }
    /// The folder could not be opened for want of files. False when there is no sense in trying
    /// again.
    [[nodiscard]] bool postpone(Turn& turn) {
        --active_;
        ++postponed_;
        turn.isPostponed = true;
        const bool wasAlone = turn.beganAlone && begun_ == turn.number;
        if (!wasAlone) return true;
        const auto now = Clock::now();
        if (!outOfFilesSince_) outOfFilesSince_ = now;
        return now - *outOfFilesSince_ < patience;
    }

    [[nodiscard]] bool isAnyoneReading() const { return active_ > 0; }
    [[nodiscard]] bool hasAnyonePostponed() const { return postponed_ > 0; }

  private:
    using Clock = std::chrono::steady_clock;
    /// Far longer than a file is open in passing, even when its thread is held up.
    static constexpr std::chrono::milliseconds patience{200};

    std::uint64_t begun_ = 0;
    std::uint64_t finished_ = 0;
    std::size_t active_ = 0;    ///< those who have begun and neither finished nor postponed
    std::size_t postponed_ = 0; ///< those who postponed and have not begun again
    /// The first of the readings that failed alone since a folder was last finished.
    std::optional<Clock::time_point> outOfFilesSince_;
};

} // namespace tidyro

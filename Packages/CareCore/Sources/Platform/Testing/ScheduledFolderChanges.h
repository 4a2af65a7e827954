#pragma once

#include <cerrno>
#include <cstdint>
#include <expected>
#include <functional>
#include <utility>

#include "Platform/Folders/FolderChanges.h"

namespace tidyro::testing {

using platform::ChangeError;
using platform::ChangeFailure;
using platform::EntryName;
using platform::FolderDescriptor;

/// Counts the changes and flushes of a run, and disturbs the run at one of them. A test runs once
/// undisturbed, and then once for each number up to `count`. Everything that one run changes
/// through shares one schedule. Used by one thread at a time.
class ChangeSchedule {
  public:
    enum class Disturbance : std::uint8_t {
        none,
        endBefore, ///< the process dies before the change
        endAfter,  ///< the process dies when it was made, and before it is told so
        failure,   ///< it is not made and fails with `code`
    };
    struct Plan {
        std::uint64_t at = 0; ///< the number of the change, from 1 on
        Disturbance how = Disturbance::none;
        int code = EIO;
        /// Runs when the process dies: it may end the child that the run is in. When it returns,
        /// the run goes on, but nothing is changed any more: every change fails.
        std::function<void()> die = nullptr;
    };
    ChangeSchedule() = default;
    explicit ChangeSchedule(Plan plan) : plan_(std::move(plan)) {}

    [[nodiscard]] std::uint64_t count() const { return count_; }
    [[nodiscard]] bool isOver() const { return isOver_; }

    /// Makes one change as the schedule wants it. `Answer` is an `expected` of any value.
    template <class Answer>
    [[nodiscard]] Answer perform(const std::function<Answer()>& change,
                                 const std::function<Answer(int code)>& failed) {
        if (isOver_) return failed(EIO);
        const bool isDisturbed = ++count_ == plan_.at;
        if (!isDisturbed || plan_.how == Disturbance::none) return change();
        if (plan_.how == Disturbance::failure) return failed(plan_.code);
        if (plan_.how == Disturbance::endAfter) static_cast<void>(change());
        isOver_ = true;
        if (plan_.die) plan_.die();
        return failed(EIO);
    }

  private:
    Plan plan_;
    std::uint64_t count_ = 0;
    bool isOver_ = false;
};

/// Whether a flush that is let through reaches the disk. A test of thousands of runs only counts
/// them: no machine loses its power in it.
enum class Flushes : std::uint8_t { made, counted };

/// The changes of the running system, by a schedule. It can also stand for a file system that does
/// not rename without replacing.
class ScheduledFolderChanges final : public platform::FolderChanges {
  public:
    enum class ExclusiveRename : std::uint8_t { known, unknown };

    explicit ScheduledFolderChanges(ChangeSchedule& schedule,
                                    ExclusiveRename rename = ExclusiveRename::known,
                                    Flushes flushes = Flushes::made)
        : schedule_(schedule), rename_(rename), flushes_(flushes) {}

    /// Run before and after each change, so that a test can do something in that very moment.
    std::function<void()> beforeEach = nullptr;
    std::function<void()> afterEach = nullptr;
    /// Run before and after each rename of an item that is there.
    std::function<void()> beforeRename = nullptr;
    std::function<void()> afterRename = nullptr;

    Changed renameNeverReplacing(const EntryName& from, const EntryName& to) override {
        if (rename_ == ExclusiveRename::unknown) {
            return std::unexpected(
                ChangeError{.kind = ChangeFailure::noExclusiveRename, .system = {EINVAL}});
        }
        return perform([&] {
            if (beforeRename) beforeRename();
            Changed renamed = live_.renameNeverReplacing(from, to);
            if (afterRename) afterRename();
            return renamed;
        });
    }
    Changed renameReplacing(const EntryName& from, const EntryName& to) override {
        return perform([&] { return live_.renameReplacing(from, to); });
    }
    Changed link(const EntryName& existing, const EntryName& added) override {
        return perform([&] { return live_.link(existing, added); });
    }
    Changed makeEmptyFile(const EntryName& at) override {
        return perform([&] { return live_.makeEmptyFile(at); });
    }
    Changed makeFolder(const EntryName& at, unsigned permissions) override {
        return perform([&] { return live_.makeFolder(at, permissions); });
    }
    Changed removeFile(const EntryName& at) override {
        return perform([&] { return live_.removeFile(at); });
    }
    Changed removeFolder(const EntryName& at) override {
        return perform([&] { return live_.removeFolder(at); });
    }
    Changed flush(const FolderDescriptor& folder) override {
        return perform([&] { return flushes_ == Flushes::made ? live_.flush(folder) : Changed(); });
    }
    Changed flushVolume(const FolderDescriptor& folder) override {
        return perform(
            [&] { return flushes_ == Flushes::made ? live_.flushVolume(folder) : Changed(); });
    }

  private:
    [[nodiscard]] Changed perform(const std::function<Changed()>& change) {
        if (beforeEach && !schedule_.isOver()) beforeEach();
        Changed changed = schedule_.perform<Changed>(change, [](int code) -> Changed {
            return std::unexpected(ChangeError::fromSystem({code}));
        });
        if (afterEach && !schedule_.isOver()) afterEach();
        return changed;
    }

    ChangeSchedule& schedule_;
    ExclusiveRename rename_;
    Flushes flushes_;
    platform::LiveFolderChanges live_;
};

} // namespace tidyro::testing

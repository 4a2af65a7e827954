#pragma once

#include <functional>

#include "Platform/Files/ChangeGate.h"
#include "Platform/Testing/ScheduledFolderChanges.h"

namespace tidyro::testing {

/// The writing of files by a schedule, which `ScheduledFolderChanges` may share: a run that moves
/// items and journals it is then disturbed at each of its changes, whichever kind it is.
class ScheduledChangeGate final : public platform::ChangeGate {
  public:
    explicit ScheduledChangeGate(ChangeSchedule& schedule, Flushes flushes = Flushes::made)
        : schedule_(schedule), flushes_(flushes) {}

    Done perform(platform::DiskChange kind, const std::function<Done()>& change) override {
        const bool isCounted = kind == platform::DiskChange::flush && flushes_ == Flushes::counted;
        return schedule_.perform<Done>(isCounted ? [] { return Done(); } : change, [](int code) {
            return Done(std::unexpected(SystemError{code}));
        });
    }

  private:
    ChangeSchedule& schedule_;
    Flushes flushes_;
};

} // namespace tidyro::testing

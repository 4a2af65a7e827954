#pragma once

#include <functional>

#include "Platform/Files/ChangeGate.h"
#include "Platform/Testing/ScheduledFolderChanges.h"

namespace tidyro::testing {

/// The writing of files by a schedule, which `ScheduledFolderChanges` may share: a run that moves
/// items and journals it is then disturbed at each of its changes, whichever kind it is.
class ScheduledChangeGate final : public platform::ChangeGate {
  public:
    explicit ScheduledChangeGate(ChangeSchedule& schedule) : schedule_(schedule) {}

    Done perform(platform::DiskChange, const std::function<Done()>& change) override {
        return schedule_.perform<Done>(
            change, [](int code) { return Done(std::unexpected(SystemError{code})); });
    }

  private:
    ChangeSchedule& schedule_;
};

} // namespace tidyro::testing

#pragma once

#include <expected>
#include <string>
#include <vector>

#include "Base/SystemError.h"

/// Which programs are running, by the names that they can be recognised by.
namespace tidyro::platform {

/// One running process as an application. Every field may be empty, but not all of them.
struct RunningApplication {
    /// macOS: of the application whose package holds the executable, helpers in it included.
    std::string bundleIdentifier;
    std::string executable; ///< absolute path
    /// The process's own short name: what a script or an interpreter's program calls itself by,
    /// and all that is told of a process that may not be read. Cut off by the system at 15 bytes
    /// on Linux.
    std::string name;

    bool operator==(const RunningApplication&) const = default;
};

/// Handed in, so that tests decide what runs. Any thread may ask.
class RunningApplications {
  public:
    virtual ~RunningApplications() = default;
    /// All of them, other people's too, in no particular order. An error when the system does not
    /// tell even of this process.
    [[nodiscard]] virtual std::expected<std::vector<RunningApplication>, SystemError>
    running() const = 0;
};

/// The applications of the running system.
class LiveRunningApplications final : public RunningApplications {
  public:
    [[nodiscard]] std::expected<std::vector<RunningApplication>, SystemError>
    running() const override;
};

} // namespace tidyro::platform

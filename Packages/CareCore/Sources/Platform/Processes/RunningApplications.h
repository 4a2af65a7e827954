#pragma once

#include <expected>
#include <string>
#include <vector>

#include "Base/SystemError.h"

/// Which programs are running, by the names that they are recognised by.
namespace tidyro::platform {

/// One running process as an application. Every field may be empty, but not all of them.
struct RunningApplication {
    /// macOS: of the application whose package holds the executable. The processes that an
    /// application starts from inside its package bear it as well.
    std::string bundleIdentifier;
    std::string executable; ///< absolute path
    /// The process's own short name. A script is recognised by it, and it is all that the system
    /// tells of a process that may not be read. Linux cuts it off at 15 bytes.
    std::string name;
    /// Linux: the script that an interpreter of Python was started for, as its real absolute path.
    /// Empty where its command line does not tell for certain, or where that file is gone, and for
    /// every other program.
    std::string script = {};

    bool operator==(const RunningApplication&) const = default;
};

/// Handed in, so that tests decide what runs. Any thread may ask.
class RunningApplications {
  public:
    virtual ~RunningApplications() = default;
    /// All of them, other people's too, in no particular order. An error means that the system does
    /// not tell even of this process.
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

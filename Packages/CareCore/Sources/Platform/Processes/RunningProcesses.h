#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <string>
#include <vector>

#include "Base/SystemError.h"

/// What the processes of the system have in use at this moment.
namespace tidyro::platform {

struct RunningProcess {
    std::int64_t pid; ///< 0 for what the system's kernel itself has in use
    /// Absolute path; empty for what runs no file, and where only the path may not be told.
    std::string executable;
    /// Absolute paths of the files that it has open or mapped, each once; open folders and devices
    /// may be among them, what has no path is not. As the kernel has them, without links.
    ///
    /// Where a file can be reached by several paths, because what holds it is mounted at several
    /// places or the process sees other mounts than this one, all the paths that this process's
    /// mounts give it are here; so is the one that the process itself has it by, which may name
    /// another file here, or none. The executable's other paths are here as well.
    ///
    /// A file that was removed or replaced while it was in use is told by the path it had, and
    /// also as the kernel writes it, with " (deleted)", which may be a real name as well.
    std::vector<std::string> files;
};

struct ProcessActivity {
    /// All that may be read, at least in part. The kernel is among them when it is known to have
    /// files in use: what it swaps to, and the images of disks that are mounted from files.
    std::vector<RunningProcess> processes;
    /// Processes of which not everything may be read: other people's, and ones that guard
    /// themselves. That some are is normal.
    std::size_t unreadable = 0;
};

/// Handed in, so that tests decide what runs. Any thread may ask.
class RunningProcesses {
  public:
    virtual ~RunningProcesses() = default;
    /// One pass over all processes; a process that ends meanwhile is left out. An error when the
    /// system does not tell even of this process, or reading failed otherwise than by a process's
    /// permissions: then what is in use is unknown.
    [[nodiscard]] virtual std::expected<ProcessActivity, SystemError> activity() const = 0;
};

/// The processes of the running system.
class LiveRunningProcesses final : public RunningProcesses {
  public:
    [[nodiscard]] std::expected<ProcessActivity, SystemError> activity() const override;
};

} // namespace tidyro::platform

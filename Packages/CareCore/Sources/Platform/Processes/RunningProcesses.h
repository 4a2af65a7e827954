#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <string>
#include <vector>

#include "Base/SystemError.h"

/// Which files the processes of the system have in use at this moment.
namespace tidyro::platform {

struct RunningProcess {
    std::int64_t pid; ///< 0 for the kernel itself
    /// Absolute path; empty for a process that runs no file, and when its path may not be read.
    std::string executable;
    /// The folder that it works in; empty where that may not be read. Other paths of that folder
    /// are among the files.
    std::string workingFolder = {};
    /// Absolute real paths of the files that it has open or mapped, each once. Open folders and
    /// devices may be among them.
    ///
    /// A file may have several paths: its volume may be mounted at several places, or the process
    /// may see other mounts than this program. Then all the paths that this program's mounts give
    /// the file are here. The path by which the process itself has the file is here as well,
    /// although this program may have another file there, or none. Likewise for the executable's
    /// other paths.
    ///
    /// A file that was removed or replaced while it was in use is here by the path that it had. It
    /// is here once more as the kernel writes it, with " (deleted)" at the end, since that may be a
    /// real name.
    std::vector<std::string> files;
};

struct ProcessActivity {
    /// Those with files that may be read, at least in part. The kernel is among them when it is
    /// known to have files in use: those it swaps to, and the images of disks that are mounted from
    /// files.
    std::vector<RunningProcess> processes;
    /// How many processes may not be read completely: other people's, and ones that guard
    /// themselves. Some always are.
    std::size_t unreadable = 0;
    /// This program runs in a process namespace of its own, as in a container or a sandbox. There
    /// may be processes outside, which have files of this system in use and are not told of. False
    /// where the namespace holds a whole system, as with LXC and WSL.
    bool areOthersHidden = false;
};

/// What a process was started with, and where it works. It may name files here that it has not open
/// at the moment: an interpreter names its script, and a search path the folders of programs.
struct ProcessStart {
    std::int64_t pid;
    std::vector<std::string> arguments = {};   ///< the program's name first
    std::vector<std::string> environment = {}; ///< "name=value" each; empty when it may not be read
    std::string workingFolder = {};            ///< empty when it may not be read
};

/// The number of this process.
[[nodiscard]] std::int64_t currentProcessID();

/// Handed in, so that tests decide what runs. Any thread may ask.
class RunningProcesses {
  public:
    virtual ~RunningProcesses() = default;
    /// One pass over all processes. A process that ends meanwhile is left out. An error means that
    /// it is unknown which files are in use: the system does not tell even of this process, or
    /// reading failed for another reason than permissions.
    [[nodiscard]] virtual std::expected<ProcessActivity, SystemError> activity() const = 0;
    /// One pass likewise. What may not be read is left out: it is other people's, and
    /// `ProcessActivity::unreadable` counts them. A process may have changed its own texts.
    [[nodiscard]] virtual std::expected<std::vector<ProcessStart>, SystemError> starts() const = 0;
};

/// The processes of the running system.
class LiveRunningProcesses final : public RunningProcesses {
  public:
    [[nodiscard]] std::expected<ProcessActivity, SystemError> activity() const override;
    [[nodiscard]] std::expected<std::vector<ProcessStart>, SystemError> starts() const override;
};

} // namespace tidyro::platform

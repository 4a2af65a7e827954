#pragma once

#include <cstddef>
#include <expected>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "Base/SystemError.h"
#include "Platform/Folders/FolderReading.h"
#include "Platform/Linux/Mounts/MountTable.h"
#include "Platform/Linux/Mounts/PathAliases.h"

namespace tidyro::platform {

/// The mount namespaces in which processes live. Containers have their own, and so have services
/// that are shut out of a part of the disk; each namespace has a table of mounts of its own.
///
/// The kernel writes the paths of a process's files from the root of the process's namespace, even
/// when the process itself is shut into a folder of it. In this process's own namespace the paths
/// begin at this process's root. A table of mounts, however, begins at the root of the process that
/// it is read from, and leaves out the mounts outside. So the tables of several processes of a
/// namespace are put together.
class MountNamespaces {
  public:
    using Number = std::size_t;
    static constexpr Number own = 0; ///< the one that this process lives in

    /// `mounts` are those that this process sees.
    explicit MountNamespaces(std::vector<MountTableEntry> mounts);

    /// The namespace of a process, whose mounts are read when it is a new one. Any thread may ask.
    [[nodiscard]] std::expected<Number, SystemError> namespaceOf(long pid,
                                                                 const FolderDescriptor& process);

    /// What this process calls the paths that the processes of each namespace have, in the order of
    /// the namespaces' numbers. Called after `namespaceOf` was asked for all processes.
    [[nodiscard]] std::vector<PathAliases> aliases() const;

  private:
    struct Namespace {
        std::vector<MountTableEntry> mounts;
        std::set<std::string> roots; ///< of the processes whose mounts these are
    };

    std::string ownName_;
    std::mutex mutex_;
    std::map<std::string, Number> numbers_;
    std::vector<Namespace> namespaces_;
};

} // namespace tidyro::platform

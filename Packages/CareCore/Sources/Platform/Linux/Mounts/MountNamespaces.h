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

/// In which mount namespaces processes live, each with a table of mounts of its own: containers,
/// and services that are shut out of a part of the disk.
///
/// The kernel tells the paths of a process's files from the root of the process's namespace, also
/// when the process itself is shut into a folder of it; in this process's namespace, from this
/// process's root. The table of mounts however is told from the process's own root, and without
/// the mounts outside: what several processes of a namespace see of it is put together.
class MountNamespaces {
  public:
    using Number = std::size_t;
    static constexpr Number own = 0; ///< the one that this process lives in

    /// With the mounts that this process sees.
    explicit MountNamespaces(std::vector<MountTableEntry> mounts);

    /// The namespace of a process; its mounts are read when it is new. Any thread may ask.
    [[nodiscard]] std::expected<Number, SystemError> namespaceOf(long pid,
                                                                 const FolderDescriptor& process);

    /// What the paths that processes of each namespace have are called in this process's, in the
    /// order of the numbers; when all processes have been asked for.
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

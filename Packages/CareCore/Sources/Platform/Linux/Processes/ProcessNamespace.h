#pragma once

#include <string>

namespace tidyro::platform {

/// What tells in which process namespace this program runs. Texts are empty where there is none.
struct ProcessNamespaceSigns {
    std::string name;         ///< of the namespace, as the kernel writes it
    std::string release;      ///< of the kernel
    std::string firstProcess; ///< the name of the process that has the pid 1 in it
    std::string container;    ///< what the service manager says that it runs in
    bool hasContainerMark;    ///< the file that engines of containers put at the root
};

/// Whether processes that use files of this system may lie outside the namespace. That is so in any
/// namespace but the first one, and but in one that an init system has for itself: LXC and WSL give
/// whole systems a namespace with a disk of their own.
[[nodiscard]] bool areOthersHidden(const ProcessNamespaceSigns& signs);

/// The same for this process. True when the system does not say.
[[nodiscard]] bool areOthersHidden();

} // namespace tidyro::platform

#include "Platform/Linux/Processes/ProcessNamespace.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

#include "Platform/Linux/Files/KernelText.h"

namespace tidyro::platform {

namespace {

/// The kernel gives its first process namespace this number.
constexpr const char* firstNamespace = "pid:[4026531836]";

bool isThere(const char* path) { return ::access(path, F_OK) == 0; }

} // namespace

bool areOthersHidden(const ProcessNamespaceSigns& signs) {
    if (signs.name == firstNamespace) return false;
    // Whoever made a namespace inside such a system has the pid 1 there.
    const bool isInit = signs.firstProcess == "systemd" || signs.firstProcess.starts_with("init");
    if (!isInit || signs.hasContainerMark) return true;
    const bool isLXC = signs.container == "lxc";
    const bool isWSL = signs.release.find("microsoft") != std::string::npos &&
                       (signs.container.empty() || signs.container == "wsl");
    return !isLXC && !isWSL;
}

bool areOthersHidden() {
    ProcessNamespaceSigns signs;
    if (const auto read = readKernelLink(AT_FDCWD, "/proc/self/ns/pid", signs.name); !read) {
        // A kernel that was built without such namespaces has only one of them.
        return !(read.error().code == ENOENT && isThere("/proc/self/ns"));
    }
    signs.release = kernelLine("/proc/sys/kernel/osrelease");
    signs.firstProcess = kernelLine("/proc/1/comm");
    signs.container = kernelLine("/run/systemd/container");
    signs.hasContainerMark = isThere("/.dockerenv") || isThere("/run/.containerenv");
    return areOthersHidden(signs);
}

} // namespace tidyro::platform

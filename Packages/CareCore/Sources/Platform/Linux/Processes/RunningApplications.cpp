#include "Platform/Processes/RunningApplications.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string_view>

#include "Platform/Linux/Files/KernelText.h"
#include "Platform/Linux/Processes/ProcessTable.h"

namespace tidyro::platform {

namespace {

/// From "1234 (name) S 1 ... flags ...": the flags are the sixth word behind the name, which may
/// hold anything, closing brackets too.
bool isKernelThread(std::string_view status) {
    constexpr unsigned kernelThread = 0x0020'0000;
    status.remove_prefix(std::min(status.rfind(')') + 1, status.size()));
    for (int word = 0; word < 7; ++word) {
        status.remove_prefix(std::min(status.find(' ') + 1, status.size()));
    }
    unsigned flags = 0;
    std::from_chars(status.data(), status.data() + status.size(), flags);
    return (flags & kernelThread) != 0;
}

} // namespace

std::expected<std::vector<RunningApplication>, SystemError>
LiveRunningApplications::running() const {
    const auto pids = processIDs();
    if (!pids) return std::unexpected(pids.error());
    std::vector<RunningApplication> applications;
    applications.reserve(pids->size());
    std::string text;
    for (const long pid : *pids) {
        const ProcessFolder folder(pid);
        // Other people's folders may be closed (hidepid): then not even a name is told.
        if (meansEnded(folder.error()) || meansForbidden(folder.error())) continue;
        RunningApplication application;
        int error = folder.error();
        if (error == 0) error = readKernelLink(folder.fd(), "exe", application.executable);
        if (meansEnded(error)) continue; // or a thread of the kernel
        // Its files may be hidden, its name is not.
        if (meansForbidden(error)) error = readKernelFile(folder.fd(), "stat", text);
        if (error == 0 && application.executable.empty() && isKernelThread(text)) continue;
        if (error == 0) error = readKernelFile(folder.fd(), "comm", text);
        if (meansEnded(error)) continue;
        if (error != 0) return std::unexpected(SystemError{error});
        while (text.ends_with('\n')) text.pop_back();
        application.name = text;
        applications.push_back(std::move(application));
    }
    return applications;
}

} // namespace tidyro::platform

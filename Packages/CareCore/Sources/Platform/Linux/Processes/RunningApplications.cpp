#include "Platform/Processes/RunningApplications.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
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

/// ESRCH for a thread of the kernel as well. `text` is room to read into.
std::expected<RunningApplication, SystemError> readApplication(const FolderDescriptor& process,
                                                               std::string& text) {
    RunningApplication application;
    auto read = readKernelLink(process.fd(), "exe", application.executable);
    if (!read && isForbidden(read.error())) { // its files may be hidden, its name is not
        read = readKernelFile(process.fd(), "stat", text);
        if (read && isKernelThread(text)) return std::unexpected(SystemError{ESRCH});
    }
    if (read) read = readKernelFile(process.fd(), "comm", text);
    if (!read) return std::unexpected(read.error());
    while (text.ends_with('\n')) text.pop_back();
    application.name = text;
    return application;
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
        const auto process = openProcess(pid);
        // Other people's folders may be closed (hidepid): then not even a name is told.
        if (!process && (hasEnded(process.error()) || isForbidden(process.error()))) continue;
        if (!process) return std::unexpected(process.error());
        auto application = readApplication(*process, text);
        if (!application && hasEnded(application.error())) continue;
        if (!application) return std::unexpected(application.error());
        applications.push_back(*std::move(application));
    }
    return applications;
}

} // namespace tidyro::platform

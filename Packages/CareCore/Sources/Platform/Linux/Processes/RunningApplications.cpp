#include "Platform/Processes/RunningApplications.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <string_view>

#include "Base/PathText.h"
#include "Platform/Files/FileMetadata.h"
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

/// Whether an executable, or the process of one, is called as an interpreter of Python is:
/// "python3.11". Other languages are left out: their tools do not all bear names by which they
/// could be told from other scripts.
bool isInterpreter(std::string_view executable) {
    constexpr std::string_view version = "0123456789.";
    const std::string_view name = path::lastComponent(executable);
    return std::ranges::any_of(std::array<std::string_view, 2>{"python", "pypy"}, [&](auto one) {
        return name.starts_with(one) &&
               name.find_first_not_of(version, one.size()) == std::string_view::npos;
    });
}

/// From the words of a command line, each with a zero behind it. Only a script by its absolute path
/// counts: what other paths lead to depends on where the process stood. A process may have written
/// over its words, so the script has to be there.
std::string scriptIn(std::string_view commandLine) {
    constexpr std::string_view optionsOfOneLetter = "BbdEIOPqsSuv"; // and nothing behind them
    const auto takeWord = [&] {
        const std::size_t end = std::min(commandLine.find('\0'), commandLine.size());
        const std::string_view word = commandLine.substr(0, end);
        commandLine.remove_prefix(std::min(end + 1, commandLine.size()));
        return word;
    };
    takeWord(); // the interpreter
    std::string_view word = takeWord();
    while (word.size() > 1 && word[0] == '-' &&
           word.find_first_not_of(optionsOfOneLetter, 1) == std::string_view::npos) {
        word = takeWord();
    }
    if (!word.starts_with('/')) return {};
    return realPath(std::string(word)).value_or(std::string());
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
    std::string_view executable = application.executable;
    constexpr std::string_view deleted = " (deleted)"; // it was replaced while it ran
    if (executable.ends_with(deleted)) executable.remove_suffix(deleted.size());
    const bool mayRunScript = isInterpreter(executable.empty() ? text : executable);
    if (mayRunScript && readKernelFile(process.fd(), "cmdline", text)) {
        application.script = scriptIn(text);
    }
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

#include "Platform/Processes/RunningProcesses.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <iterator>
#include <optional>
#include <span>
#include <string_view>
#include <thread>
#include <utility>

#include <unistd.h>

#include "Platform/Linux/Files/KernelText.h"
#include "Platform/Linux/Mounts/MountNamespaces.h"
#include "Platform/Linux/Mounts/PathAliases.h"
#include "Platform/Linux/Processes/KernelFiles.h"
#include "Platform/Linux/Processes/ProcessNamespace.h"
#include "Platform/Linux/Processes/ProcessTable.h"
#include "Platform/Machine/DedicatedThread.h"

namespace tidyro::platform {

namespace {

/// A process with the paths by which it has its files, and the namespace in which they are meant.
struct Found {
    RunningProcess process;
    MountNamespaces::Number mountNamespace = MountNamespaces::own;
};

constexpr std::string_view deletedMark = " (deleted)";

/// Adds a path as the kernel writes it.
void add(std::string_view path, RunningProcess& process) {
    process.files.emplace_back(path);
    if (path.ends_with(deletedMark)) {
        process.files.emplace_back(path.substr(0, path.size() - deletedMark.size()));
    }
}

void keepEachOnce(std::vector<std::string>& paths) {
    std::ranges::sort(paths);
    const auto repeated = std::ranges::unique(paths);
    paths.erase(repeated.begin(), repeated.end());
}

/// Reads processes one after another; its texts keep their room from one to the next.
class ProcessReader {
  public:
    /// What came of the last process.
    enum class Outcome { read, partly, ended, failed };

    explicit ProcessReader(MountNamespaces& namespaces) : namespaces_(namespaces) {}

    [[nodiscard]] Outcome read(long pid, Found& found);
    /// Why the last reading failed.
    [[nodiscard]] const std::optional<SystemError>& error() const { return error_; }

  private:
    void readExecutable(const FolderDescriptor& folder, RunningProcess& process);
    void readWorkingFolder(const FolderDescriptor& folder, RunningProcess& process);
    void readOpenFiles(const FolderDescriptor& folder, RunningProcess& process);
    void readMappedFiles(const FolderDescriptor& folder, RunningProcess& process);
    /// Takes note of why one part could not be read.
    void note(SystemError error) {
        if (hasEnded(error)) return;
        // A path too long for the kernel to tell is too long to be opened or removed by, too.
        if (error.code == ENAMETOOLONG) return;
        if (isForbidden(error)) {
            isPartlyHidden_ = true;
        } else if (!error_) {
            error_ = error;
        }
    }

    MountNamespaces& namespaces_;
    std::string text_;
    std::string target_;
    bool isPartlyHidden_ = false;
    std::optional<SystemError> error_;
};

void ProcessReader::readExecutable(const FolderDescriptor& folder, RunningProcess& process) {
    const auto read = readKernelLink(folder.fd(), "exe", target_);
    if (!read) return note(read.error());
    if (target_.ends_with(deletedMark)) add(target_, process);
    process.executable = target_;
}

void ProcessReader::readWorkingFolder(const FolderDescriptor& folder, RunningProcess& process) {
    const auto read = readKernelLink(folder.fd(), "cwd", target_);
    if (!read) return note(read.error());
    if (target_.ends_with(deletedMark)) add(target_, process);
    process.workingFolder = target_;
}

void ProcessReader::readOpenFiles(const FolderDescriptor& folder, RunningProcess& process) {
    const auto descriptors = folder.open("fd");
    if (!descriptors) return note(descriptors.error());
    const auto listed = forEachName(*descriptors, [&](const char* name) {
        const auto read = readKernelLink(descriptors->fd(), name, target_);
        if (!read) return note(read.error());
        // Pipes, sockets and the like have no path. To learn the kind of item would take another
        // call, dearer than this one: a folder that is held open is in use as well, and a device
        // does no harm.
        if (target_.starts_with('/')) add(target_, process);
    });
    if (!listed) note(listed.error());
}

void ProcessReader::readMappedFiles(const FolderDescriptor& folder, RunningProcess& process) {
    const auto read = readKernelFile(folder.fd(), "maps", text_);
    if (!read) return note(read.error());
    std::string_view rest = text_;
    std::string_view last; // a file is mapped in several pieces, one after another
    while (!rest.empty()) {
        // "7f00-7f10 r-xp 00000000 08:01 1234      /usr/lib/libc.so": no "/" before the path.
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        const std::size_t slash = line.find('/');
        if (slash == std::string_view::npos || line[slash - 1] != ' ') continue;
        const std::string_view path = line.substr(slash);
        if (path == last) continue;
        last = path;
        // Only line breaks are escaped here, so a backslash may be one of the name's own.
        add(path, process);
        if (path.find('\\') != std::string_view::npos) add(withoutEscapes(path), process);
    }
}

ProcessReader::Outcome ProcessReader::read(long pid, Found& found) {
    RunningProcess& process = found.process;
    isPartlyHidden_ = false;
    error_.reset();
    const auto folder = openProcess(pid);
    if (!folder && hasEnded(folder.error())) return Outcome::ended;
    if (!folder) {
        note(folder.error());
    } else {
        readExecutable(*folder, process);
        readWorkingFolder(*folder, process);
        readOpenFiles(*folder, process);
        readMappedFiles(*folder, process);
        if (!process.executable.empty() || !process.files.empty()) {
            const auto its = namespaces_.namespaceOf(pid, *folder);
            if (its) {
                found.mountNamespace = *its;
            } else {
                note(its.error());
            }
        }
    }
    keepEachOnce(process.files);
    if (error_) return Outcome::failed;
    return isPartlyHidden_ ? Outcome::partly : Outcome::read;
}

/// What one thread found, and why it stopped early.
struct Share {
    std::vector<Found> found;
    std::size_t unreadable = 0;
    std::optional<SystemError> error;
};

/// Reads the processes that no other thread has taken.
void readShare(std::span<const long> pids, std::atomic<std::size_t>& next,
               MountNamespaces& namespaces, Share& share) {
    ProcessReader reader(namespaces);
    for (std::size_t at = next++; at < pids.size(); at = next++) {
        Found found{
            .process = {.pid = pids[at], .executable = {}, .workingFolder = {}, .files = {}}};
        const ProcessReader::Outcome outcome = reader.read(pids[at], found);
        if (outcome == ProcessReader::Outcome::failed) {
            share.error = reader.error();
            return;
        }
        if (outcome == ProcessReader::Outcome::partly) {
            // A table that hides even its reader's own files tells nothing.
            if (pids[at] == ::getpid()) {
                share.error = SystemError{EACCES};
                return;
            }
            ++share.unreadable;
        }
        if (found.process.executable.empty() && found.process.files.empty()) continue;
        share.found.push_back(std::move(found));
    }
}

/// Adds the paths by which this program has the same files, from the aliases of each namespace in
/// which the process's paths may be meant.
void addOtherPaths(RunningProcess& process, std::span<const PathAliases> meant) {
    std::vector<std::string> others;
    for (const PathAliases& aliases : meant) {
        if (aliases.empty()) continue; // the usual case
        if (!process.executable.empty()) aliases.appendOthers(process.executable, others);
        if (!process.workingFolder.empty()) aliases.appendOthers(process.workingFolder, others);
        for (const std::string& file : process.files) aliases.appendOthers(file, others);
    }
    if (others.empty()) return;
    std::ranges::move(others, std::back_inserter(process.files));
    keepEachOnce(process.files);
}

/// Texts with a zero byte behind each.
std::vector<std::string> zeroEndedTexts(std::string_view bytes) {
    std::vector<std::string> texts;
    while (!bytes.empty()) {
        const std::string_view text = bytes.substr(0, bytes.find('\0'));
        texts.emplace_back(text);
        bytes.remove_prefix(std::min(text.size() + 1, bytes.size()));
    }
    return texts;
}

} // namespace

std::int64_t currentProcessID() { return ::getpid(); }

std::expected<std::vector<ProcessStart>, SystemError> LiveRunningProcesses::starts() const {
    const auto pids = processIDs();
    if (!pids) return std::unexpected(pids.error());
    std::vector<ProcessStart> starts;
    std::string text;
    // An error leaves the text empty, and so does a thread of the kernel.
    const auto read = [&](const FolderDescriptor& folder, const char* name) -> const std::string& {
        static_cast<void>(readKernelFile(folder.fd(), name, text).has_value());
        return text;
    };
    for (const long pid : *pids) {
        const auto folder = openProcess(pid);
        if (!folder) continue;
        ProcessStart start{.pid = pid,
                           .arguments = zeroEndedTexts(read(*folder, "cmdline")),
                           .environment = zeroEndedTexts(read(*folder, "environ")),
                           .workingFolder = {}};
        if (readKernelLink(folder->fd(), "cwd", text)) start.workingFolder = text;
        const bool isEmpty = start.arguments.empty() && start.environment.empty();
        if (!isEmpty || !start.workingFolder.empty()) starts.push_back(std::move(start));
    }
    return starts;
}

std::expected<ProcessActivity, SystemError> LiveRunningProcesses::activity() const {
    const auto pids = processIDs();
    if (!pids) return std::unexpected(pids.error());
    auto mounts = mountTable();
    if (!mounts) return std::unexpected(mounts.error());
    MountNamespaces namespaces(*std::move(mounts));
    // The kernel does nearly all of the work, for several threads at once. Few: it is over soon.
    const std::size_t threads = std::clamp(std::thread::hardware_concurrency(), 1U, 4U);
    std::vector<Share> shares(threads);
    std::atomic<std::size_t> next = 0;
    {
        std::vector<DedicatedThread> otherThreads;
        for (std::size_t i = 1; i < threads; ++i) {
            otherThreads.emplace_back("processes", Quality::userInitiated,
                                      [&, i] { readShare(*pids, next, namespaces, shares[i]); });
        }
        readShare(*pids, next, namespaces, shares[0]);
    }
    const std::vector<PathAliases> known = namespaces.aliases();
    const std::span<const PathAliases> aliases = known;
    ProcessActivity activity;
    activity.areOthersHidden = areOthersHidden();
    for (Share& share : shares) {
        if (share.error) return std::unexpected(*share.error);
        activity.unreadable += share.unreadable;
        for (Found& found : share.found) {
            addOtherPaths(found.process, aliases.subspan(found.mountNamespace, 1));
            activity.processes.push_back(std::move(found.process));
        }
    }
    RunningProcess kernel{.pid = 0, .executable = {}, .workingFolder = {}, .files = {}};
    for (const std::string& file : kernelFiles()) add(file, kernel);
    addOtherPaths(kernel, aliases); // whoever set it up may live anywhere
    if (!kernel.files.empty()) activity.processes.push_back(std::move(kernel));
    return activity;
}

} // namespace tidyro::platform
